// What arrays hold that nobody has seen yet: the locals of a function are fresh when its code is
// made, and types are proved only where no argument comes in.

#include "native/region.h"

namespace native {

namespace {

bool is_number(CHR letter) { return letter == 'I' || letter == 'F'; }

class guessing {
public:
    explicit guessing(region *r) : r_(*r) {}
    void look_at(unsigned i);
    void settle();

private:
    CHR guess(unsigned i) const;
    void assign(unsigned i);
    void store(unsigned i);
    void read(unsigned i);
    void take(CHR *place, CHR letter)
    {
        if (*place == 0) *place = letter;
    }

    region &r_;
};

// The type of a value; 0 for no idea.
CHR guessing::guess(unsigned i) const
{
    const item &it = r_[i];
    switch (it.what) {
    case work::READ: {
        const local &v = r_.locals[it.variable];
        return is_number(v.observed) ? v.observed : v.guess;
    }
    case work::INDEX: {
        const local &array = r_.locals[it.variable];
        return is_first(r_, i) ? array.first : array.member;
    }
    case work::NUMERIC: return it.row->result;
    case work::COMPARE:
    case work::BOTH:
    case work::EITHER: return 'I';
    case work::SETQ: return guess(i + 1);
    case work::IF: {
        const CHR yes = guess(r_.operand(i, 1));
        return yes != 0 ? yes : guess(r_.operand(i, 2));
    }
    default: return it.letter;
    }
}

void guessing::assign(unsigned i)
{
    local &v = r_.locals[r_[i].variable];
    take(&v.guess, guess(i + 1));
    if (r_[i + 1].what != work::READ) return;
    const local &source = r_.locals[r_[i + 1].variable];
    take(&v.array, source.array);
    take(&v.first, source.first);
    take(&v.member, source.member);
}

void guessing::store(unsigned i)
{
    local &array = r_.locals[r_[i].variable];
    if (!r_[i].mixed) take(&array.array, r_[i].letter);
    take(is_first(r_, i) ? &array.first : &array.member, guess(r_.operand(i, 1)));
}

// A handler for any array finds a typed one, or one of which a member is known.
void guessing::read(unsigned i)
{
    const local &array = r_.locals[r_[i].variable];
    if (!r_[i].mixed) return;
    r_[i].mixed = !is_number(array.array);
    const CHR letter = guess(i);
    r_[i].letter = is_number(letter) ? letter : CHR(0);
}

void guessing::look_at(unsigned i)
{
    switch (r_[i].what) {
    case work::SETQ: return assign(i);
    case work::ARSETQ: return store(i);
    default: return;
    }
}

void guessing::settle()
{
    for (unsigned i = 0; i < r_.items.size(); i++)
        if (r_[i].what == work::INDEX) read(i);
}

} // namespace

void guess_members(region *r)
{
    guessing guesses(r);
    for (int round = 0; round < 2; round++) // what is assigned below may be read above
        for (unsigned i = 0; i < r->items.size(); i++) guesses.look_at(i);
    guesses.settle();
}

} // namespace native

// What arrays hold that nobody has seen yet: the locals of a function are fresh when its code is
// made, and types are proved only where no argument comes in.

#include "native/region.h"

namespace native {

namespace {

void take(CHR *place, CHR letter)
{
    if (*place == 0) *place = letter;
}

// The type of the member that INDEX or ARSETQ is for.
CHR member_of(const region &r, unsigned i)
{
    const local &array = r.locals[r[i].variable];
    return is_first(r, i) ? array.first : array.member;
}

// The type of a value; 0 for no idea.
CHR guess(const region &r, unsigned i)
{
    const item &it = r[i];
    switch (it.what) {
    case work::READ: {
        const local &v = r.locals[it.variable];
        return is_number(v.observed) ? v.observed : v.guess;
    }
    case work::INDEX: return member_of(r, i);
    case work::COMPARE:
    case work::BOTH:
    case work::EITHER: return 'I';
    case work::SETQ: return guess(r, i + 1);
    case work::IF: {
        const CHR yes = guess(r, r.operand(i, 1));
        return yes != 0 ? yes : guess(r, r.operand(i, 2));
    }
    default: return it.letter;
    }
}

// A variable gets what its assignments tell, and an array what is stored in it.
void look_at(region *r, unsigned i)
{
    const item &it = (*r)[i];
    if (it.what != work::ARSETQ && it.what != work::SETQ) return;
    local &v = r->locals[it.variable];
    if (it.what == work::ARSETQ) {
        if (!it.mixed) take(&v.array, it.letter);
        take(is_first(*r, i) ? &v.first : &v.member, guess(*r, r->operand(i, 1)));
        return;
    }
    take(&v.guess, guess(*r, i + 1));
    if ((*r)[i + 1].what != work::READ) return;
    const local &source = r->locals[(*r)[i + 1].variable];
    take(&v.array, source.array);
    take(&v.first, source.first);
    take(&v.member, source.member);
}

} // namespace

void guess_members(region *r)
{
    for (int round = 0; round < 2; round++) // what is assigned below may be read above
        for (unsigned i = 0; i < r->items.size(); i++) look_at(r, i);
    // A handler for any array finds a typed one, or one of which a member is known.
    for (unsigned i = 0; i < r->items.size(); i++) {
        item &it = (*r)[i];
        if (it.what != work::INDEX || !it.mixed) continue;
        const CHR letter = member_of(*r, i);
        it.mixed = !is_number(r->locals[it.variable].array);
        it.letter = is_number(letter) ? letter : CHR(0);
    }
}

} // namespace native

// Expands cursor templates for terminal.cpp and for tgoto(). A template is a small program:
// ordinary bytes go out, each "%" command acts on the current argument of two. Every access to
// arguments goes through a test of the place, so that no template can reach beside them.
#include "terminal/cursor.h"

#include <cstring>
#include <utility>

const CHR *UP = nullptr;
const CHR *BC = nullptr;

namespace {

constexpr UCH STANDS_FOR_0 = 0x80;

struct expansion {
    const CHR *at;
    std::int32_t *arg;
    bool avoids_controls; // the bytes that a terminal driver alters
    term_text text = {};
    std::int64_t current = 0;
    int row = 0; // place of the argument that moves the cursor up
    int ups = 0, lefts = 0;

    void put(std::int32_t byte) { text.push_back(static_cast<CHR>(byte)); }
    UCH next_byte() { return *at ? static_cast<UCH>(*at++) : 0; }

    std::int32_t get(std::int64_t place) const { return place == 0 || place == 1 ? arg[place] : 0; }
    std::int32_t get() const { return get(current); }

    void set(std::int32_t value)
    {
        if (current == 0 || current == 1) arg[current] = value;
    }

    template <class change> void set_both(change changed)
    {
        for (int i = 0; i < 2; i++) arg[i] = changed(arg[i]);
    }

    void run();
    void command();
    void rewrite(UCH letter);
    void put_number(int digits);
    void put_quotient();
    void put_byte(std::int32_t value);
    void add_if_greater();
    void swap();
    void calculate();
};

// At least `digits` digits, a further one for what is above 999. A quotient or remainder that is no
// digit goes out as it is, added to '0'.
void expansion::put_number(int digits)
{
    std::int32_t number = get();
    if (digits >= 3) {
        if (number > 999) {
            put('0' + number / 1000);
            number %= 1000;
        }
        put('0' + number / 100);
    }
    if (digits >= 2) {
        number %= 100;
        put('0' + number / 10);
    }
    put('0' + number % 10);
    current++;
}

// "%C": the argument divided by 96, if that is not 0; the remainder is left to put_byte().
void expansion::put_quotient()
{
    std::int32_t value = get();
    if (value >= 96) {
        put(value / 96);
        value %= 96;
    }
    put_byte(value + next_byte());
}

void expansion::put_byte(std::int32_t value)
{
    UCH byte = static_cast<UCH>(value);
    int &steps = current == row ? ups : lefts;
    while (avoids_controls && (byte == 0 || byte == '\t' || byte == '\n')) byte++, steps++;
    put(byte == 0 ? STANDS_FOR_0 : byte);
    current++;
}

void expansion::add_if_greater()
{
    UCH limit = next_byte(), addend = next_byte();
    if (get() > limit) set(get() + addend);
}

void expansion::swap()
{
    std::swap(arg[0], arg[1]);
    row = 1;
}

// "%a": operator, kind of operand, operand. In 64 bits no quotient is out of range.
void expansion::calculate()
{
    UCH sign = next_byte(), kind = next_byte();
    std::int64_t value = next_byte() & 0x7F, own = get();
    if (kind == 'p') value = get(current + value - '@');
    switch (sign) {
    case '+': value = own + value; break;
    case '-': value = own - value; break;
    case '*': value = own * value; break;
    case '/': value = value == 0 ? 0 : own / value; break;
    }
    set(static_cast<std::int32_t>(value));
}

// The commands that change arguments and write nothing; unknown ones change nothing.
void expansion::rewrite(UCH letter)
{
    switch (letter) {
    case '>': add_if_greater(); break;
    case 'r': swap(); break;
    case 'i': set_both([](std::int32_t value) { return value + 1; }); break;
    case 'n': set_both([](std::int32_t value) { return value ^ 0x60; }); break;
    case 'm': set_both([](std::int32_t value) { return value ^ 0x7F; }); break;
    case 'f': current++; break;
    case 'b': current--; break;
    case 'B': set(get() + 6 * (get() / 10)); break;
    case 'D': set(get() - 2 * (get() % 16)); break;
    case 'a': calculate(); break;
    case 'p': next_byte(); break;
    }
}

void expansion::command()
{
    UCH letter = next_byte();
    switch (letter) {
    case '%': put('%'); break;
    case 'd': put_number(get() < 10 ? 1 : get() < 100 ? 2 : 3); break;
    case '2': put_number(2); break;
    case '3': put_number(3); break;
    case '.': put_byte(get()); break;
    case '+': put_byte(get() + next_byte()); break;
    case 'C': put_quotient(); break;
    default: rewrite(letter);
    }
}

void expansion::run()
{
    while (*at) {
        UCH byte = next_byte();
        if (byte == '%')
            command();
        else
            put(byte);
    }
}

} // namespace

term_text expand_cursor(const CHR *form, const CHR *up, const CHR *left, std::int32_t arg[2])
{
    expansion work{form, arg, left != nullptr};
    work.run();
    term_text &text = work.text;
    text.resize(strlen(text.c_str())); // a quotient may have written a NUL, which ends the string
    if (up != nullptr)
        for (; work.ups > 0; work.ups--) text.append(up);
    for (; work.lefts > 0; work.lefts--) text.append(left);
    return text;
}

CHR *tgoto(const CHR *form, int column, int row)
{
    static term_text last;
    if (form == nullptr) return nullptr;
    std::int32_t arg[2] = {row, column};
    last = expand_cursor(form, UP, BC, arg);
    return last.data();
}

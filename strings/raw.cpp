// Escapes to bytes and bytes to escapes. Reading escapes is defined as a fixed sequence of whole
// replacements: a pair of backslashes becomes `\0x5C`; then the letter escapes; then for each code
// in ascending order its upper-case and its lower-case hexadecimal form. A later replacement reads
// what earlier ones made, so a byte that one escape yields can complete another one, if that
// one's turn is still to come: `\\0x61` is the letter a.
//
// One pass from left to right gives the same. Up to the turn of the codes, no backslash can meet
// another, and each escape stands alone. From then on an escape is a backslash and four bytes
// that are none, so escapes never overlap: a byte can only be taken by the nearest backslash before
// it, and an escape that has once come about stays until its turn. It is resolved if one of its
// turns comes after those that made its bytes, and never otherwise. So the output works as a stack
// that is reduced whenever its top is such an escape; beside it stands the turn of each byte that
// an escape with a later turn could use.
#include "kestrin/strings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

#include "strings/block.h"
#include "strings/scratch.h"
#include "strings/state.h"

namespace {

struct letter_escape {
    CHR letter;
    CHR byte;
};

constexpr letter_escape letter_escapes[] = {
    {'b', '\b'}, {'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'e', 27},
    {'v', '\v'}, {'"', '"'},  {'a', '\a'}, {'f', '\f'},
};

constexpr const CHR *UPPER_DIGITS = "0123456789ABCDEF";

// -- Reading escapes ---------------------------------------------------------------------------

// `\0x` and two digits.
constexpr ULO HEX_ESCAPE = 5;

// The two turns of code c are 2c, upper-case form, and 2c + 1, lower-case form.
constexpr int FROM_START = -1;
constexpr int TURN_OF_BACKSLASH = 2 * '\\';

struct digit_pair {
    int code;
    bool upper;
    bool lower;
};

// The code of two hexadecimal digits and the forms in which they are written; neither form if they
// are no digits or of mixed case.
digit_pair read_digits(std::string_view digits)
{
    unsigned code = 0;
    const CHR *const end = digits.data() + digits.size();
    if (std::from_chars(digits.data(), end, code, 16).ptr != end) return {0, false, false};
    const auto has_none_of = [&](const CHR *letters) {
        return digits.find_first_of(letters) == digits.npos;
    };
    return {static_cast<int>(code), has_none_of("abcdef"), has_none_of("ABCDEF")};
}

// The first turn of the code after `made`, FROM_START if there is none.
int turn_after(const digit_pair &pair, int made)
{
    if (pair.upper && 2 * pair.code > made) return 2 * pair.code;
    if (pair.lower && 2 * pair.code + 1 > made) return 2 * pair.code + 1;
    return FROM_START;
}

class escape_reader {
public:
    // The result goes to `out` and is never longer than `text`; both may be the same bytes.
    escape_reader(std::string_view text, CHR *out)
        : in(text.data()), end(in + text.size()), start(out), top(out)
    {
    }

    ULO read()
    {
        while (in != end) {
            if (plain < HEX_ESCAPE - 1)
                read_one();
            else
                skip_plain();
        }
        return static_cast<ULO>(top - start);
    }

private:
    struct made_byte {
        ULO position;
        int turn;
    };

    // With four plain bytes on top, no escape before them can be completed any more.
    void skip_plain()
    {
        made.clear();
        const void *next = memchr(in, '\\', static_cast<size_t>(end - in));
        const CHR *stop = next == nullptr ? end : static_cast<const CHR *>(next);
        memmove(top, in, static_cast<size_t>(stop - in));
        top += stop - in;
        in = stop;
        plain = 0;
    }

    void read_one()
    {
        const CHR c = *in++;
        if (c != '\\' || in == end) {
            push(c, FROM_START);
        } else if (*in == '\\') {
            in++;
            push('\\', TURN_OF_BACKSLASH);
        } else {
            push(read_letter(), FROM_START);
        }
        while (reduce()) {}
    }

    // The byte of the escape whose letter stands next, or the backslash itself.
    CHR read_letter()
    {
        for (const letter_escape &escape : letter_escapes) {
            if (escape.letter != *in) continue;
            in++;
            return escape.byte;
        }
        return '\\';
    }

    void push(CHR c, int turn)
    {
        if (turn != FROM_START) made.push_back({static_cast<ULO>(top - start), turn});
        *top++ = c;
        plain = c == '\\' || turn != FROM_START ? 0 : plain + 1;
    }

    // Resolves the escape on top, if there is one and it still has a turn.
    bool reduce()
    {
        if (static_cast<ULO>(top - start) < HEX_ESCAPE) return false;
        const CHR *escape = top - HEX_ESCAPE;
        if (escape[0] != '\\' || escape[1] != '0' || escape[2] != 'x') return false;

        const ULO position = static_cast<ULO>(escape - start);
        const digit_pair pair = read_digits({escape + 3, 2});
        const int turn = turn_after(pair, latest_turn(position));
        if (turn == FROM_START) return false;
        while (!made.empty() && made.back().position >= position) made.pop_back();
        top -= HEX_ESCAPE;
        push(static_cast<CHR>(pair.code), turn);
        return true;
    }

    // The latest of the turns that made the bytes from `position` on.
    int latest_turn(ULO position) const
    {
        int latest = FROM_START;
        for (size_t i = made.size(); i != 0 && made[i - 1].position >= position; --i)
            latest = std::max(latest, made[i - 1].turn);
        return latest;
    }

    const CHR *in;
    const CHR *end;
    CHR *start;
    CHR *top;
    ULO plain = HEX_ESCAPE - 1; // bytes on top as the text had them, counted up to four
    std::vector<made_byte> made;
};

} // namespace

CHR *strraw(CHR **targ, const CHR *source)
{
    know_formats();
    const std::string_view text = view(source);
    if (text.find('\\') == std::string_view::npos) return equ(targ, source);
    if (source != *targ) must_resize(targ, text.size(), site::CAT);
    const ULO size = escape_reader(text, *targ).read();
    return must_resize(targ, size, site::CAT);
}

// -- Writing escapes ---------------------------------------------------------------------------

namespace {

struct escape_text {
    UCH size = 1;
    std::array<CHR, HEX_ESCAPE> text{};
};

constexpr escape_text escape_of(unsigned code)
{
    const CHR byte = static_cast<CHR>(code);
    if (byte == '\\') return {2, {'\\', '\\'}};
    for (const letter_escape &escape : letter_escapes)
        if (escape.byte == byte) return {2, {'\\', escape.letter}};
    if (code < 32)
        return {HEX_ESCAPE, {'\\', '0', 'x', UPPER_DIGITS[code / 16], UPPER_DIGITS[code % 16]}};
    return {1, {byte}};
}

constexpr auto escape_texts = [] {
    std::array<escape_text, 256> texts{};
    for (unsigned code = 0; code < 256; code++) texts[code] = escape_of(code);
    return texts;
}();

const escape_text &escape_for(CHR c) { return escape_texts[static_cast<UCH>(c)]; }

} // namespace

CHR *strunraw(CHR **targ, const CHR *source)
{
    know_formats();
    ULO size = 0;
    for (CHR c : view(source)) size += escape_for(c).size;
    if (size == len(source)) return equ(targ, source);

    CHR *fresh = nullptr;
    CHR *out = must_resize(&fresh, size, site::CAT);
    for (CHR c : view(source)) {
        const escape_text &escape = escape_for(c);
        memcpy(out, escape.text.data(), escape.size);
        out += escape.size;
    }
    return adopt(targ, fresh);
}

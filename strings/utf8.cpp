// UTF-8: the strict test of one character, trimming of what is cut off at the ends of a text, and
// case change. The case pairs become a table of pages at compile time: a page holds the distances
// for the 64 code points that share all bytes but the last, so a character costs two loads. The
// walk over a text is defined on bytes and does not decode: a broken sequence can swallow the byte
// behind it.
#include "kestrin/strings.h"

#include <algorithm>
#include <array>
#include <span>

#include "strings/ascii_case.h"
#include "strings/block.h"

// -- Legal characters --------------------------------------------------------------------------

namespace {

// The well-formed sequences above ASCII: size, first bytes, and the range of the second byte.
struct sequence_form {
    UCH size;
    UCH first_low, first_high;
    UCH second_low, second_high;
};

constexpr sequence_form sequence_forms[] = {
    {2, 0xC2, 0xDF, 0x80, 0xBF}, {3, 0xE0, 0xE0, 0xA0, 0xBF}, {3, 0xE1, 0xEC, 0x80, 0xBF},
    {3, 0xED, 0xED, 0x80, 0x9F}, {3, 0xEE, 0xEF, 0x80, 0xBF}, {4, 0xF0, 0xF0, 0x90, 0xBF},
    {4, 0xF1, 0xF3, 0x80, 0xBF}, {4, 0xF4, 0xF4, 0x80, 0x8F},
};

constexpr bool is_continuation(CHR c) { return (static_cast<UCH>(c) & 0xC0) == 0x80; }

// Looks at bytes in turn and so never behind a NUL.
bool has_form(const CHR *text, const sequence_form &form)
{
    const UCH second = static_cast<UCH>(text[1]);
    if (second < form.second_low || second > form.second_high) return false;
    for (int i = 2; i < form.size; i++)
        if (!is_continuation(text[i])) return false;
    return true;
}

} // namespace

UCH is_utf8char(const CHR *utf8char)
{
    if (utf8char == nullptr) return 0;
    const UCH first = static_cast<UCH>(*utf8char);
    if (first < 0x80) return first != 0 && first != 0x7F;
    for (const sequence_form &form : sequence_forms)
        if (first >= form.first_low && first <= form.first_high)
            return has_form(utf8char, form) ? form.size : 0;
    return 0;
}

// -- Trimming ----------------------------------------------------------------------------------

namespace {

// How many bytes a trim looks past: what a broken sequence can leave.
constexpr ULO LONGEST_RUIN = 6;

} // namespace

CHR *ltrim_utf8(CHR **targ, const CHR *source)
{
    const ULO size = len(source);
    for (ULO p = 0; p < size && p <= LONGEST_RUIN; p++)
        if (is_utf8char(source + p) != 0) return rightl(targ, source, p);
    return equ(targ, source);
}

CHR *rtrim_utf8(CHR **targ, const CHR *source)
{
    const ULO size = len(source);
    const ULO stop = size - std::min(size, LONGEST_RUIN + 1);
    for (ULO p = size; p > stop; --p)
        if (const UCH found = is_utf8char(source + p - 1)) return left(targ, source, p - 1 + found);
    return stop == 0 ? left(targ, source, 0) : equ(targ, source);
}

CHR *alltrim_utf8(CHR **targ, const CHR *source)
{
    rtrim_utf8(targ, source);
    return ltrim_utf8(targ, *targ);
}

// -- Case --------------------------------------------------------------------------------------

namespace {

struct case_row {
    SLO first, last, step, delta;
};

constexpr case_row upper_rows[] = {
#define UPPER(first, last, step, delta) {first, last, step, delta},
#include "strings/utf8_case.def"
};

constexpr case_row lower_rows[] = {
#define LOWER(first, last, step, delta) {first, last, step, delta},
#include "strings/utf8_case.def"
};

constexpr size_t PAGE = 64;
// Behind the last code point of the rows.
constexpr size_t PAGE_NUMBERS = 0x1E980 / PAGE;
constexpr size_t MOST_PAGES = 54; // of a table; too few do not compile

// Page 0 is all zeros; numbers without a row share it.
struct case_table {
    std::array<UCH, PAGE_NUMBERS> page_of{};
    std::array<std::array<std::int32_t, PAGE>, MOST_PAGES> deltas{};

    std::int32_t delta(ULO code) const
    {
        const ULO number = code / PAGE;
        return number < PAGE_NUMBERS ? deltas[page_of[number]][code % PAGE] : 0;
    }
};

consteval case_table make_case_table(std::span<const case_row> rows)
{
    case_table table;
    UCH pages = 0;
    for (const case_row &row : rows)
        for (SLO code = row.first; code <= row.last; code += row.step) {
            UCH &page = table.page_of[size_t(code) / PAGE];
            if (page == 0) page = ++pages;
            table.deltas[page][size_t(code) % PAGE] = std::int32_t(row.delta);
        }
    return table;
}

constexpr auto upper_table = make_case_table(upper_rows);
constexpr auto lower_table = make_case_table(lower_rows);

// Maps the character of `size` bytes at `text`. Bytes behind the lead that are no continuation
// bytes match no row. Both characters of a pair have the same size.
template <const auto &table> void map_character(CHR *text, int size)
{
    ULO code = static_cast<UCH>(text[0]) & (0x7F >> size);
    for (int i = 1; i < size; i++) {
        if (!is_continuation(text[i])) return;
        code = code << 6 | (static_cast<UCH>(text[i]) & 0x3F);
    }
    const std::int32_t delta = table.delta(code);
    if (delta == 0) return;
    code += static_cast<ULO>(SLO(delta));
    for (int i = size - 1; i > 0; --i, code >>= 6) text[i] = static_cast<CHR>(0x80 | (code & 0x3F));
    text[0] = static_cast<CHR>(static_cast<UCH>(0xF0 << (4 - size)) | code);
}

// Changes what stands at `text`, whose byte is not ASCII, and gives the bytes to step. A NUL is
// tested for before each byte that is stepped over, so the walk ends at the string's end whatever
// is there.
template <const auto &table> ULO map_sequence(CHR *text)
{
    const UCH lead = static_cast<UCH>(text[0]), second = static_cast<UCH>(text[1]);
    if (lead <= 0xC0 || second == 0) return 1;
    if (lead < 0xC3 || lead > 0xF0) return 2;
    if (lead < 0xE0) {
        map_character<table>(text, 2);
        return 2;
    }
    if (lead == 0xF0) {
        if (text[2] == 0) return 2;
        if (second != 0x90 && second != 0x91 && second != 0x96 && second != 0x9E) return 3;
        if (text[3] == 0) return 3;
        map_character<table>(text, 4);
        return 4;
    }
    // Leads without rows are passed in two, the rest of the character as continuation bytes.
    if (lead != 0xE1 && lead != 0xE2 && lead != 0xEA && lead != 0xEF) return 2;
    if (text[2] == 0) return 2;
    map_character<table>(text, 3);
    return 3;
}

template <const auto &table, ULO (*change)(ULO)>
CHR *change_case_utf8(CHR **targ, const CHR *source)
{
    CHR *const text = equ(targ, source);
    const ULO size = len(text);
    // A text that begins with NUL keeps its case.
    if (size == 0 || *text == 0) return text;
    for (ULO p = 0; p < size;) {
        const UCH c = static_cast<UCH>(text[p]);
        if (c >= 0x80) {
            p += map_sequence<table>(text + p);
        } else if (p + sizeof(ULO) <= size && (load_word(text + p) & HIGH_BITS) == 0) {
            store_word(text + p, change(load_word(text + p)));
            p += sizeof(ULO);
        } else {
            text[p++] = static_cast<CHR>(change(c));
        }
    }
    return text;
}

} // namespace

CHR *upper_utf8(CHR **targ, const CHR *source)
{
    return change_case_utf8<upper_table, upper_word>(targ, source);
}

CHR *lower_utf8(CHR **targ, const CHR *source)
{
    return change_case_utf8<lower_table, lower_word>(targ, source);
}

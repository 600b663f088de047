// Integers are printed with all their digits and floats correctly rounded, by the standard library
// as by the system's; what is left to do is the padding.

#include "vm/number_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "strings/scratch.h"

namespace {

// The longest result; a digit string is shorter in any case.
constexpr ULO LONGEST = 512, MOST_WIDTH = 99, MOST_PRECISION = 60;
constexpr DFL LARGEST_FIXED = 1e100;

struct plain_format {
    std::string_view before, after; // the percent sign and what belongs to it stand between them
    bool left = false, zeros = false, is_long = false;
    ULO width = 0;
    int precision = -1; // none given
    CHR letter = 0;
};

bool take(std::string_view *rest, std::string_view word)
{
    if (rest->substr(0, word.size()) != word) return false;
    rest->remove_prefix(word.size());
    return true;
}

bool read_format(std::string_view text, plain_format *f)
{
    const auto at = text.find('%');
    if (at == text.npos) return false;
    std::string_view rest = text.substr(at + 1);
    f->before = text.substr(0, at);
    f->left = take(&rest, "-");
    f->zeros = take(&rest, "0") && !f->left;
    if (!take_number(&rest, MOST_WIDTH, &f->width)) return false;
    if (take(&rest, ".")) {
        ULO precision = 0;
        if (!take_number(&rest, MOST_PRECISION, &precision)) return false;
        f->precision = static_cast<int>(precision);
    }
    f->is_long = take(&rest, "ll") || take(&rest, "l");
    if (rest.empty()) return false;
    f->letter = rest.front();
    f->after = rest.substr(1);
    return f->after.find('%') == f->after.npos;
}

// The following print into a buffer of `LONGEST` bytes and return their end, NULL if they refuse.

CHR *print_integer(CHR *to, const plain_format &f, SLO value)
{
    if (f.precision >= 0) return nullptr;
    if (f.letter == 'd' || f.letter == 'i')
        return std::to_chars(to, to + LONGEST, f.is_long ? value : int32_t(value)).ptr;
    const int base = f.letter == 'u' ? 10 : f.letter == 'o' ? 8 : f.letter == 'x' ? 16 : 0;
    if (base == 0) return nullptr;
    return std::to_chars(to, to + LONGEST, f.is_long ? ULO(value) : uint32_t(value), base).ptr;
}

CHR *print_float(CHR *to, const plain_format &f, DFL value)
{
    const int precision = f.precision < 0 ? 6 : f.precision;
    if (!std::isfinite(value) || f.is_long) return nullptr;
    if (f.letter == 'f') {
        if (std::fabs(value) >= LARGEST_FIXED) return nullptr;
        return std::to_chars(to, to + LONGEST, value, std::chars_format::fixed, precision).ptr;
    }
    if (f.letter != 'e' && f.letter != 'E') return nullptr;
    CHR *end = std::to_chars(to, to + LONGEST, value, std::chars_format::scientific, precision).ptr;
    std::replace(to, end, 'e', f.letter);
    return end;
}

CHR *print_text(CHR *to, const plain_format &f, std::string_view text)
{
    const bool has_nul = text.find('\0') != text.npos;
    if (f.letter != 's' || f.zeros || f.is_long || f.precision >= 0) return nullptr;
    return has_nul || text.size() > LONGEST ? nullptr : std::copy(text.begin(), text.end(), to);
}

CHR *print_value(CHR *to, const plain_format &f, const kestrin_data *d)
{
    switch (d->type) {
    case 'I': return print_integer(to, f, d->value.ival);
    case 'F': return print_float(to, f, d->value.fval);
    case 'S': return print_text(to, f, view(d->svalue));
    default: return nullptr;
    }
}

} // namespace

bool take_number(std::string_view *rest, ULO most, ULO *value)
{
    for (*value = 0; !rest->empty() && rest->front() >= '0' && rest->front() <= '9';) {
        *value = *value * 10 + ULO(rest->front() - '0');
        if (*value > most) return false;
        rest->remove_prefix(1);
    }
    return true;
}

bool print_plainly(kestrin_data *d, std::string_view format)
{
    plain_format f;
    if (!read_format(format, &f)) return false;
    CHR printed[LONGEST];
    const CHR *end = print_value(printed, f, d);
    if (end == nullptr) return false;
    std::string_view value(printed, ULO(end - printed));
    const ULO padding = f.width > value.size() ? f.width - value.size() : 0;
    if (f.before.size() + padding + value.size() + f.after.size() > LONGEST) return false;

    CHR line[LONGEST], *at = std::copy(f.before.begin(), f.before.end(), line);
    if (f.zeros && take(&value, "-")) *at++ = '-';
    if (!f.left) at = std::fill_n(at, padding, f.zeros ? '0' : ' ');
    at = std::copy(value.begin(), value.end(), at);
    if (f.left) at = std::fill_n(at, padding, ' ');
    at = std::copy(f.after.begin(), f.after.end(), at);
    assign(&d->svalue, {line, at});
    return true;
}

// STR_FMT and OUTF: a value under a format of the system library. A format holds one conversion at
// the most. The system library sees only formats that are safe for the value; where the conversion
// and the value's type differ, the value is converted.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <unistd.h>

#include "vm/handler.h"
#include "vm/number_text.h"
#include "vm/text.h"

namespace {

// What a value becomes under a conversion.
enum class print_as : UCH { INTEGER, FLOAT, TEXT, OWN };

// A row of the table of conversions: all that the system library may be asked. Sizes stand between
// blanks; the empty one is always allowed. Some letters the library takes for another size or
// conversion than they look, and reads what was never passed: they are in no row.
struct conversion_row {
    std::string_view letters;
    print_as number, text;         // what a number and a text, or nil, are printed as
    std::string_view number_sizes; // for numbers
    std::string_view text_sizes;   // for texts and nil
    std::string_view types;        // of the values that it takes
};

constexpr std::string_view ANY_SIZE = " hh h l ll q j z t L ", SHORT_SIZE = " hh h ";
constexpr std::string_view DOUBLE_SIZE = " hh h l j z t L ";

constexpr conversion_row conversions[] = {
    {"diouxXbB", print_as::INTEGER, print_as::INTEGER, ANY_SIZE, ANY_SIZE, "IFSZ"},
    {"eEfFgGaA", print_as::FLOAT, print_as::FLOAT, DOUBLE_SIZE, DOUBLE_SIZE, "IFSZ"},
    {"c", print_as::INTEGER, print_as::INTEGER, ANY_SIZE, SHORT_SIZE, "IFSZ"},
    {"C", print_as::INTEGER, print_as::INTEGER, ANY_SIZE, "", "IF"},
    {"s", print_as::TEXT, print_as::TEXT, "", SHORT_SIZE, "SZ"},
    {"p", print_as::INTEGER, print_as::TEXT, ANY_SIZE, ANY_SIZE, "IFSZ"},
    {"m", print_as::OWN, print_as::OWN, "", "", "IFSZ"},
};

bool one_of(CHR c, std::string_view letters) { return letters.find(c) != letters.npos; }

// False if one of the numbers is beyond what a result can hold.
bool take_flags_and_width(std::string_view *rest)
{
    rest->remove_prefix(std::min(rest->find_first_not_of("-+ #0'I"), rest->size()));
    ULO number;
    if (!take_number(rest, INT32_MAX, &number)) return false;
    if (rest->empty() || rest->front() != '.') return true;
    rest->remove_prefix(1);
    return take_number(rest, INT32_MAX, &number);
}

bool allows_size(std::string_view sizes, std::string_view size)
{
    return size.empty() || sizes.find(" " + std::string(size) + " ") != sizes.npos;
}

// The conversion behind a percent sign, if the table allows it for a value of the type.
struct conversion {
    print_as as;
    std::string_view size; // a part of the format
};

std::optional<conversion> read_conversion(std::string_view behind, UCH type)
{
    const bool is_number = type == 'I' || type == 'F';
    if (!take_flags_and_width(&behind)) return {};
    const auto end = std::min(behind.find_first_not_of("hlqjztL"), behind.size());
    const std::string_view size = behind.substr(0, end);
    if (end == behind.size()) return {};
    for (const conversion_row &row : conversions)
        if (one_of(behind[end], row.letters) && one_of(static_cast<CHR>(type), row.types) &&
            allows_size(is_number ? row.number_sizes : row.text_sizes, size))
            return conversion{is_number ? row.number : row.text, size};
    return {};
}

// The letter by which a number is tested for a string conversion: the first one behind the % that
// ends a conversion, or else the last byte.
CHR tested_letter(std::string_view format)
{
    auto i = format.find('%');
    while (i + 1 < format.size() && !one_of(format[i], "diouxXeEfgcsSpn")) i++;
    return format[i];
}

// What a value of each type says when its format is refused.
rt_text fault_of(UCH type)
{
    switch (type) {
    case 'I': return rt_text::FORMAT_INTEGER;
    case 'F': return rt_text::FORMAT_FLOAT;
    case 'S': return rt_text::FORMAT_STRING;
    default: return rt_text::FORMAT_NIL;
    }
}

// Prints into `*targ`; a short result needs no second call. False if the system library refuses.
template <class T> bool print(CHR **targ, const CHR *format, T value)
{
    CHR small[512];
    const int size = snprintf(small, sizeof small, format, value);
    if (size < 0) return false;
    if (ULO(size) < sizeof small) {
        get_std_buff(targ, small);
        return true;
    }
    CHR *buffer = nullptr;
    mk_std_buff(&buffer, ULO(size));
    snprintf(buffer, ULO(size) + 1, format, value);
    get_std_buff(targ, buffer);
    free(buffer);
    return true;
}

// A float is a double, whatever the size says.
bool print_float(kestrin_data *d, std::string_view format, std::string_view size)
{
    std::string plain(format);
    if (size == "L") plain.erase(ULO(size.data() - format.data()), 1);
    return print(&d->svalue, plain.c_str(), to_fval(d));
}

bool print_text(kestrin_data *d, const CHR *format)
{
    scratch value;
    if (d->type == 'S') {
        std::swap(value.s, d->svalue);
        show_nuls(&value.s, value.s);
    }
    const CHR *text = d->type == 'Z' ? "`NIL'" : value.s == nullptr ? "" : value.s;
    return print(&d->svalue, format, text);
}

// The value's own type does not matter here: it is cast to what the conversion prints.
bool print_value(kestrin_data *d, const CHR *format, const conversion &c)
{
    switch (c.as) {
    case print_as::INTEGER: return print(&d->svalue, format, to_ival(d));
    case print_as::FLOAT: return print_float(d, view(format), c.size);
    case print_as::TEXT: return print_text(d, format);
    default: return print(&d->svalue, format, SLO(0)); // reads nothing
    }
}

void raise_format_error(rt_text text, const ULO *dat_ptr, const CHR *format)
{
    scratch shown;
    strunraw(&shown.s, format);
    raise_error(text, dat_ptr, 0, std::string(view(shown.s)).append("'!"));
}

// The value in `d`, printed under the format into its string; or what is wrong.
rt_text format_value(kestrin_data *d, const CHR *format)
{
    const std::string_view text = view(format);
    if (print_plainly(d, text)) return rt_text::NONE;
    const auto first = text.find('%');
    if (first != text.npos && text.find('%', first + 1) != text.npos)
        return rt_text::FORMAT_ARGUMENTS;
    if (d->type == 0) {
        equ(&d->svalue, nullptr);
        return rt_text::NONE;
    }
    if (first == text.npos) {
        equ(&d->svalue, format);
        return rt_text::NONE;
    }
    if (holds_number(d) && one_of(tested_letter(text), "sS"))
        return d->type == 'I' ? rt_text::FORMAT_S_FOR_INTEGER : rt_text::FORMAT_S_FOR_FLOAT;
    const auto found = read_conversion(text.substr(first + 1), d->type);
    return found && print_value(d, format, *found) ? rt_text::NONE : fault_of(d->type);
}

// Leaves the printed text in `ret_dat`. False if an error is pending.
bool str_fmt(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    const held_operand<const CHR *> held(dat_ptr, dat_ptr + 2, ret_dat, false);
    ret_dat->disable_ptr = 1;
    eval_value(dat_ptr + 1, ret_dat);
    if (!rt_ctrl->rt_noterror) return false;
    scratch own;
    const CHR *format = held.get(ret_dat);
    if (format != nullptr && memchr(format, 0, len(format)) != nullptr)
        format = show_nuls(&own.s, format);
    const rt_text fault = format_value(ret_dat, format);
    if (fault != rt_text::NONE) {
        raise_format_error(fault, dat_ptr, format);
        return false;
    }
    answer_text(ret_dat);
    return true;
}

// One write of the whole behind what waits in the stream. What the system does not take goes the
// stream's way.
void write_out(std::string_view text)
{
    fflush(stdout);
    while (!text.empty()) {
        const ssize_t taken = write(STDOUT_FILENO, text.data(), text.size());
        if (taken <= 0) break;
        text.remove_prefix(static_cast<size_t>(taken));
    }
    if (text.empty()) return;
    fwrite(text.data(), 1, text.size(), stdout);
    fflush(stdout);
}

} // namespace

HANDLER(str_fmt) { str_fmt(dat_ptr, ret_dat); }

HANDLER(outf)
{
    if (!str_fmt(dat_ptr, ret_dat)) return;
    if (rt_ctrl->rt_capture) {
        cat(&rt_ctrl->rt_captured, ret_dat->svalue);
        return;
    }
    write_out(view(ret_dat->svalue));
}

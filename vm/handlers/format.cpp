// STR_FMT and OUTF: a value under a format of the system library. A format holds one conversion at
// the most. The system library sees only formats that are safe for the value; where the conversion
// and the value's type differ, the value is converted.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vm/handler.h"
#include "vm/text.h"

namespace {

// The conversion of a format, as the system library reads it.
struct conversion {
    CHR letter = 0;       // 0: none, or cut off at the end
    bool is_safe = true;  // no width or precision from the arguments, no position, nothing stored
    bool is_wide = false; // of wide characters
    ULO long_double = 0;  // place of an L in the format, 0 if none
};

bool one_of(CHR c, const CHR *letters) { return c != 0 && strchr(letters, c) != nullptr; }

// Digits of a width or precision from `i` on. False if the number is beyond what a result can hold.
bool skip_number(std::string_view format, ULO *i)
{
    ULO value = 0;
    for (; *i < format.size() && format[*i] >= '0' && format[*i] <= '9'; ++*i) {
        value = value * 10 + ULO(format[*i] - '0');
        if (value > INT32_MAX) return false;
    }
    return true;
}

conversion read_conversion(std::string_view format)
{
    conversion found;
    ULO i = format.find('%');
    if (i == format.npos) return found;
    i++;
    while (i < format.size() && one_of(format[i], "-+ #0'I")) i++;
    if (!skip_number(format, &i)) found.is_safe = false;
    if (i < format.size() && format[i] == '.') {
        i++;
        if (!skip_number(format, &i)) found.is_safe = false;
    }
    for (; i < format.size() && one_of(format[i], "hlqjztL"); i++) {
        if (format[i] == 'L') found.long_double = i;
        if (format[i] == 'l') found.is_wide = true;
    }
    if (i < format.size()) found.letter = format[i];
    if (one_of(found.letter, "n*$") || found.letter == 0) found.is_safe = false;
    found.is_wide = one_of(found.letter, "CS") || (found.is_wide && one_of(found.letter, "cs"));
    return found;
}

// The letter by which a number is tested for a string conversion: the first one behind the % that
// ends a conversion, or else the last byte.
CHR tested_letter(std::string_view format)
{
    auto i = format.find('%');
    if (i == format.npos) return ' ';
    while (i + 1 < format.size() && !one_of(format[i], "diouxXeEfgcsSpn")) i++;
    return format[i];
}

// What a value of each type says when its format is refused.
struct format_faults {
    rt_text string_conversion, failed;
};

format_faults faults_of(UCH type)
{
    switch (type) {
    case 'I': return {rt_text::FORMAT_S_FOR_INTEGER, rt_text::FORMAT_INTEGER};
    case 'F': return {rt_text::FORMAT_S_FOR_FLOAT, rt_text::FORMAT_FLOAT};
    case 'S': return {rt_text::NONE, rt_text::FORMAT_STRING};
    default: return {rt_text::NONE, rt_text::FORMAT_NIL};
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

bool print_number(kestrin_data *d, const CHR *format, const conversion &c)
{
    if (!one_of(c.letter, "eEfFgGaA")) return print(&d->svalue, format, to_ival(d));
    if (c.long_double == 0) return print(&d->svalue, format, to_fval(d));
    std::string plain(format);
    plain.erase(c.long_double, 1);
    return print(&d->svalue, plain.c_str(), to_fval(d));
}

// A number's conversion gets what the text is as a number.
bool print_text(kestrin_data *d, const CHR *format, const conversion &c)
{
    if (c.letter != 0 && c.letter != 's' && c.letter != 'p') return print_number(d, format, c);
    scratch value;
    if (d->type == 'S') {
        std::swap(value.s, d->svalue);
        show_nuls(&value.s, value.s);
    }
    const CHR *text = d->type == 'Z' ? "`NIL'" : value.s == nullptr ? "" : value.s;
    return print(&d->svalue, format, text);
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
    const auto first = text.find('%');
    if (first != text.npos && text.find('%', first + 1) != text.npos)
        return rt_text::FORMAT_ARGUMENTS;
    if (d->type == 0) {
        equ(&d->svalue, nullptr);
        return rt_text::NONE;
    }
    const bool is_number = d->type == 'I' || d->type == 'F';
    const format_faults faults = faults_of(d->type);
    if (is_number && one_of(tested_letter(text), "sS")) return faults.string_conversion;
    const conversion c = read_conversion(text);
    if (first != text.npos && (!c.is_safe || (!is_number && c.is_wide))) return faults.failed;
    const CHR *plain = format == nullptr ? "" : format;
    const bool done = is_number ? print_number(d, plain, c) : print_text(d, plain, c);
    return done ? rt_text::NONE : faults.failed;
}

// Leaves the printed text in `ret_dat`. False if an error is pending.
bool str_fmt(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    const held_operand<const CHR *, CAST> held(dat_ptr, dat_ptr + 2, ret_dat, false);
    ret_dat->disable_ptr = 1;
    eval(dat_ptr + 1, ret_dat);
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

} // namespace

HANDLER(str_fmt) { str_fmt(dat_ptr, ret_dat); }

HANDLER(outf)
{
    if (!str_fmt(dat_ptr, ret_dat)) return;
    if (rt_ctrl->rt_capture) {
        cat(&rt_ctrl->rt_captured, ret_dat->svalue);
        return;
    }
    fwrite(ret_dat->svalue, 1, len(ret_dat->svalue), stdout);
    fflush(stdout);
}

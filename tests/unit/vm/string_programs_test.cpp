// Random programs of string instructions against the string library called directly on the same
// tree. Assignments and choices stand among the operands, so that a result which lies over a
// variable, or an operand that changes a variable already read, would show. Each program runs with
// the type pass and without it: on the fast handlers and on the generic ones.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "kestrin/strings.h"
#include "tests/kit/runner.h"

namespace {

struct value {
    char type = 'Z';
    SLO i = 0;
    DFL f = 0;
    std::string s = {};
};

value integer(SLO i) { return {.type = 'I', .i = i}; }
value text(std::string s) { return {.type = 'S', .s = std::move(s)}; }

SLO truncated(DFL f)
{
    return f >= -0x1p63 && f < 0x1p63 ? static_cast<SLO>(std::trunc(f)) : INT64_MIN;
}

std::string printed(DFL f)
{
    char print[40];
    snprintf(print, sizeof print, "%.16E", f);
    return print;
}

// Casts by the table of the language. The type of the target is only named.
SLO cast(const value &v, SLO)
{
    switch (v.type) {
    case 'I': return v.i;
    case 'F': return truncated(v.f);
    case 'S': return atol(v.s.c_str());
    default: return 0;
    }
}
ULO cast(const value &v, ULO) { return ULO(cast(v, SLO())); }
DFL cast(const value &v, DFL)
{
    switch (v.type) {
    case 'I': return DFL(v.i);
    case 'F': return v.f;
    case 'S': return atof(v.s.c_str());
    default: return 0;
    }
}
std::string cast(const value &v, std::string)
{
    switch (v.type) {
    case 'I': return std::to_string(v.i);
    case 'F': return printed(v.f);
    default: return v.s;
    }
}

// A string operand as the library takes it: a counted string of its own.
struct argument_text {
    scratch own;
    explicit argument_text(const value &v) { assign(&own.s, cast(v, std::string())); }
    operator const CHR *() const { return own.s; }
};
template <class A> struct argument {
    A got;
    explicit argument(const value &v) : got(cast(v, A())) {}
    operator A() const { return got; }
};
template <> struct argument<const CHR *> : argument_text {
    using argument_text::argument_text;
};

value answered(DFL f) { return {.type = 'F', .f = f}; }
template <class R> value answered(R number) { return integer(SLO(number)); }

// A function of the library as an instruction: its signature says how operands are cast.
template <auto f> struct library;
template <class... A, CHR *(*f)(CHR **, A...)> struct library<f> {
    static constexpr int operands = sizeof...(A);
    template <std::size_t... n>
    static value call(const std::vector<value> &v, std::index_sequence<n...>)
    {
        scratch result;
        f(&result.s, argument<A>(v[n])...);
        return text(std::string(view(result.s)));
    }
    static value run(const std::vector<value> &v)
    {
        return call(v, std::index_sequence_for<A...>());
    }
};
template <class R, class... A, R (*f)(A...)>
requires(!std::is_same_v<R, CHR *> && !std::is_same_v<R, value>) struct library<f> {
    static constexpr int operands = sizeof...(A);
    template <std::size_t... n>
    static value call(const std::vector<value> &v, std::index_sequence<n...>)
    {
        return answered(f(argument<A>(v[n])...));
    }
    static value run(const std::vector<value> &v)
    {
        return call(v, std::index_sequence_for<A...>());
    }
};

value joined(const std::vector<value> &v)
{
    return text(cast(v[0], std::string()) + cast(v[1], std::string()));
}
value one_byte(const std::vector<value> &v)
{
    return text(std::string(1, static_cast<char>(cast(v[0], SLO()))));
}
value first_byte(const std::vector<value> &v)
{
    const std::string s = cast(v[0], std::string());
    return integer(s.empty() ? 0 : static_cast<unsigned char>(s[0]));
}
value to_text(const std::vector<value> &v) { return text(cast(v[0], std::string())); }
value to_integer(const std::vector<value> &v) { return integer(cast(v[0], SLO())); }
value to_float(const std::vector<value> &v) { return answered(cast(v[0], DFL())); }
value type_of(const std::vector<value> &v) { return text(std::string(1, v[0].type)); }

// Below 0, 0 or above 0 as the first stands to the second; 2 if they do not compare.
int order(const value &a, const value &b)
{
    if (a.type == 'Z') return b.type == 'Z' ? 0 : 2;
    if (a.type == 'I') return (a.i > cast(b, SLO())) - (a.i < cast(b, SLO()));
    if (a.type == 'S') return a.s.compare(cast(b, std::string()));
    const DFL f = cast(b, DFL());
    return std::isnan(a.f) || std::isnan(f) ? 2 : (a.f > f) - (a.f < f);
}
// char_traits compares bytes unsigned and a prefix first, as the language orders strings.
value is_equal(const std::vector<value> &v) { return integer(order(v[0], v[1]) == 0); }
value is_less(const std::vector<value> &v) { return integer(order(v[0], v[1]) < 0); }

struct instruction {
    const char *name;
    int operands;
    value (*run)(const std::vector<value> &);
    bool has_small_count; // the last operand is kept below 8: it is a size
};

#define LIBRARY(name, f)                                                                           \
    {                                                                                              \
        name, library<f>::operands, library<f>::run, false                                         \
    }
#define SIZED(name, f)                                                                             \
    {                                                                                              \
        name, library<f>::operands, library<f>::run, true                                          \
    }

const instruction instructions[] = {
    LIBRARY("AT", at),
    LIBRARY("RAT", rat),
    LIBRARY("LEN", len),
    LIBRARY("NOTEMPTY", notempty),
    LIBRARY("CRCSUM", crcsum),
    LIBRARY("LEFT", left),
    LIBRARY("LEFTR", leftr),
    LIBRARY("RIGHT", right),
    LIBRARY("RIGHTL", rightl),
    LIBRARY("SUBSTR", substr),
    LIBRARY("STRTRAN", strtran),
    LIBRARY("STR_RAW", strraw),
    LIBRARY("STR_UNRAW", strunraw),
    LIBRARY("STR_DUMP", strdump),
    LIBRARY("LTRIM", ltrim),
    LIBRARY("RTRIM", rtrim),
    LIBRARY("ALLTRIM", alltrim),
    LIBRARY("PACK", pack),
    LIBRARY("HEAD", head),
    LIBRARY("TAIL", tail),
    LIBRARY("LSP_HEAD", lsp_head),
    LIBRARY("LSP_TAIL", lsp_tail),
    LIBRARY("UPPER", upper),
    LIBRARY("LOWER", lower),
    LIBRARY("UPPER_UTF8", upper_utf8),
    LIBRARY("LOWER_UTF8", lower_utf8),
    LIBRARY("IS_UTF8CHAR", is_utf8char),
    LIBRARY("LTRIM_UTF8", ltrim_utf8),
    LIBRARY("RTRIM_UTF8", rtrim_utf8),
    LIBRARY("ALLTRIM_UTF8", alltrim_utf8),
    LIBRARY("REV", rev),
    LIBRARY("DUMP_I2S", slo2str),
    LIBRARY("DUMP_F2S", dfl2str),
    LIBRARY("DUMP_S2I", str2slo),
    LIBRARY("DUMP_S2F", str2dfl),
    SIZED("SPACE", space),
    SIZED("REPLICATE", replicate),
    SIZED("PADL", padl),
    SIZED("PADR", padr),
    SIZED("PADC", padc),
    {"CAT", 2, joined, false},
    {"CHR", 1, one_byte, false},
    {"ASC", 1, first_byte, false},
    {"STR", 1, to_text, false},
    {"IVAL", 1, to_integer, false},
    {"FVAL", 1, to_float, false},
    {"TYPE", 1, type_of, false},
    {"==", 2, is_equal, false},
    {"<", 2, is_less, false},
};

struct constant {
    const char *source;
    value is;
};
const constant constants[] = {
    {"\"\"", text("")},
    {"\" ab  cab \"", text(" ab  cab ")},
    {"\"b\"", text("b")},
    {"\"ab\"", text("ab")},
    {"\"-1\"", text("-1")},
    {"\"3rd\"", text("3rd")},
    {"\"\\0x00a\\n\"", text(std::string("\0a\n", 3))},
    {"\"(x \\\"y)\\\" z) w\"", text("(x \"y)\" z) w")},
    {"\"\xC3\xA9t\xC3\"", text("\xC3\xA9t\xC3")},
    {"\"eight by\"", text("eight by")},
    {"0", integer(0)},
    {"1", integer(1)},
    {"2", integer(2)},
    {"3", integer(3)},
    {"-1", integer(-1)},
    {"1000", integer(1000)},
    {"2.5", answered(2.5)},
    {"-0.5", answered(-0.5)},
    {"NIL", value()},
};

// Writes an expression and evaluates it in the same breath, left to right.
class writer {
public:
    explicit writer(unsigned seed) : random_(seed) {}
    std::string program;
    value result, a, b;

    void write()
    {
        program = "(PROGN ";
        for (value *v : {&a, &b}) assign_to(v, 0);
        for (int i = below(3); i > 0; i--) assign_to(below(2) ? &a : &b, 3);
        program += " (ARSETQ R 0 ";
        result = expression(4);
        program += ") (ARSETQ R 1 A) (ARSETQ R 2 B) R)";
    }

private:
    std::mt19937 random_;
    int below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
    template <class T, std::size_t n> const T &pick(const T (&of)[n]) { return of[below(n)]; }
    const char *name(const value *v) { return v == &a ? "A" : "B"; }

    // Cut to 40 bytes, so that nothing grows from round to round.
    value assign_to(value *v, int depth)
    {
        program += std::string("(SETQ ") + name(v) + (depth > 0 ? " (LEFT " : " ");
        value got = expression(depth);
        if (depth > 0) got = text(cast(got, std::string()).substr(0, 40));
        program += depth > 0 ? " 40))" : ")";
        return *v = got;
    }

    value call(const instruction &in, int depth)
    {
        std::vector<value> operands;
        program += std::string("(") + in.name;
        for (int i = 1; i <= in.operands; i++) {
            const bool small = in.has_small_count && i == in.operands;
            program += small ? " (& 7 " : " ";
            operands.push_back(expression(depth - 1));
            if (small) {
                operands.back() = integer(7 & cast(operands.back(), SLO()));
                program += ")";
            }
        }
        program += ")";
        return in.run(operands);
    }

    // Both branches are written, the one that is not taken with no effect on the variables.
    value choice(int depth)
    {
        program += "(IF ";
        const bool first = cast(expression(depth - 1), SLO()) != 0;
        value taken;
        for (const bool branch : {true, false}) {
            const value kept_a = a, kept_b = b;
            program += " ";
            const value got = expression(depth - 1);
            if (branch == first)
                taken = got;
            else
                a = kept_a, b = kept_b;
        }
        program += ")";
        return taken;
    }

    value last_of_two(int depth)
    {
        program += "(PROGN ";
        expression(depth - 1);
        program += " ";
        const value got = expression(depth - 1);
        program += ")";
        return got;
    }

    value variable(value *v)
    {
        program += name(v);
        return *v;
    }

    value leaf()
    {
        if (defined_ < 2) {
            defined_++;
        } else if (below(2)) {
            return variable(below(2) ? &a : &b);
        }
        const constant &c = pick(constants);
        program += c.source;
        return c.is;
    }
    int defined_ = 0; // the first two leaves give the variables their first values

    value expression(int depth)
    {
        if (depth == 0 || below(6) == 0) return leaf();
        switch (below(12)) {
        case 0: return assign_to(below(2) ? &a : &b, depth);
        case 1: return choice(depth);
        case 2: return last_of_two(depth);
        default: return call(pick(instructions), depth);
        }
    }
};

std::string shown(const value &v)
{
    return kit::shown_single(static_cast<UCH>(v.type), v.i, v.f, argument_text(text(v.s)));
}

TEST(StringPrograms, AgreeWithTheLibrary)
{
    kit::start_passes();
    for (unsigned seed = 1; seed <= 3000; seed++) {
        writer w(seed);
        w.write();
        const std::string squeezed = kit::squeezed(kit::checked(w.program));
        const std::string wanted =
            "{[128] " + shown(w.result) + ", 1: " + shown(w.a) + ", 2: " + shown(w.b) + "}";
        for (const bool with_types : {false, true}) {
            const kit::outcome got = kit::run_text(squeezed, with_types);
            ASSERT_EQ(got.value, wanted)
                << "seed " << seed << (with_types ? ", typed: " : ": ") << w.program << got.error;
        }
    }
    cleanup_quarne_thread_safe_functionality_for_local_thread();
}

} // namespace

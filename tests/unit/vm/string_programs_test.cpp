// Random expressions of string instructions, written twice: nested, and flat, where the value of
// each operand goes to a variable of its own before it is used. Assignments and choices stand among
// the operands, so that a result which lies over a variable, or an operand that changes a variable
// already read, shows as a difference. Each runs with the type pass and without it: on the fast
// handlers and on the generic ones.

#include <gtest/gtest.h>

#include "frontend/isa.h"
#include "tests/kit/dice.h"
#include "tests/kit/runner.h"

namespace {

// Instructions whose last operand is a size.
bool is_sized(ULO row) { return row == ISA_SPACE || row == ISA_REPLICATE || row >= ISA_PADL; }

// An expression, and the statements that leave the same in a variable or constant.
struct expression {
    std::string nested, before, value;
};

class writer : kit::dice {
public:
    explicit writer(unsigned seed) : dice(seed) {}
    expression made(int depth)
    {
        if (depth == 0 || below(6) == 0) return leaf();
        switch (below(12)) {
        case 0: return assignment(depth);
        case 1: return choice(depth);
        case 2: return sequence(depth);
        default: return call(depth);
        }
    }

private:
    int fresh_ = 0;
    std::string constant()
    {
        return pick("\"\"", "\" ab  cab \"", "\"b\"", "\"ab\"", "\"-1\"", "\"3rd\"", "\"eight by\"",
                    "\"\\0x00a\\n\"", "\"(x \\\"y)\\\" z) w\"", "\"\xC3\xA9t\xC3\"", "0", "1", "2",
                    "3", "-1", "1000", "2.5", "-0.5", "NIL");
    }
    std::string variable() { return pick("A", "B"); }
    ULO between(ULO first, ULO last) { return first + ULO(below(int(last - first + 1))); }

    // `nested`, whose value is that of `flat` behind the statements `before`.
    expression kept(const std::string &nested, const std::string &before, const std::string &flat)
    {
        const std::string name = "T" + std::to_string(fresh_++);
        return {nested, before + " (SETQ " + name + " " + flat + ")", name};
    }
    expression leaf()
    {
        const std::string name = variable(), own = constant();
        return below(2) ? kept(name, "", name) : expression{own, "", own};
    }
    // Cut to 40 bytes, so that nothing grows from round to round.
    expression assignment(int depth)
    {
        const expression e = made(depth - 1);
        const std::string name = variable(), head = "(SETQ " + name + " (LEFT ";
        return kept(head + e.nested + " 40))", e.before + " " + head + e.value + " 40))", name);
    }
    expression choice(int depth)
    {
        const expression c = made(depth - 1), yes = made(depth - 1), no = made(depth - 1);
        const auto branch = [](const expression &e) {
            return " (PROGN" + e.before + " " + e.value + ")";
        };
        return kept("(IF " + c.nested + " " + yes.nested + " " + no.nested + ")", c.before,
                    "(IF " + c.value + branch(yes) + branch(no) + ")");
    }
    expression sequence(int depth)
    {
        const expression a = made(depth - 1), b = made(depth - 1);
        return {"(PROGN " + a.nested + " " + b.nested + ")", a.before + b.before, b.value};
    }
    // Comparisons, casts and all that works on strings; sizes are kept below 8.
    expression call(int depth)
    {
        ULO row =
            below(10) == 0 ? between(ISA_EQUAL, ISA_GREATEROREQUAL_2) : between(ISA_STR, ISA_PADC);
        if (row == ISA_STR_FMT) row = ISA_CAT; // refuses most formats
        const SLO operands = isa_table[row].operands;
        std::string before, nested = "(" + std::string(view(*isa_table[row].mnemonic)),
                            flat = nested;
        for (SLO i = 1; i <= operands; i++) {
            const expression e = made(depth - 1);
            const bool small = i == operands && is_sized(row);
            before += e.before;
            nested += small ? " (& 7 " + e.nested + ")" : " " + e.nested;
            flat += small ? " (& 7 " + e.value + ")" : " " + e.value;
        }
        return kept(nested + ")", before, flat + ")");
    }
};

using StringPrograms = kit::with_passes<testing::Test>;

TEST_F(StringPrograms, DoNestedWhatTheyDoFlat)
{
    for (unsigned seed = 1; seed <= 1500; seed++) {
        const expression e = writer(seed).made(4);
        const std::string start = "(PROGN (SETQ A \" ab  cab \") (SETQ B 3)",
                          end = ") (ARSETQ R 1 A) (ARSETQ R 2 B) R)";
        const std::string nested = start + " (ARSETQ R 0 " + e.nested + end,
                          flat = start + e.before + " (ARSETQ R 0 " + e.value + end;
        const std::string wanted = kit::run_text(kit::squeezed(kit::checked(flat)), false).value;
        ASSERT_TRUE(wanted.starts_with("{[128] ")) << flat;
        for (const std::string &text : {nested, flat})
            for (const bool with_types : {false, true}) {
                const auto got = kit::run_text(kit::squeezed(kit::checked(text)), with_types);
                ASSERT_EQ(got.value, wanted) << with_types << text << flat << got.error;
            }
    }
}

} // namespace

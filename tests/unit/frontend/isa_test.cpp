// The instruction tables as text, what a unit may do with them before the engine starts, and the
// test that they pass ahead of the first check.

#include "frontend/isa.h"

#include <gtest/gtest.h>

#include "frontend/words.h"
#include "tests/kit/passes.h"

namespace {

// What one of the functions that fill a string tells.
template <class F> std::string told(F get)
{
    return kit::passed("", [get](CHR **targ) { get(targ); });
}

template <class F> void give(F set, const std::string &text)
{
    kit::passed(text, [set](CHR **targ) { set(*targ); });
}

std::string row_of(const std::string &all, const std::string &name)
{
    const auto from = all.find("(" + name + " ");
    return all.substr(from, all.find(')', from) + 1 - from);
}

class Isa : public testing::Test {
protected:
    void SetUp() override { kit::start_passes(); }
    void TearDown() override
    {
        engine_open = 1;
        _internal_ISA_COPs_set(nullptr);
        _internal_ISAext_COPs_set(nullptr);
    }
};

TEST_F(Isa, TableAsText)
{
    const std::string text = told([](CHR **targ) { _internal_ISA_COPs_get_(targ, 0); });
    EXPECT_TRUE(text.starts_with("(PROGN -1 U \"-\")(SETQ 2 U \"VU\")(ALSETQ 2 U \"VU\")"));
    EXPECT_NE(text.npos, text.find("(GET_ERROR_TEXT 0 S \"\")(MAPCAR 1 U \"-\")"));
    const isa_row &iadd = isa_table[find_word("IADD")->row];
    EXPECT_EQ("(IADD 2 I \"II\" " + std::to_string(ULO(iadd.slots[0])) + " " +
                  std::to_string(ULO(iadd.slots[1])) + " 0 0 0)",
              row_of(told(_internal_ISA_COPs_get), "IADD"));
}

TEST_F(Isa, ARowOfFewerOperandsThanMinusOneTakesAnyNumber)
{
    give(_internal_ISA_COPs_set, told(_internal_ISA_COPs_get) + "(FOO -2 I \"II\" 0 0 0 0 0)");
    EXPECT_EQ("(FOO 1 2 3)", kit::checked("(foo 1 2 3)"));
}

TEST_F(Isa, TableRoundTripAndReset)
{
    const std::string built_in = told(_internal_ISA_COPs_get);
    give(_internal_ISA_COPs_set, built_in);
    EXPECT_TRUE(!isa_is_built_in() && has_foreign_instructions());
    EXPECT_EQ(built_in, told(_internal_ISA_COPs_get));
    EXPECT_EQ("(PROGN (+ 1 2))", kit::checked("(progn (+ 1 2))"));
    _internal_ISA_COPs_set(nullptr);
    EXPECT_TRUE(isa_is_built_in());
    EXPECT_EQ(ULO(ISA_ROWS), isa_count);
}

TEST_F(Isa, Groups)
{
    // An alias that a unit adds joins the group of its row.
    const std::string all = told(_internal_ISA_COPs_get);
    give(_internal_ISA_COPs_set, all + row_of(all, "SETQ").replace(1, 4, "LET"));
    EXPECT_EQ(in(GROUP_SETQ), word_groups("LET"));
    EXPECT_EQ(0u, word_groups("SET"));
    EXPECT_EQ(ULO(ISA_ROWS), find_word("LET")->row);
    EXPECT_EQ("(LET A 1)", kit::checked("(let a 1)"));
}

// Every test of a row, in both tables.
TEST_F(Isa, TablesAreTested)
{
    const std::string all = told(_internal_ISA_COPs_get);
    const struct {
        bool ext;
        const char *rows, *message;
    } cases[] = {
        {false, "(A:B 1 I \"I\" 0 0 0 0 0)", "invalid internal function name `A:B"},
        {false, "(IADD 1 I \"I\" 0 0 0 0 0)", "duplicate internal function name `IADD"},
        {false, "(ONE 1 V \"I\" 0 0 0 0 0)", "invalid return type of function `ONE"},
        {false, "(ONE 1 I \"II\" 0 0 0 0 0)", "invalid number of operands in function `ONE"},
        {false, "(ONE 65536 I \"\" 0 0 0 0 0)", "invalid number of operands in function `ONE"},
        {false, "(ONE 1 I \"X\" 0 0 0 0 0)", "invalid operand type in function `ONE"},
        {false, "(ONE -1 U \"E\" 0 0 0 0 0)", nullptr},
        {true, "(A@I 1 I \"I\" 0)", "invalid internal function name `A@I"},
        {true, "(ONE 1 I \"I\" 0)(ONE 1 I \"I\" 0)", "duplicate internal function name `ONE"},
        {true, "(PROGN 1 I \"I\" 0)", "duplicate internal function name `PROGN"},
        {true, "(ONE 1 U \"I\" 0)", "invalid return type of function `ONE"},
        {true, "(ONE -1 I \"I\" 0)", "invalid number of operands in function `ONE"},
        {true, "(ONE 1 I \"-\" 0)", "invalid operand type in function `ONE"},
        {true, "(ONE 2 Z \"SZ\" 0)(2x 0 F \"\" 0)", nullptr},
    };
    for (const auto &c : cases) {
        give(_internal_ISA_COPs_set, c.ext ? "" : all + c.rows);
        give(_internal_ISAext_COPs_set, c.ext ? c.rows : "");
        EXPECT_EQ(c.message == nullptr ? "(PROGN 1)"
                                       : "[Internal error: " + std::string(c.message) + "'.]",
                  kit::checked("(progn 1)"))
            << c.rows;
    }
}

TEST_F(Isa, ExtensionTableAsText)
{
    const std::string rows = "(I*2 1 I \"I\" 4096)(FUSION_CMP 2 I \"SF\" 0)";
    give(_internal_ISAext_COPs_set, rows + " garbage");
    EXPECT_EQ(rows, told(_internal_ISAext_COPs_get));
}

TEST_F(Isa, MisuseIsFatal)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const struct {
        bool started; // the engine; else the table is a unit's
        void (*call)();
        const char *place;
    } cases[] = {
        {false, [] { told(_internal_ISA_COP_mnemonics_get); }, "Location=30"},
        {true, [] { _internal_ISA_COP_mnemonics_set(nullptr); }, "Location=31"},
        {false, [] { _internal_ISA_COP_mnemonics_set(nullptr); }, "Location=32"},
        {true, [] { _internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_set(1); }, "Location=33"},
        {true, [] { _internal_ISA_COPs_set(nullptr); }, "Location=34"},
        {true, [] { _internal_ISAext_COPs_set(nullptr); }, "Location=37"},
    };
    for (const auto &c : cases) {
        const auto misuse = [&c] {
            engine_open = !c.started;
            if (!c.started) give(_internal_ISA_COPs_set, "(ONE 1 I \"I\" 0 0 0 0 0)");
            c.call();
        };
        EXPECT_EXIT(misuse(), testing::ExitedWithCode(1), c.place);
    }
}

} // namespace

// The instruction tables as text, what a unit may do with them before the engine starts, and the
// test that they pass ahead of the first check.

#include "frontend/isa.h"

#include <gtest/gtest.h>

#include "frontend/words.h"
#include "tests/kit/passes.h"

namespace {

std::string isa_text()
{
    scratch text;
    _internal_ISA_COPs_get(&text.s);
    return std::string(view(text.s));
}

std::string row_of(const std::string &all, const std::string &name)
{
    const auto from = all.find("(" + name + " ");
    return all.substr(from, all.find(')', from) + 1 - from);
}

void set_isa(const std::string &text)
{
    scratch counted;
    assign(&counted.s, text);
    _internal_ISA_COPs_set(counted.s);
}

void set_isaext(const std::string &text)
{
    scratch counted;
    assign(&counted.s, text);
    _internal_ISAext_COPs_set(counted.s);
}

class isa : public testing::Test {
protected:
    void SetUp() override { kit::start_passes(); }
    void TearDown() override
    {
        engine_open = 1;
        _internal_ISA_COPs_set(nullptr);
        _internal_ISAext_COPs_set(nullptr);
    }
};
using isa_death = isa;

TEST_F(isa, table_as_text)
{
    scratch plain;
    _internal_ISA_COPs_get_(&plain.s, 0);
    const std::string_view text = view(plain.s);
    EXPECT_TRUE(text.starts_with("(PROGN -1 U \"-\")(SETQ 2 U \"VU\")(ALSETQ 2 U \"VU\")"));
    EXPECT_NE(text.npos, text.find("(GET_ERROR_TEXT 0 S \"\")(MAPCAR 1 U \"-\")"));
    const isa_row &iadd = isa_table[find_word("IADD")->row];
    EXPECT_EQ("(IADD 2 I \"II\" " + std::to_string(ULO(iadd.slots[0])) + " " +
                  std::to_string(ULO(iadd.slots[1])) + " 0 0 0)",
              row_of(isa_text(), "IADD"));
}

TEST_F(isa, table_round_trip_and_reset)
{
    const std::string built_in = isa_text();
    set_isa(built_in);
    EXPECT_FALSE(isa_is_built_in());
    EXPECT_EQ(built_in, isa_text());
    EXPECT_EQ("(PROGN (+ 1 2))", kit::checked("(progn (+ 1 2))"));
    _internal_ISA_COPs_set(nullptr);
    EXPECT_TRUE(isa_is_built_in());
    EXPECT_EQ(ULO(ISA_ROWS), isa_count);
}

TEST_F(isa, rows_end_at_the_first_other_token)
{
    const std::string all = isa_text();
    set_isa(row_of(all, "PROGN") + " " + row_of(all, "IADD") + " garbage " + row_of(all, "ISUB"));
    EXPECT_EQ(2u, isa_count);
    EXPECT_EQ("(PROGN (IADD 1 2))", kit::checked("(progn (iadd 1 2))"));
    EXPECT_EQ("[In function `Main': undefined function name `ISUB': (isub 1 2)]",
              kit::checked("(isub 1 2)"));
}

TEST_F(isa, added_alias_joins_its_group)
{
    const std::string all = isa_text();
    set_isa(all + row_of(all, "SETQ").replace(1, 4, "LET"));
    scratch group;
    _group_ctrl_cop(&group.s, *isa_table[ISA_SETQ].mnemonic);
    EXPECT_EQ(" SETQ LET ", view(group.s));
    EXPECT_TRUE(cmp_mnm("LET", group.s));
    EXPECT_FALSE(cmp_mnm("SET", group.s));
    EXPECT_EQ(ULO(ISA_ROWS), find_word("LET")->row);
    EXPECT_EQ("(LET A 1)", kit::checked("(let a 1)"));
}

TEST_F(isa, built_in_groups)
{
    EXPECT_STREQ(" COMMENTS COMMENT REMARKS REMARK REM ", group_string(GROUP_COMMENTS));
    EXPECT_STREQ(" AND && ", group_string(GROUP_AND));
    EXPECT_STREQ(" && AND ", group_string(GROUP_AND_2));
    EXPECT_STREQ(" DEFUN ", group_string(GROUP_DEFUN));
    EXPECT_STREQ(" INDEX ", group_string(GROUP_INDEX));
    EXPECT_STREQ(" BREAK ", group_string(GROUP_BREAK));
    scratch none;
    _group_ctrl_cop(&none.s, none.s);
    EXPECT_EQ(nullptr, none.s);
}

TEST_F(isa, renaming)
{
    scratch names, list;
    _internal_ISA_COP_mnemonics_get(&names.s);
    const std::string before(view(names.s));
    EXPECT_TRUE(before.starts_with("PROGN SETQ ALSETQ"));
    EXPECT_NE(before.npos, before.find(" GET_ERROR_TEXT MAPCAR"));
    assign(&list.s, "PROGN LET");
    _internal_ISA_COP_mnemonics_set(list.s);
    _internal_ISA_COP_mnemonics_get(&names.s);
    EXPECT_EQ("PROGN LET " + before.substr(11), view(names.s));
    EXPECT_EQ("[In function `Main': undefined function name `SETQ': (setq a 1)]",
              kit::checked("(setq a 1)"));
    assign(&list.s, before);
    _internal_ISA_COP_mnemonics_set(list.s);
    EXPECT_EQ("(SETQ A 1)", kit::checked("(setq a 1)"));
}

// Every test of a row, in both tables.
TEST_F(isa, tables_are_tested)
{
    const std::string all = isa_text();
    const struct {
        bool ext;
        const char *rows, *message;
    } cases[] = {
        {false, "(A:B 1 I \"I\" 0 0 0 0 0)", "invalid internal function name `A:B"},
        {false, "(IADD 1 I \"I\" 0 0 0 0 0)", "duplicate internal function name `IADD"},
        {false, "(ONE 1 V \"I\" 0 0 0 0 0)", "invalid return type of function `ONE"},
        {false, "(ONE 1 I \"II\" 0 0 0 0 0)", "invalid number of operands in function `ONE"},
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
        SCOPED_TRACE(c.rows);
        set_isa(c.ext ? "" : all + c.rows);
        set_isaext(c.ext ? c.rows : "");
        const std::string got = kit::checked("(progn 1)");
        if (c.message == nullptr) {
            EXPECT_EQ("(PROGN 1)", got);
        } else {
            EXPECT_EQ("[Internal error: " + std::string(c.message) + "'.]", got);
        }
    }
}

TEST_F(isa, extension_table_as_text)
{
    scratch text;
    const char rows[] = "(I*2 1 I \"I\" 4096)(FUSION_CMP 2 I \"SF\" 0)";
    set_isaext(std::string(rows) + " garbage");
    EXPECT_EQ(2u, isaext_count);
    _internal_ISAext_COPs_get(&text.s);
    EXPECT_STREQ(rows, text.s);
    _internal_ISAext_COPs_get_(&text.s, 0);
    EXPECT_STREQ("(I*2 1 I \"I\")(FUSION_CMP 2 I \"SF\")", text.s);
    set_isaext("");
    EXPECT_EQ(0u, isaext_count);
}

TEST_F(isa_death, misuse_is_fatal)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto started = [](void (*call)()) {
        engine_open = 0;
        call();
    };
    const auto foreign = [](void (*call)()) {
        set_isa("(ONE 1 I \"I\" 0 0 0 0 0)");
        call();
    };
    const auto exits = testing::ExitedWithCode(1);
    const auto get_names = [] {
        scratch names;
        _internal_ISA_COP_mnemonics_get(&names.s);
    };
    const auto set_names = [] { _internal_ISA_COP_mnemonics_set(nullptr); };
    EXPECT_EXIT(foreign(get_names), exits,
                "mnemonics_get.. call is not allowed after _internal_ISA_COPs_set.. has already "
                "changed ISA COPs (.|\n)*Location=30");
    EXPECT_EXIT(started(set_names), exits,
                "mnemonics_set.. call is not allowed after the VM engine is already "
                "started.(.|\n)*Location=31");
    EXPECT_EXIT(foreign(set_names), exits, "optionally you can reset ISA COPs (.|\n)*Location=32");
    EXPECT_EXIT(started([] { _internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_set(1); }), exits,
                "ASCIIorUTF8_set.. call is not allowed(.|\n)*Location=33");
    EXPECT_EXIT(started([] { _internal_ISA_COPs_set(nullptr); }), exits,
                "_internal_ISA_COPs_set.. call is not allowed(.|\n)*Location=34");
    EXPECT_EXIT(started([] { _internal_ISAext_COPs_set(nullptr); }), exits,
                "_internal_ISAext_COPs_set.. call is not allowed(.|\n)*Location=37");
}

} // namespace

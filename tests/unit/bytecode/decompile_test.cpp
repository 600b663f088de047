// Decompiled text: its exact form by cases, and the round trip to the same code for programs of all
// kinds.

#include "bytecode/decompile.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <sstream>

#include "frontend/isa.h"
#include "frontend/reader.h"
#include "tests/kit/code.h"
#include "tests/kit/random_program.h"
#include "tests/unit/frontend/random_source.h"
#include "vm/image.h"

namespace {

class Decompile : public testing::Test {
protected:
    void SetUp() override { kit::start_passes(); }
};

kit::listing listed(const std::string &text, UCH debug_level, decompile_mode mode = ENTIRE,
                    bool with_offsets = false)
{
    return kit::decompiled(kit::bytes_of(kit::compiled(text, debug_level)), mode, true,
                           with_offsets);
}

TEST_F(Decompile, WritesNodesAndNames)
{
    const struct {
        const char *source, *plain, *named;
    } cases[] = {
        {"(PROGN (SETQ@I X@I 5) X@I)", "(PROGN (PROGN (SETQ Var_1 5) Var_1))",
         "(PROGN (PROGN (SETQ X 5) X))"},
        {"(PROGN (DEFUN F (IVAL $1)) (F 41))",
         "(PROGN (DEFUN Udf_1 (PROGN (IVAL $1))) (PROGN (Udf_1 41)))",
         "(PROGN (DEFUN F (PROGN (IVAL $1))) (PROGN (F 41)))"},
        {"(PROGN (DEFUN F (PROGN (DEFUN G (TIME)) (G))) (F))",
         "(PROGN (DEFUN Udf_1 (PROGN (DEFUN Udf_1_1 (PROGN (TIME))) (PROGN (Udf_1_1)))) (PROGN "
         "(Udf_1)))",
         "(PROGN (DEFUN F (PROGN (DEFUN G (PROGN (TIME))) (PROGN (G)))) (PROGN (F)))"},
        {"(CAT \"a\\n\\\"\" (CAT NIL -3))", "(PROGN (CAT \"a\\n\\\"\" (CAT NIL -3)))",
         "(PROGN (CAT \"a\\n\\\"\" (CAT NIL -3)))"},
        {"(PROGN (DEFUN F (ALINDEX $1 2)) (F X) (ARSETQ@F A@F 1 B) (FOR I 0 1 9 0) (INDEX A 1))",
         "(PROGN (DEFUN Udf_1 (PROGN (ALINDEX Arg_Var_1 2))) (PROGN (Udf_1 Var_1) (ARSETQ Var_2 1 "
         "Var_3) (FOR Var_4 0 1 9 0) (INDEX Var_5 1)))",
         "(PROGN (DEFUN F (PROGN (ALINDEX Arg_Var_1 2))) (PROGN (F X) (ARSETQ A 1 B) (FOR I 0 1 9 "
         "0) (INDEX A 1)))"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.source);
        for (const UCH level : {0, 1, 2}) {
            const kit::listing listing = listed(c.source, level);
            EXPECT_TRUE(listing.is_good);
            EXPECT_EQ(level == 0 ? c.plain : c.named, listing.text);
            EXPECT_EQ("", listing.messages);
        }
    }
}

TEST_F(Decompile, OffsetsStandBehindVariablesAndInstructions)
{
    EXPECT_EQ("(PROGN (PROGN (REM Dbg=32) (SETQ (REM Dbg=64) Var_1 5) Var_1 (REM Dbg=104)))",
              listed("(PROGN (SETQ@I X@I 5) X@I)", 0, ENTIRE, true).text);
    EXPECT_EQ(
        "(PROGN (DEFUN Udf_1 (PROGN (IVAL (REM Dbg=72) $1 (REM Dbg=88)))) (PROGN (REM Dbg=104)"
        " (Udf_1 41)))",
        listed("(PROGN (DEFUN F (IVAL $1)) (F 41))", 0, ENTIRE, true).text);
}

TEST_F(Decompile, MadeUpNamesArePadded)
{
    std::string source = "(PROGN", slots = "(PROGN";
    for (int i = 0; i < 12; i++) source += " (DEFUN F" + std::to_string(i) + " (TIME))";
    for (int i = 0; i < 12; i++) slots += " V" + std::to_string(i);
    const std::string text = listed(source + " (F0) (F11))", 0, EFFECTIVE).text;
    EXPECT_NE(text.npos, text.find("(DEFUN Udf_01 (PROGN (TIME))) (DEFUN Udf_12 (PROGN (TIME))) "
                                   "(PROGN (Udf_01) (Udf_12))"));
    EXPECT_NE(text.npos, text.find("`Udf_02'"));
    const std::string variables = listed(slots + ")", 0).text;
    EXPECT_EQ("(PROGN (PROGN Var_01 Var_02 ", variables.substr(0, 28));
}

std::string removed(const std::string &name)
{
    return "UDF `" + name + "' is removed from the target because this UDF is not used.\n";
}

TEST_F(Decompile, LeavesOutWhatNothingCalls)
{
    const std::string source =
        "(PROGN (DEFUN A (TIME)) (DEFUN B (A)) (DEFUN C (PROGN (DEFUN X (TIME))"
        " (DEFUN Y (X)) (TIME))) (DEFUN D (B)) (C))";
    const std::string kept = "(PROGN (DEFUN C (PROGN (PROGN (TIME)))) (PROGN (C)))";
    const std::string said =
        removed("A") + removed("B") + removed("D") + removed("X") + removed("Y");
    for (const decompile_mode mode : {EFFECTIVE, MINIMISED}) {
        const kit::listing listing = listed(source, 1, mode);
        EXPECT_TRUE(listing.is_good);
        EXPECT_EQ(said, listing.messages);
        std::string lines = "(PROGN (COMMENTS \"Decompiler messages:\" \"";
        for (CHR c : said) c == '\n' ? lines += "\" \"" : lines += c;
        lines.replace(lines.size() - 2, 2, ") " + kept + ")");
        EXPECT_EQ(mode == MINIMISED ? kept : lines, listing.text);
    }
    EXPECT_EQ("", listed(source, 1, ENTIRE).messages);
    EXPECT_NE(std::string::npos, listed(source, 1, ENTIRE).text.find("(DEFUN Y (PROGN (X)))"));
    // A recursive function that nothing else calls is looked at too late to keep itself.
    EXPECT_EQ(removed("F"), listed("(PROGN (DEFUN F (F)) (TIME))", 1, EFFECTIVE).messages);
}

TEST_F(Decompile, SpellsFloatsAsTheFrontEndWantsThem)
{
    const struct {
        ULO bits;
        const char *print, *spelling;
    } cases[] = {
        {0x3FE0000000000000, "5.0000000000000000E-01", "5E-1"},
        {0x4000000000000000, "2.0000000000000000E+00", "2."},
        {0x8000000000000000, "-0.0000000000000000E+00", "-0."},
        {0x3FB999999999999A, "1.0000000000000001E-01", "1.0000000000000001E-1"},
        {0x7FEFFFFFFFFFFFFF, "1.7976931348623157E+308", "1.7976931348623157E308"},
        {0x7FF0000000000000, "", "INF"},
        {0xFFF0000000000000, "-INF", "-INF"},
        {0x7FF8000000000000, "", "NAN"},
    };
    for (const auto &c : cases) {
        const kit::code words = {image::code('U', 4), 0, 0, 0, 'F', c.bits};
        const kit::listing listing = kit::decompiled(kit::bytes_of(words), MINIMISED);
        EXPECT_TRUE(listing.is_good);
        EXPECT_EQ("(PROGN " + std::string(c.spelling) + ")", listing.text);
        EXPECT_EQ(*c.print == 0 ? ""
                                : "Float constant `" + std::string(c.print) + "' is typed as `" +
                                      c.spelling + "' in the target.\n",
                  listing.messages);
        EXPECT_EQ(0, rt_ctrl->rt_run_flag);
        EXPECT_EQ("", view(rt_ctrl->rt_run_text));
    }
}

std::string foreign(const std::string &table, const std::string &name)
{
    return "ERROR: The specified precompiled file is precompiled for other " + table + " COP `(" +
           name + ")', trying to continue anyway...\n";
}

const char *const corrupted =
    "ERROR: Unknown corrupted code `(Unknown_Code)' is found, trying to continue anyway...\n";

ULO call(ULO row) { return image::code('T', image::instruction(row, 0)); }

TEST_F(Decompile, GoesOnOverForeignCode)
{
    const ULO beyond = isa_count + 5, u = image::code('U', 4);
    const std::string isa = "Isa_Cop_" + std::to_string(beyond);
    const struct {
        const char *name;
        kit::code words;
        bool trusted;
        std::string text, messages;
    } cases[] = {
        {"unknown letter", {u, 0, 0, 0, 'q'}, true, "(Unknown_Code)", corrupted},
        {"image as a node", {u, 0, 0, 0, u, 0, 0, 0, 'Z'}, true, "(Unknown_Code)", corrupted},
        {"unknown row",
         {u, 0, 0, 0, call(beyond), 2, 3, 'I', 7, 'Z'},
         true,
         "(" + isa + " 7 NIL)",
         foreign("ISA", isa)},
        {"unknown extension",
         {u, 0, 0, 0, image::code('t', 8), 1, 'Z'},
         true,
         "(IsaExt_Cop_1 NIL)",
         foreign("ISAext", "IsaExt_Cop_1")},
        {"missing operand",
         {u, 0, 0, 0, call(ISA_IADD), 2, 0, 'I', 7},
         false,
         "(IADD 7)",
         foreign("ISA", "IADD")},
        {"unknown operand",
         {u, 0, 0, 0, call(ISA_LEN), 1, 'q'},
         true,
         "(LEN (Unknown_Code))",
         corrupted},
        {"one more than declared",
         {u, 0, 0, 0, call(ISA_INEG), 2, 2, 'Z', 'Z'},
         false,
         "(INEG NIL (COMMENTS NIL))",
         foreign("ISA", "INEG")},
        {"the same, trusted", {u, 0, 0, 0, call(ISA_INEG), 2, 2, 'Z', 'Z'}, true, "(INEG NIL)", ""},
        {"call of nothing",
         {u, 0, 0, 0, image::code('L', 48), 3, 0},
         true,
         "(Unknown_Code)",
         corrupted},
        {"global call",
         {u, 0, 0, 0, image::code('G', 48), 0, 1, 1, 'Z'},
         false,
         "(Extern_Udf_1 NIL)",
         ""},
        {"its bad operand",
         {u, 0, 0, 0, image::code('G', 48), 0, 1, 9, 'Z'},
         false,
         "(Extern_Udf_1)",
         ""},
        {"operand that is its own",
         {u, 0, 0, 0, call(ISA_PROGN), 2, 2, 1, 'Z'},
         true,
         "(PROGN NIL)",
         foreign("ISA", "PROGN")},
        {"string that runs out", {u, 0, 0, 0, 'S', 8, 0}, true, "(Unknown_Code)", corrupted},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const kit::listing listing = kit::decompiled(kit::bytes_of(c.words), MINIMISED, c.trusted);
        EXPECT_EQ("(PROGN " + c.text + ")", listing.text);
        EXPECT_EQ(c.messages, listing.messages);
        const bool good_call = c.name == std::string("global call");
        EXPECT_EQ(c.messages.empty() && (good_call || c.trusted), listing.is_good);
    }
}

// The file's own list names a row that the table does not have.
TEST_F(Decompile, ListsWinOverTables)
{
    kit::code words = kit::compiled("(PROGN (INEG X))", 1);
    for (ULO &word : words)
        if (word == call(ISA_INEG)) word = call(65 + 900);
    std::string bytes(kit::bytes_of(words));
    const std::string own = "INEG\xFE" + std::to_string(ISA_INEG) + "\xFE";
    const auto place = bytes.find(own);
    ASSERT_NE(bytes.npos, place);
    bytes.replace(place, own.size(),
                  "NEG\xFE"
                  "965\xFE");
    const kit::listing listing = kit::decompiled(bytes, ENTIRE, false);
    EXPECT_EQ("(PROGN (PROGN (NEG X)))", listing.text);
    EXPECT_TRUE(listing.is_good) << listing.messages;
}

// -- Round trips -------------------------------------------------------------------------------

// The code of a program compiled from what the decompiler makes of `words`.
kit::code again(const kit::code &words, bool with_offsets, UCH debug_level)
{
    const kit::listing listing =
        kit::decompiled(kit::bytes_of(words), ENTIRE, true, with_offsets, "");
    EXPECT_TRUE(listing.is_good) << listing.messages;
    return kit::program(kit::squeezed(listing.text), debug_level);
}

void expect_round_trip(const std::string &source)
{
    SCOPED_TRACE(source);
    const kit::code plain = kit::program(source, 0);
    if (plain.empty()) return;
    // What nothing calls and a list that is one definition do not come back: once through, all
    // does.
    const kit::code settled = again(plain, false, 0);
    for (const UCH level : {0, 1}) {
        const kit::code words = kit::program(source, level);
        ASSERT_EQ(settled, again(words, level == 1, 0));
    }
    ASSERT_EQ(settled, again(settled, false, 0));
    const kit::listing entire = kit::decompiled(kit::bytes_of(plain), ENTIRE, true);
    const kit::listing untrusted = kit::decompiled(kit::bytes_of(plain), ENTIRE, false);
    if (untrusted.is_good) {
        ASSERT_EQ(entire.text, untrusted.text);
    }
}

TEST_F(Decompile, ProgramsComeBackAsTheSameCode)
{
    const char *const sources[] = {
        "(setq x 1) (while (< x 10) (setq x (+ x 1))) (outf \"%ld\\n\" x)",
        "(defun fib (if (< $1 2) $1 (+ (fib (- $1 1)) (fib (- $1 2))))) (outf \"%ld\\n\" (fib 24))",
        "(setq s 0.) (for i 1 1 9 (setq s (+. s (/. 1. (fval i))))) s",
        "(arsetq a 1 \"x\\\\\\\"y\\n\") (arsetq a 2 nil) (cat (index a 1) (str (indices a)))",
        "(defun f (progn (defun g (iadd $1 1)) (defun h (g (g $1))) (iadd $1 (h $2)))) (f 1 2)",
    };
    for (const char *source : sources) {
        const kit::code words = kit::program(source);
        ASSERT_FALSE(words.empty()) << source;
        EXPECT_EQ(words, again(words, false, 0)) << source;
        expect_round_trip(source);
    }
}

// All programs that come with the system.
TEST_F(Decompile, OwnProgramsComeBack)
{
    const auto root = std::filesystem::path(__FILE__).parent_path() / "../../..";
    int accepted = 0;
    for (const char *folder : {"bench/programs", "tutorial/examples", "tests/golden"})
        for (const auto &entry : std::filesystem::recursive_directory_iterator(root / folder)) {
            if (entry.path().extension() != ".kst") continue;
            std::stringstream source;
            source << std::ifstream(entry.path()).rdbuf();
            std::string joined;
            join_lines(&joined, source.str(), true);
            if (kit::program(joined).empty()) continue;
            expect_round_trip(joined);
            accepted++;
        }
    EXPECT_LT(40, accepted);
}

TEST_F(Decompile, RandomProgramsComeBack)
{
    for (unsigned seed = 0; seed < 200; seed++) {
        kit::random_program program(seed, true, "(TIME)", "(IAND 3");
        expect_round_trip(program.text());
        if (HasFatalFailure()) return;
    }
    random_source source(7, false);
    for (int i = 0; i < 15000; i++) {
        expect_round_trip(source.form(4) + " " + source.form(3));
        if (HasFatalFailure()) return;
    }
}

// -- Hostile code ------------------------------------------------------------------------------

TEST_F(Decompile, AnyWordsGiveText)
{
    std::mt19937_64 random(3);
    const ULO typical[] = {image::code('U', 4),
                           'I',
                           'S',
                           'V',
                           'P',
                           call(0),
                           call(1),
                           call(52),
                           image::code('L', 48),
                           image::code('G', 48),
                           image::code('t')};
    for (int i = 0; i < 30000; i++) {
        kit::code words(random() % 40);
        for (ULO &word : words) {
            const ULO dice = random() % 8;
            word = dice == 0 ? random() : dice < 4 ? typical[random() % 11] : random() % 12;
        }
        if (!words.empty()) words[0] = image::code('U', 4 + random() % 8);
        const std::string_view bytes = kit::bytes_of(words);
        const auto mode = static_cast<decompile_mode>(random() % 3);
        const kit::listing listing = kit::decompiled(
            bytes.substr(0, bytes.size() - (bytes.empty() ? 0 : random() % 8)), mode, i % 2, i % 3);
        ASSERT_EQ("(PROGN ", listing.text.substr(0, 7));
    }
}

// References that meet would make the text double at each step.
TEST_F(Decompile, SharedNodesAreWrittenOnce)
{
    kit::code words = {image::code('U', 4), 0, 0, 0};
    for (int i = 0; i < 60; i++) words.insert(words.end(), {call(ISA_IADD), 2, 1});
    words.push_back('Z');
    for (const bool trusted : {false, true})
        EXPECT_GT(10000u, kit::decompiled(kit::bytes_of(words), ENTIRE, trusted).text.size());
}

} // namespace

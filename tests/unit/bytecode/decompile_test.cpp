// Decompiled text: its exact form by cases, and the round trip to the same code for programs of all
// kinds.

#include "bytecode/decompile.h"

#include <gtest/gtest.h>
#include <random>

#include "bytecode/verify.h"
#include "frontend/isa.h"
#include "tests/kit/code.h"
#include "tests/kit/random_program.h"
#include "tests/unit/frontend/random_source.h"
#include "vm/image.h"

namespace {

using Decompile = kit::with_passes<testing::Test>;

kit::listing listed(const std::string &text, UCH debug_level, decompile_mode mode)
{
    return kit::decompiled(kit::bytes_of(kit::compiled(text, debug_level)), mode);
}

TEST_F(Decompile, WritesNodesAndNames)
{
    const struct {
        const char *source, *plain, *named;
    } cases[] = {
        {"(PROGN (SETQ@I X@I 5) X@I)", "(PROGN (SETQ Var_1 5) Var_1)", "(PROGN (SETQ X 5) X)"},
        {"(PROGN (DEFUN F (PROGN (DEFUN G (TIME)) (G))) (F))",
         "(DEFUN Udf_1 (PROGN (DEFUN Udf_1_1 (PROGN (TIME))) (PROGN (Udf_1_1)))) (PROGN (Udf_1))",
         "(DEFUN F (PROGN (DEFUN G (PROGN (TIME))) (PROGN (G)))) (PROGN (F))"},
        {"(CAT \"a\\n\\\"\" (CAT NIL -3))", "(CAT \"a\\n\\\"\" (CAT NIL -3))", nullptr},
        {"(PROGN (DEFUN F (ALINDEX $1 2)) (F X) (ARSETQ@F A@F 1 B) (FOR I 0 1 9 0) (INDEX A 1))",
         "(DEFUN Udf_1 (PROGN (ALINDEX Arg_Var_1 2))) (PROGN (Udf_1 Var_1) (ARSETQ Var_2 1 Var_3) "
         "(FOR Var_4 0 1 9 0) (INDEX Var_5 1))",
         "(DEFUN F (PROGN (ALINDEX Arg_Var_1 2))) (PROGN (F X) (ARSETQ A 1 B) (FOR I 0 1 9 0) "
         "(INDEX A 1))"},
    };
    for (const auto &c : cases)
        for (const UCH level : {0, 1, 2}) {
            const kit::listing listing = listed(c.source, level, EFFECTIVE);
            const char *text = level == 0 || c.named == nullptr ? c.plain : c.named;
            EXPECT_EQ("(PROGN " + std::string(text) + ")", listing.text);
            EXPECT_TRUE(listing.is_good && listing.messages.empty()) << c.source;
        }
}

TEST_F(Decompile, OffsetsStandBehindVariablesAndInstructions)
{
    EXPECT_EQ("(PROGN (PROGN (REM Dbg=32) (SETQ (REM Dbg=64) Var_1 5) Var_1 (REM Dbg=104)))",
              listed("(PROGN (SETQ@I X@I 5) X@I)", 0, ENTIRE).text);
    EXPECT_EQ(
        "(PROGN (DEFUN Udf_1 (PROGN (IVAL (REM Dbg=72) $1 (REM Dbg=88)))) (PROGN (REM Dbg=104)"
        " (Udf_1 41)))",
        listed("(PROGN (DEFUN F (IVAL $1)) (F 41))", 0, ENTIRE).text);
}

// -- Round trips -------------------------------------------------------------------------------

// The code of a program compiled from what the decompiler makes of `words`. A listing marks formal
// arguments whose arrays are read; they get their own names.
kit::code again(const kit::code &words, decompile_mode mode = MINIMISED)
{
    constexpr std::string_view mark = "Arg_Var_";
    kit::listing listing = kit::decompiled(kit::bytes_of(words), mode);
    EXPECT_TRUE(listing.is_good) << listing.messages;
    for (ULO at = 0; (at = listing.text.find(mark, at)) != listing.text.npos; at++)
        listing.text.replace(at, listing.text.find_first_not_of('0', at + mark.size()) - at, "$");
    return kit::program(kit::squeezed(listing.text));
}

// What the compiler makes is sound. What nothing calls and a list that is one definition do not
// come back: once through, all does. Returns whether the text is a program.
bool comes_back(const std::string &source)
{
    const kit::code plain = kit::program(source), debug = kit::program(source, 1);
    if (plain.empty()) return false;
    EXPECT_TRUE(verify_bytecode(kit::bytes_of(plain)) && verify_bytecode(kit::bytes_of(debug)));
    const kit::code settled = again(plain);
    EXPECT_EQ(settled, again(settled)) << source;
    EXPECT_EQ(settled, again(again(debug, ENTIRE))) << source;
    const kit::listing untrusted =
        kit::decompiled(kit::bytes_of(plain), ENTIRE, code_origin::FOREIGN);
    if (untrusted.is_good) {
        EXPECT_EQ(untrusted.text, kit::decompiled(kit::bytes_of(plain)).text);
    }
    return true;
}

TEST_F(Decompile, OwnProgramsComeBack)
{
    int accepted = 0;
    for (const std::string &source :
         kit::own_programs({"bench/programs", "tutorial/examples", "tests/golden"}))
        accepted += comes_back(source);
    EXPECT_LT(40, accepted);
    for (const char *source :
         {"(setq s 0.) (for i 1 1 9 (setq s (+. s (/. 1. (fval i))))) s",
          "(arsetq a 1 \"x\\\\\\\"y\\n\") (arsetq a 2 nil) (cat (index a 1) (str (indices a)))",
          "(defun f (progn (defun g (iadd $1 1)) (iadd $1 (g $2)))) (f 1 2)"})
        EXPECT_EQ(kit::program(source), again(kit::program(source))) << source;
}

TEST_F(Decompile, RandomProgramsComeBack)
{
    for (unsigned seed = 0; seed < 200 && !HasFailure(); seed++)
        comes_back(kit::random_program(seed, true, "(TIME)", "(IAND 3").text());
    random_source source(7);
    for (int i = 0; i < 15000 && !HasFailure(); i++)
        comes_back(source.form(4) + " " + source.form(3));
}

// -- Hostile code ------------------------------------------------------------------------------

TEST_F(Decompile, AnyWordsGiveText)
{
    std::mt19937_64 random(3);
    const std::string letters = "UISVPTTTLGt";
    for (int i = 0; i < 30000; i++) {
        kit::code words(random() % 40);
        for (ULO &word : words) {
            const ULO dice = random() % 8, letter = ULO(letters[random() % letters.size()]);
            word = dice == 0 ? random()
                   : dice < 4
                       ? image::code(CHR(letter), strchr("LG", int(letter)) ? 48 : random() % 400)
                       : random() % 12;
        }
        if (!words.empty()) words[0] = image::code('U', 4 + random() % 8);
        const std::string_view bytes = kit::bytes_of(words);
        const auto mode = static_cast<decompile_mode>(random() % 3);
        const kit::listing listing =
            kit::decompiled(bytes.substr(0, bytes.size() - (bytes.empty() ? 0 : random() % 8)),
                            mode, static_cast<code_origin>(i % 3));
        ASSERT_TRUE(listing.text.starts_with("(PROGN "));
    }
}

// Long names and deep definitions would let a small file fill the memory.
TEST_F(Decompile, OnlyOwnCodeIsWithoutLimits)
{
    std::string deep = "(TIME)";
    for (int i = 0; i < 250; i++) deep = "(PROGN (DEFUN F " + deep + ") (F))";
    const std::string name(300, 'N');
    const kit::code nested = kit::compiled(deep), named = kit::compiled("(PROGN " + name + ")", 1);
    for (const auto origin : {code_origin::OWN, code_origin::VERIFIED, code_origin::FOREIGN}) {
        const bool is_own = origin == code_origin::OWN;
        EXPECT_EQ(is_own, kit::decompiled(kit::bytes_of(nested), ENTIRE, origin).is_good);
        EXPECT_EQ("(PROGN (PROGN " + (is_own ? name : "Var_1") + "))",
                  kit::decompiled(kit::bytes_of(named), EFFECTIVE, origin).text);
    }
}

// The code of a root image without variables and this main node.
kit::code root_of(const kit::code &main_node)
{
    kit::code words = {image::code('U', 4), 0, 0, 0};
    words.insert(words.end(), main_node.begin(), main_node.end());
    return words;
}

// What this machine does not know or has other operands for stays in the text.
TEST_F(Decompile, CodeOfAnotherMachineIsToldAndWritten)
{
    const auto call = [](ULO row) { return image::code('T', image::instruction(row, 0)); };
    const ULO beyond = isa_count + 5;
    const std::string unknown = "Isa_Cop_" + std::to_string(beyond);
    const struct {
        kit::code node;
        std::string text, told; // the instruction that is complained of
    } cases[] = {
        {{call(beyond), 2, 3, 'I', 7, 'Z'}, "(" + unknown + " 7 NIL)", "ISA COP `(" + unknown},
        {{image::code('t', 8), 1, 'Z'}, "(IsaExt_Cop_1 NIL)", "ISAext COP `(IsaExt_Cop_1"},
        {{call(ISA_IADD), 2, 0, 'I', 7}, "(IADD 7)", "ISA COP `(IADD"},
        {{call(ISA_INEG), 2, 2, 'Z', 'Z'}, "(INEG NIL (COMMENTS NIL))", "ISA COP `(INEG"},
    };
    for (const auto &c : cases) {
        const kit::listing listing =
            kit::decompiled(kit::bytes_of(root_of(c.node)), MINIMISED, code_origin::FOREIGN);
        EXPECT_EQ("(PROGN " + c.text + ")", listing.text);
        EXPECT_NE(std::string::npos, listing.messages.find(c.told + ")'")) << listing.messages;
        EXPECT_FALSE(listing.is_good);
    }
}

// Where a number lacks it is 0.
TEST_F(Decompile, ListsOfNamesMayBeDamaged)
{
    constexpr std::string_view lists = "(\xFFG\xFF)(\xFFX\xFF)(\xFF\xFE\xFF)Main";
    kit::code words = {image::code('U', 8), 0, 0, 0};
    words.resize(8);
    memcpy(&words[4], lists.data(), lists.size());
    words.push_back(image::code('T', image::instruction(0, 0)));
    const kit::listing listing =
        kit::decompiled(kit::bytes_of(words), EFFECTIVE, code_origin::VERIFIED);
    EXPECT_EQ("(PROGN (X))", listing.text);
}

// References that meet would make the text double at each step.
TEST_F(Decompile, SharedNodesAreWrittenOnce)
{
    kit::code node;
    for (int i = 0; i < 60; i++)
        node.insert(node.end(), {image::code('T', image::instruction(ISA_IADD, 0)), 2, 1});
    node.push_back('Z');
    for (const auto origin : {code_origin::OWN, code_origin::FOREIGN})
        EXPECT_GT(10000u,
                  kit::decompiled(kit::bytes_of(root_of(node)), ENTIRE, origin).text.size());
}

} // namespace

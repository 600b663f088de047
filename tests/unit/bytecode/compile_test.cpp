// Compiled words, the debug text, and what linking makes of them, word by word: another word is
// another format of stored programs. That whole images are sound is the verifier's to say.

#include "bytecode/compile.h"

#include <gtest/gtest.h>

#include "bytecode/link.h"
#include "bytecode/verify.h"
#include "frontend/isa.h"
#include "frontend/words.h"
#include "tests/kit/code.h"
#include "tests/unit/frontend/random_source.h"
#include "vm/image.h"

namespace {

using kit::code;
using Bytecode = kit::with_passes<testing::Test>;

TEST_F(Bytecode, WholeImages)
{
    EXPECT_EQ((code{0x255, 1, 0, 0, 0x54, 2, 2, 6, 0x4D4, 0, 1, 0x49, 5, 0x69, 0}),
              kit::compiled("(PROGN (SETQ@I X@I 5) X@I)"));
    EXPECT_EQ((code{0x6D5, 0, 0,    1, 1, 0x255,  1, 1, 0, 0xC054, 1,
                    0x56,  0, 0x54, 1, 1, 0x184C, 0, 1, 1, 0x49,   41}),
              kit::compiled("(PROGN (DEFUN F (IVAL $1)) (F 41))"));
}

ULO call(const char *mnemonic, ULO slot = 0)
{
    return image::code('T', image::instruction(find_word(mnemonic)->row, slot));
}

TEST_F(Bytecode, LastWordsOfNodes)
{
    const ULO ival = call("IVAL"), defun = 0x184C;
    const struct {
        const char *text;
        code node;
    } cases[] = {
        {"(LEN \"1234567\")", {call("LEN"), 1, 'S', 7, 0x37363534333231}},
        {"(LEN \"\")", {call("LEN"), 1, 'S', 0, 0}},
        {"(LEN \"\\n\\\\\")", {call("LEN"), 1, 'S', 2, 0x5C0A}},
        {"(LEN@J 2.)", {call("LEN", 1), 1, 'F', 0x4000000000000000}},
        {"(==@F NIL -1)", {call("==", 2), 2, 2, 'Z', 'I', ~ULO(0)}},
        {"(PROGN B A (ARSETQ A $2 B@F))",
         {call("PROGN"), 3, 3, 4, 5, 'V', 2, 'V', 3, call("ARSETQ"), 3, 2, 3, 'V', 1, 'f', 4}},
        {"(FOR@J I 0 1 9 I)",
         {call("FOR", 1), 5, 6, 7, 8, 9, 'V', 0, 'I', 0, 'I', 1, 'I', 9, 'V', 0}},
        // Arguments of a function pass by alias, suffix or not.
        {"(PROGN (DEFUN F (IVAL $1)) (F X@I) (F (IVAL X@I)))",
         {defun, 0, 1, 1, 'P', 0, defun, 0, 1, 1, ival, 1, 'i', 0}},
        // Variables are numbered by name and suffix, those of a definition apart.
        {"(PROGN (DEFUN F (SETQ X $9)) (OUTF $2 NIL) A@I A)",
         {call("PROGN"), 3, 3, 8, 9, call("OUTF"), 2, 3, 'V', 1, 'Z', 'i', 2, 'V', 3}},
        // A definition leaves no code; the last of a list leaves the empty string.
        {"(PROGN (DEFUN F (TIME)))", {call("PROGN"), 1, 1, 'S', 0, 0}},
    };
    for (const auto &c : cases) {
        const code words = kit::compiled(c.text);
        EXPECT_EQ(c.node, code(words.end() - SLO(c.node.size()), words.end())) << c.text;
    }
}

// No text ends the process or leaves its memory, whatever pass it is given to. Text behind the
// driver's bindings has not been checked.
TEST_F(Bytecode, GarbageIsHarmless)
{
    random_source source(41);
    for (int i = 0; i < 20000; i++) {
        const std::string text = source.garbage(14);
        std::string joined;
        join_lines(&joined, text, true);
        kit::checked(joined);
        for (const code &words :
             {kit::program(joined), kit::prepared("(PROGN (SETQ $1 " + text + ") 1)", i % 2)}) {
            if (words.empty()) continue;
            ASSERT_TRUE(verify_bytecode(kit::bytes_of(words))) << text;
            kit::passed(kit::bytes_of(words), [](CHR **linked) { kestrin_link(*linked); });
        }
    }
}

} // namespace

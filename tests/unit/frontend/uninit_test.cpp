// The initialisation analysis: tables of programs and the variables that are warned about, each
// with the function path of its warning.

#include "frontend/uninit.h"

#include <gtest/gtest.h>

#include "tests/kit/passes.h"

namespace {

const struct {
    const char *text, *warned; // "PATH NAME" of each warning, a semicolon behind each
} cases[] = {
    // Walks.
    {"A", "Main A;"},
    {"(PROGN A (SETQ A 1) A)", "Main A;"},
    {"(PROGN (ARSETQ A 0 1) (INDEX A 0) (ALINDEX A 1))", ""},
    // Assignments.
    {"(SETQ A A)", "Main A;"},
    {"(ARSETQ A A A)", "Main A;"},
    {"(ARSETQ A B (SETQ B 1))", "Main B;"},
    {"(PROGN (SETQ A (SETQ B 1)) A B)", ""},
    // Branches.
    {"(PROGN (IF C (SETQ A 1) (SETQ A 2)) A)", "Main C;"},
    {"(PROGN (IF (SETQ A 1) A A) A)", ""},
    // What one branch assigns the other does not know.
    {"(IF 1 (SETQ A 1) A)", "Main A;"},
    {"(PROGN (IF 1 (PROGN (SETQ A 1) (SETQ B 1)) (PROGN (SETQ B 1) (SETQ C 1))) A B C)",
     "Main A;Main C;"},
    {"(PROGN (IF 1 (IF 2 (SETQ A 1) (SETQ A 2)) (SETQ A 3)) A)", ""},
    // Loops.
    {"(PROGN (WHILE 1 (SETQ A 1)) A)", "Main A;"},
    {"(PROGN (WHILE (SETQ A 1) B) A)", "Main B;"},
    {"(PROGN (AND (SETQ A 1) (SETQ B 1)) A B)", "Main B;"},
    {"(PROGN (|| (SETQ A 1) (PROGN (SETQ B 1) B)) A B)", "Main B;"},
    {"(PROGN (FOR I 0 1 9 (SETQ A I)) I A)", "Main A;"},
    // The end is read first, then the body, then the increment.
    {"(FOR I 0 A (SETQ B 1) (PROGN B (SETQ A 1)))", ""},
    {"(PROGN (FOR I (SETQ A 1) (SETQ B 1) (SETQ C 1) 0) A B C)", "Main B;Main C;"},
    // Definitions.
    {"(DEFUN F A)", "Main:F A;"},
    {"(PROGN (DEFUN F (SETQ A 1)) A)", "Main A;"},
    {"(DEFUN F (PROGN B (DEFUN G (PROGN A)) C))", "Main:F B;Main:F:G A;Main:F C;"},
};

std::string warnings(std::string warned)
{
    std::string lines;
    for (auto end = warned.find(';'); end != warned.npos; end = warned.find(';')) {
        const auto blank = warned.find(' ');
        lines += "*WARNING: In function `" + warned.substr(0, blank) + "': variable/array `" +
                 warned.substr(blank + 1, end - blank - 1) +
                 "' might be uninitialized before use!\n";
        warned.erase(0, end + 1);
    }
    return lines;
}

using Uninitialised = kit::with_passes<testing::Test>;

TEST_F(Uninitialised, VariablesAreWarnedAbout)
{
    for (const auto &c : cases)
        EXPECT_EQ(kst_uninit_check("Main", kit::read(c.text)), warnings(c.warned)) << c.text;
}

} // namespace

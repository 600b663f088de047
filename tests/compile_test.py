#!/usr/bin/env python3
"""Faults that the compiler finds: each row does not compile, and the same row mended does.

  compile_test.py --compiler c++
"""
import unittest

from kit.scripts import OPTIONS, ROOT, main, run

UNIT = """#include "driver/session.h"
#include "frontend/syntax.h"
#include "vm/handler.h"
int narrow(int a);
SLO whole(SLO a);
void row(const session *s, message_of<ULO, const CHR *> size) { (void)s; (void)size; %s; }
"""
ROWS = (  # what is refused, its mended form
    ('say(message::PROGRAM_SIZE, ULO(1))', 'say(message::PROGRAM_SIZE, ULO(1), "")'),
    ('say(message::PROGRAM_SIZE, 1, "")', 'say(size, ULO(1), "")'),
    ('say(message::PROGRAM_SIZE, "", ULO(1))', 'tell(s, message::PROGRAM_SIZE, ULO(1), "")'),
    ('say(size, 1u, "")', 'tell(s, size, ULO(1), "")'),
    ('message which = message::NO_CODE; say(which)', 'say(message::NO_CODE)'),
    ('tell(s, message::NO_CODE, s->file())', 'tell(s, message::READING_SOURCE, s->file())'),
    ('tell(s, message::READING_SOURCE, std::string_view("f"))', 'tell(s, message::NO_CODE)'),
    ('die(message::SYNTAX_ERROR, 5, "text")', 'die(message::SYNTAX_ERROR, 5u, "text")'),
    ('syntax_error<syntax::UNDEFINED_NAME>("a", "b")',
     'syntax_error<syntax::UNDEFINED_NAME>("a", "b", "c")'),
    ('numeric<narrow>::run(0, 0)', 'numeric<whole>::run(0, 0)'),
)


class Rows(unittest.TestCase):
    def compiles(self, statement):
        command = [OPTIONS.compiler, "-std=c++20", "-I", ROOT, "-I", f"{ROOT}/extension/include",
                   "-fsyntax-only", "-x", "c++", "-"]
        return run(*command, text=UNIT % statement)[0] == 0

    def test_faults_do_not_compile(self):
        for refused, mended in ROWS:
            with self.subTest(refused):
                self.assertTrue(self.compiles(mended), mended)
                self.assertFalse(self.compiles(refused))


if __name__ == "__main__":
    main(__doc__, compiler={"default": "c++"})

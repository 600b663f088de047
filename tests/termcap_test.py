#!/usr/bin/env python3
"""The terminals that are installed: kestrin has nothing to warn of, and so does not wait.

  termcap_test.py --kestrin PATH
"""
import os
import re
import subprocess
import tempfile
import unittest

from kit.scripts import OPTIONS, ROOT, main

TERMCAP = os.path.join(ROOT, "packaging", "termcap")
COMMON = ["xterm", "xterm-256color", "screen", "screen-256color", "tmux", "tmux-256color", "linux", "vt100"]


def settings(terminal):
    """What kestrin tells of its terminal, up to its settings, and those settings."""
    with tempfile.NamedTemporaryFile("w", suffix=".kst") as program:
        program.write("1")
        program.flush()
        done = subprocess.run([OPTIONS.kestrin, program.name], stdin=subprocess.DEVNULL, check=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True,
                              env={"TERM": terminal, "TERMCAP": TERMCAP})
    warnings, _, told = done.stdout.decode().partition("Current termcap settings:\n")
    return warnings, told.partition("Code print switchers")[0]


class Termcap(unittest.TestCase):
    def test_nothing_is_missing(self):
        with open(TERMCAP, encoding="utf-8") as f:
            names = re.findall(r"^([^#\s|]+)\|", f.read(), re.M)
        self.assertEqual([name for name in COMMON if name not in names], [])
        for name in names:
            with self.subTest(name):
                self.assertEqual(settings(name)[0], "")

    def test_strings_are_those_of_terminfo(self):
        for name in COMMON:
            told = settings(name)[1]
            self.assertIn("CLRSCR_TERM=`\\e[H\\e[", told)  # tput clears more than the screen
            for shown, capability in (("BOLD", "bold"), ("REVERSE", "rev"), ("HIDECURSOR", "civis")):
                with self.subTest(name=name, shown=shown):
                    done = subprocess.run(["tput", "-T", name, capability], stdout=subprocess.PIPE, check=False)
                    wanted = re.sub(r"\$<\d+>", "", done.stdout.decode()).replace("\033", "\\e")
                    self.assertIn("%s_TERM=`%s'" % (shown, wanted), told)

    def test_a_terminal_that_is_not_there_is_told(self):
        self.assertIn("Cannot find terminal section", settings("nosuch")[0])


if __name__ == "__main__":
    main(__doc__, "kestrin")

#!/usr/bin/env python3
"""kst lsp with real clients: Emacs with eglot, vim with ALE.

  editors_test.py --kst PATH [--all]    one that is missing is left out, but with --all a failure
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
OPTIONS = argparse.Namespace()
PROGRAM = """# Twice as much: \U0001d4b3é.
(defun twice
  (progn  (* 2 $1)))
(setq a "\U0001d4b3") (setq b (twice 3))
(lost b)
"""
EMACS = """faults: (5:kst: undefined function name `LOST')
mended: nil
definition: 2 7
renamed: 3 0
completed: (double b)
hover: (defun double

Twice as much: \U0001d4b3é.
laid out: "# Twice as much: \U0001d4b3é.
(defun double
  (progn (* 2 $1)))
(setq a \\"\U0001d4b3\\")
(setq b (double 3))
(double b)
(double b)
"
"""
VIM = """faults: ['5:1:undefined function name `LOST''']
mended: []
definition: [2, 8]
hover: ['(defun twice', '', 'Twice as much: \U0001d4b3é.']
"""


def succeeds(*words):
    return shutil.which(words[0]) and not subprocess.run(words, capture_output=True, stdin=subprocess.DEVNULL, check=False).returncode


def has_eglot():
    elpa = "/usr/share/emacs/site-lisp/elpa"
    return succeeds("emacs", "-Q", "--batch", "--eval", '(let ((default-directory "%s/")) (when (file-directory-p default-directory)'
                    " (normal-top-level-add-subdirs-to-load-path)))" % elpa, "-l", "eglot")


class Editors(unittest.TestCase):
    def run_in_folder(self, words, **environment):
        """What a session prints, and the file that it tells of itself."""
        with tempfile.TemporaryDirectory() as folder:
            with open(os.path.join(folder, "a.kst"), "w", encoding="utf-8") as file:
                file.write(PROGRAM)
            done = subprocess.run(words, cwd=folder, capture_output=True, timeout=200, check=False, stdin=subprocess.DEVNULL,
                                  env={**os.environ, "LC_ALL": "C.UTF-8", "HOME": folder, **environment})
            self.assertEqual(done.returncode, 0, done)
            told = os.path.join(folder, "told")
            if not os.path.exists(told):
                return done.stdout.decode()
            with open(told, encoding="utf-8") as file:
                return file.read()

    def want(self, is_there, what):
        if not is_there and OPTIONS.all:
            self.fail(what + " is missing")
        if not is_there:
            self.skipTest(what + " is missing")

    def test_emacs(self):
        self.want(has_eglot(), "emacs-nox or elpa-eglot")
        told = self.run_in_folder(["emacs", "-Q", "--batch", "-l", os.path.join(HERE, "session.el"), "a.kst", OPTIONS.kst])
        self.assertEqual(told, EMACS)

    def test_vim(self):
        self.want(succeeds("vim", "-N", "-es", "-u", "NONE", "-c", "packadd ale", "-c", "if !exists(':ALELint') | cquit | endif",
                           "-c", "qall!"), "vim or vim-ale")
        self.assertEqual(self.run_in_folder(["vim", "-N", "-es", "-u", "NONE", "-S", os.path.join(HERE, "session.vim")],
                                            KST=OPTIONS.kst, KST_FILE="a.kst", KST_TOLD="told"), VIM)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kst", required=True)
    parser.add_argument("--all", action="store_true")
    options, rest = parser.parse_known_args(namespace=OPTIONS)
    options.kst = os.path.abspath(options.kst)
    unittest.main(argv=sys.argv[:1] + rest)


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""kst lsp with real clients: Emacs with eglot, vim with ALE.

  editors_test.py --kst PATH [--all]    one that is missing is left out, but with --all a failure
"""
import os
import shutil
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.append(os.path.dirname(HERE))
from kit.scripts import OPTIONS, Folder, main, run, want  # noqa: E402

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
    return shutil.which(words[0]) and run(*words, stdin=subprocess.DEVNULL)[0] == 0


def has_eglot():
    elpa = "/usr/share/emacs/site-lisp/elpa"
    return succeeds("emacs", "-Q", "--batch", "--eval", '(let ((default-directory "%s/")) (when (file-directory-p default-directory)'
                    " (normal-top-level-add-subdirs-to-load-path)))" % elpa, "-l", "eglot")


class Editors(Folder):
    FILES = {"a.kst": PROGRAM}

    def run_in_folder(self, *words, **environment):
        """What a session prints."""
        status, out, err = run(*words, cwd=self.folder, timeout=200, stdin=subprocess.DEVNULL,
                               env={**os.environ, "LC_ALL": "C.UTF-8", "HOME": self.folder, **environment})
        self.assertEqual(status, 0, out + err)
        return out

    def test_emacs(self):
        want(self, has_eglot(), "emacs-nox or elpa-eglot")
        told = self.run_in_folder("emacs", "-Q", "--batch", "-l", os.path.join(HERE, "session.el"), "a.kst", OPTIONS.kst)
        self.assertEqual(told, EMACS)

    def test_vim(self):
        want(self, succeeds("vim", "-N", "-es", "-u", "NONE", "-c", "packadd ale", "-c",
                            "if !exists(':ALELint') | cquit | endif", "-c", "qall!"), "vim or vim-ale")
        self.run_in_folder("vim", "-N", "-es", "-u", "NONE", "-S", os.path.join(HERE, "session.vim"),
                           KST=OPTIONS.kst, KST_FILE="a.kst", KST_TOLD="told")
        self.assertEqual(self.read("told"), VIM)


if __name__ == "__main__":
    main(__doc__, "kst", all={"action": "store_true"})

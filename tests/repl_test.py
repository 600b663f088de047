#!/usr/bin/env python3
"""kst repl through a pipe, and in a terminal as a person uses it (tmux).

  repl_test.py --kst PATH
"""
import os
import re
import stat
import subprocess
import time

from kit.scripts import OPTIONS, Folder, main

# Sessions through a pipe: what is entered, what is printed, and the first lines of the faults.
SESSIONS = {
    "values are printed as a program's": (
        '5\n1.5\n"a b"\nnil\n(outf "%s" "x")\n# nothing\n\n(progn\n 1 # one\n 2)\n("a" "b")\n1 2\n',
        "5\n1.5000000000000000E+00\na b\n`NIL'\nxx\n2\nab\n2\n", []),
    "variables of any kind live on": (
        '(setq a 1)\n(setq a (cat a "x"))\n(arsetq v 3 a)\n(arsetq v 200 nil)\n(arsetq v 0 4)\n(setq w v)\n(arsetq v 3 0)\n'
        "(index w 3)\n(indices w)\na\n(for i 1 1 3 (setq s i))\n(+ i s)\n",
        "1\n1x\n1x\n`NIL'\n4\n4\n0\n1x\n256\n1x\n0\n7\n", []),
    "what an answer gives away stays": ('(setq a "text")\na\na\n(cat a (setq b a))\nb\na\n',
                                        "text\ntext\ntext\ntexttext\ntext\ntext\n", []),
    "functions live on and are replaced": (
        "(defun f (* $1 2))\n(defun g (+ 1 (f $1)))\n(g 3)\n(defun f (* $1 10))\n(g 3)\n"
        "(defun h 1) (defun h2 (progn 2))\n(defun h2 (progn 5))\n(defun f (+ (h2) $1)) (f 1)\n(g 1)\n"
        "(progn (defun k (progn 9)) (k))\n(k)\n",
        "7\n31\n6\n7\n9\n9\n", ["standard input:6:10: "]),
    "a function that others could not call is refused": (
        "(defun f (* $1 2))\n(defun g (f $1))\n(defun f (+ $1 $2))\n(defun f (g $1))\n(g 4)\n",
        "8\n", ["standard input:2:10: 2 arguments are required instead of 1", "The functions stay as they were.",
                "standard input:4:10: undefined function name `G'", "The functions stay as they were."]),
    "faults lose nothing": (
        '(setq a 1)\n(nosuch\n  a)\n(progn (setq a 2) (/ a 0) (setq a 3))\na\n(setq $1 1)\n$1\n"x\n)\n(defun f (/ 1 $1))\n'
        "(f 0)\nz\n(rise_error)\na\n",
        "1\n2\n2\n", ["standard input:2:1: undefined function name `NOSUCH'",
                      "standard input:4:19: runtime error 1: Integer division by zero!",
                      "standard input:6:7: invalid variable name `$1'",
                      "standard input: `$1' and its kind are the words of a program: there are none",
                      "standard input:8:1: `\"' opens a string that its line does not close",
                      "standard input:9:1: this `)' is one too many",
                      "standard input: there is no code in it",
                      "standard input:10:10: runtime error 1: Integer division by zero!",
                      "standard input:11:1: `F' is called here",
                      "standard input:12:1: runtime error 10: Variable_getval: variable was not initialized "
                      "before use!",
                      "standard input:13:1: runtime error 0: Unknown error!"]),
    "an endless recursion is an error": (
        "(defun f (f))\n(f)\n1\n", "1\n",
        ["standard input:1:10: runtime error 0: The recursion is too deep.",
         "standard input:1:10: `F' is called here (16 times)"]),
    "mapcar knows the functions of the moment": (
        '(defun f (progn 1))\n(setq m (mapcar "(f)")) (index m 1)\n(defun f (progn 2)) (defun g (progn 3))\n'
        '(setq m (mapcar "(+ (f) (g))")) (index m 1)\n', "1\n5\n", []),
    "break and exit end a form": ("(while 1 (break))\n(progn (exit) 1)\n(break)\n2\n", "0\n\n\n2\n", []),
    "exit alone leaves": ("1\n(exit)\n2\n", "1\n", []),
    "a form reads the lines that follow": ('(setq line (accept ""))\nhello\n(len line)\n', "hello\n\n6\n", []),
    "commands": (
        "(setq a 1)\n(defun f (* $1 2))\n:type (f 2)\n:type 2.5\n:type (cat a \"bc\")\n:type nil\n(arsetq v 0 7)\n"
        "(arsetq v 5 7)\n:type (alindex v 1)\n:help  alltrim\n:help nosuchname\n:nosuch\n:code (+ a\n 1)\n:code f\n"
        ":time\n:quit\n3\n", None, ["the manual has no `nosuchname'", "no such command: `:nosuch'; :help lists them"]),
    "an unfinished form at the end": ("1\n(foo 1", "1\n", ["standard input:2:7: `)' is missing: "]),
}
SAVED = """(setq a 5)
(defun f # doubles
  (* $1 2))
(defun g (+ 1 (f $1))) (setq a (g a))
(/ 1 0)
(defun f (* $1 3)) (g a)
:save saved.kst
"""


class Pipe(Folder):
    def enter(self, text):
        return self.kst("repl", text=text, timeout=60)

    def test_sessions(self):
        for name, (text, printed, faults) in SESSIONS.items():
            with self.subTest(name):
                status, out, err = self.enter(text)
                told = [line for line in err.split("\n") if line and not line.startswith("    ")]
                self.assertEqual(len([t for t, w in zip(told, faults) if t.startswith(w)]), len(faults), err)
                self.assertEqual(status, 1 if faults else 0, err)
                if printed is not None:
                    self.assertEqual(out, printed)

    def test_commands_tell(self):
        out = self.enter(SESSIONS["commands"][0])[1]
        for piece in ["integer\nfloat\nstring of 3 bytes\nnil\n", "array of ", "member 0: integer\n",
                      "ALLTRIM", "\n(+ A 1)\n", "(DEFUN F (* $1 2))"]:
            self.assertIn(piece, out)
        self.assertFalse(out.endswith("3\n"))

    def test_a_saved_session_is_a_program(self):
        self.assertEqual(self.enter(SAVED)[1], "5\n11\n34\n")
        saved = self.read("saved.kst")
        self.assertNotIn("doubles", saved)
        self.assertNotIn("/ 1 0", saved)
        self.assertEqual(self.kst("run", "saved.kst"), (0, "49\n", ""))
        self.assertEqual(self.enter("(setq a 5)\n:save -\n")[1], "5\n(setq a 5)\n")
        self.assertIn("can't write `/nosuch/x'", self.enter(":save /nosuch/x\n")[2])


class Terminal(Folder):
    """One tmux server with a session of kst in it, gone afterwards."""

    def setUp(self):
        super().setUp()
        self.history = self.path("data/kst/history")
        self.tmux("new-session", "-d", "-x", "80", "-y", "50", "env", "-i", "HOME=" + self.folder,
                  "XDG_DATA_HOME=" + self.path("data"), "TERM=screen", "PATH=/usr/bin:/bin",
                  "LC_ALL=C.UTF-8", "ASAN_OPTIONS=detect_leaks=0",  # the editor's own
                  "sh", "-c", "trap : INT; while :; do '%s' repl; echo ended $?; read x; done" % OPTIONS.kst)
        self.addCleanup(self.tmux, "kill-server")
        self.expect(r"Ctrl-D leaves.*\nkst> $")

    def tmux(self, *words):
        done = subprocess.run(["tmux", "-S", self.path("tmux"), "-f", "/dev/null", *words],
                              check=True, stdout=subprocess.PIPE)
        return done.stdout.decode()

    def screen(self):
        return "\n".join(line.rstrip() for line in self.tmux("capture-pane", "-p").rstrip().split("\n"))

    def expect(self, pattern):
        end = time.monotonic() + 20
        while True:
            # A prompt has lost its blank: nothing stands behind it.
            seen = re.sub(r"(kst>|\.\.\.>)$", r"\1 ", self.screen())
            if re.search(pattern, seen):
                return
            if time.monotonic() > end:
                self.fail("waiting for %r\n%s" % (pattern, seen))
            time.sleep(0.02)

    def type(self, *keys):
        self.tmux("send-keys", *keys)

    def enter(self, text, expected):
        self.type(text, "Enter")
        self.expect(expected)

    def test_editing(self):
        self.enter("(setq alphabet 7)", r"\n7\nkst> $")
        self.type("alphab", "Tab")
        self.expect(r"\nkst> alphabet$")
        self.enter("", r"alphabet\n7\nkst> $")
        self.type("(str_", "Tab")
        self.expect(r"\nstr_dump  str_fmt  str_raw  str_unraw\nkst> \(str_$")
        self.type("C-u", "(STRT", "Tab")
        self.expect(r"\nkst> \(STRTRAN$")
        self.type("C-u", ":he", "Tab", "len", "Enter")
        self.expect(r"kst> :help len\nLEN  [^$]*\nkst> $")

    def test_an_unfinished_form(self):
        self.enter("(defun square", r"\n\.\.\.> $")
        self.enter("(* $1 $1))", r"\nkst> $")
        self.enter("(square 9)", r"\n81\nkst> $")
        self.enter("(square", r"\n\.\.\.> $")
        self.type("C-c")
        self.expect(r"\nkst> $")
        self.type("Up", "Up", "Up")
        self.expect(r"\nkst> \(defun square \(\* \$1 \$1\)\)$")
        self.type("C-c")
        self.expect(r"\)\)(\^C)?\n+kst> $")
        self.enter("(nosuch)", r"repl:5:1: undefined function name `NOSUCH'\n    \(nosuch\)\n    \^\nkst> $")

    def test_interrupts_and_history(self):
        self.enter("(setq a 5)", r"\n5\nkst> $")
        for endless in ["(while 1 (setq a 6))", '(while 1 (setq m (mapcar "(+ 1 2)")))',
                        "(while 1 (if 1 (while 1 (break)) 0))", '(accept "name? ")', '(accept "")',
                        "(scan_console 1)"]:
            self.type("C-l", endless, "Enter")
            time.sleep(0.2)
            self.type("C-c")
            self.expect(r"interrupted\nkst> $")
        self.enter("a", r"\n6\nkst> $")
        self.type("(forgotten", "C-c")
        self.expect(r"\nkst> $")
        self.type("C-d")
        self.expect(r"ended 0$")
        self.assertEqual(stat.S_IMODE(os.stat(self.history).st_mode), 0o600)
        self.assertEqual(stat.S_IMODE(os.stat(os.path.dirname(self.history)).st_mode), 0o700)
        lines = self.read(self.history).split("\n")
        self.assertEqual((lines[0], lines[-2:]), ("(setq a 5)", ["a", ""]))
        self.type("Enter")
        self.expect(r"\nkst> $")
        self.type("C-r", "setq a 5")
        self.expect(r"setq a 5")
        self.type("Enter")
        self.expect(r"\n5\nkst> $")

    def test_long_text_goes_through_the_pager_of_a_terminal(self):
        for pager, words, shown in [("sed s/^/paged:/", "doc", r"paged:chapter or section[^\n]*\n0$"),
                                    ("sed s/^/paged:/", "doc | cat", r"\nchapter or section[^\n]*\n0$"),
                                    ("sed s/^/paged:/", "doc 7.3", r"(?s)^7.3 (?!.*paged)"),
                                    ("no-such-pager", "doc", r"\nchapter or section[^\n]*\n0$"),
                                    ("head -1", "doc", r"^\w+\n0$")]:
            self.tmux("respawn-pane", "-k", "PAGER='%s'; export PAGER; clear; '%s' %s; echo $?; read x"
                      % (pager, OPTIONS.kst, words))
            self.expect(shown)


if __name__ == "__main__":
    main(__doc__, "kst")

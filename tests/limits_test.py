#!/usr/bin/env python3
"""kst run within limits: each of them is met by a program, and told in one line.

  limits_test.py --kst PATH
"""
import os
import pty
import subprocess
import termios
import time

from kit.scripts import OPTIONS, Folder, is_sanitized, main

ENVIRONMENT = {"TERM": "dumb", "TERMCAP": "dumb:co#80:li#24:", "SECRET": "known", "ASAN_OPTIONS": "detect_leaks=0"}
# Words of the command, the program, what it prints and the line that is told; "" for none. A folder
# with a file `known' is the current one.
CASES = [
    (["--limit", "time=0.3"], '(outf "%s" "begun\\n") (while 1 1)', "begun\n", "took more than 0.3 s"),
    (["--limit", "time=0.3"], '(while 1 (mapcar "(while 1 1)"))', "", "took more than 0.3 s"),
    (["--limit", "time=0.3"], '(len (replicate "x" 1000)) (defun f (if (< $1 2) 1 (+ (f (- $1 1)) (f (- $1 2)))))'
     ' (f 99)', "", "took more than 0.3 s"),
    (["--limit", "time=0.3"], '(accept "") (outf "%s" "no")', "", "took more than 0.3 s"),
    (["--limit", "time=9,memory=64M"], '(len (replicate "x" 60000000))', "60000000\n", ""),
    (["--limit", "time=9,memory=64M"], '(len (replicate "x" 70000000))', "", "took more than 64M bytes of memory"),
    (["--limit", "memory=9M,time=9"], '(defun f (+ 1 (f $1))) (f 1)', "", "took more than 9M bytes of memory"),
    (["--limit", "memory=900000G"], '(defun f (if (> $1 0) (+ 1 (f (- $1 1))) 0)) (f 9000)', "9000\n", ""),
    (["--limit", "memory=9M"], '(for i 0 1 3000000 (setq a (cat (str i) ""))) a', "3000000\n", ""),
    (["--limit", "output=1K"], '(setq f (file_create "big")) (file_write f (replicate "x" 2000))', "1024\n", ""),
    (["--limit", "output=1K"], '(setq f (file_create "big")) (file_write f (replicate "x" 1024))'
     ' (file_write f "y")', "-1\n", "wrote more than 1K bytes to a file"),
    (["--no-files"], '(file_open "known")', "-1\n", "was refused: opening a file"),
    (["--no-files"], '(file_close 2) (file_open "known")', "-1\n", "was refused: opening a file"),
    (["--no-files"], '(file_remove "known")', "-1\n", "was refused: removing a file"),
    (["--no-files"], '(setq r (mapcar "(file_create \\"known\\")")) (index r 1)', "-1\n", "was refused: opening a file"),
    (["--no-files"], '(reinit_terminal "xterm") (file_open "x") (user_io 0 "PWD")', "PWD\n",
     "was refused: looking for a file, opening a file, the name of its folder"),
    (["--no-files"], '(file_read 7 10) (file_write 1 "out") (getenv "SECRET")', "outknown\n", ""),
    (["--no-files"], '(setq n 0) (for i 1 1 100000 (setq n (+ n i))) (outf "%ld " n) (len (time))',
     "5000050000 24\n", ""),
    (["--no-env"], '(getenv "SECRET")', "\n", "was refused: the environment"),
    (["--no-env"], '(user_io 0 " GetEnv  SECRET")', "\n", "was refused: the environment"),
    (["--no-env"], '(at "known" (file_read (file_open "/proc/self/environ") 4096))', "0\n", ""),
    (["--no-env"], '(file_open "none")', "-1\n", ""),
    (["--no-env", "--no-files", "--limit", "time=9,memory=1G"], '(+ 1 2)', "3\n", ""),
]


class Limits(Folder):
    FILES = {"known": "known"}

    def test_each_limit_is_told_in_one_line(self):
        sanitized = is_sanitized(OPTIONS.kst)
        for words, program, out, told in CASES:
            if sanitized and "memory" in "".join(words):
                continue # the sanitizer's own memory counts
            with self.subTest(words=words, program=program), open(self.path("known"), "rb") as inherited:
                reader, writer = os.pipe()
                begin = time.monotonic()
                done = subprocess.run([OPTIONS.kst, "run", *words, "-e", program], cwd=self.folder, check=False,
                                      env=ENVIRONMENT, stdin=reader, stdout=subprocess.PIPE,
                                      stderr=subprocess.PIPE, pass_fds=[inherited.fileno()], timeout=50)
                os.close(reader)
                os.close(writer)
                line = "kst run: the program %s\n" % told if told else ""
                self.assertEqual((done.stdout.decode(), done.stderr.decode()), (out, line))
                self.assertEqual(done.returncode, 1 if told else 0, done.stderr)
                if "time=0.3" in words:
                    self.assertGreaterEqual(time.monotonic() - begin, 0.3)
        self.assertTrue(os.path.exists(self.path("known")))

    def test_what_stood_in_a_file_is_not_counted(self):
        self.write("log", 2000 * "x")
        for text, told in (("hello", ""), (2000 * "y", "more than 1K bytes to a file")):
            with open(self.path("log"), "ab") as log:
                done = subprocess.run([OPTIONS.kst, "run", "--limit", "output=1K", "-e", '(outf "%s" $1)', text],
                                      stdout=log, stderr=subprocess.PIPE, text=True, check=False, timeout=50)
            self.assertEqual((done.returncode, told in done.stderr), (1 if told else 0, True), done.stderr)
        self.assertEqual(os.path.getsize(self.path("log")), 2000 + len("hellohello\n") + 1024)

    def test_a_terminal_is_refused_or_given_back(self):
        for words, told in ((["--no-files", "-e", "(scan_console 1000)"], "was refused: the keys of a terminal"),
                            (["--limit", "time=0.3", "-e", "(scan_console 1)"], "took more than 0.3 s")):
            master, terminal = pty.openpty()
            before = termios.tcgetattr(terminal)
            done = subprocess.run([OPTIONS.kst, "run", *words], env=ENVIRONMENT, stdin=terminal, stdout=terminal,
                                  stderr=terminal, check=False, start_new_session=True, timeout=50)
            said = os.read(master, 10000).decode()
            self.assertEqual(done.returncode, 1, said)
            self.assertIn("kst run: the program %s\r\n" % told, said)
            self.assertEqual(termios.tcgetattr(terminal), before)
            os.close(master)
            os.close(terminal)

    def test_an_error_is_told_with_its_place_in_a_profile(self):
        self.write("set.cfg", "(defun over\n  (/ 1 $1))\n")
        err = self.kst("run", "--no-files", "--cfg", "set.cfg", "-e", "(over 0)", env=ENVIRONMENT)[2]
        self.assertRegex(err, r"^set\.cfg:2:3: runtime error 1.*\n.*\n.*\n-e:1:1: `OVER' is called here\n$")


if __name__ == "__main__":
    main(__doc__, "kst")

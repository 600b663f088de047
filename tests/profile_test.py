#!/usr/bin/env python3
"""kst profile and kst trace: programs do what they do without, and what is told of them adds up.

  profile_test.py --kst PATH [--programs N]
"""
import os
import re
import signal
import subprocess
import tempfile
import time
import unittest
from collections import Counter

from kit.scripts import OPTIONS, ROOT, Folder, main
from native_programs import Program, render

BENCH = os.path.join(ROOT, "bench", "programs")
FLAMES = "/usr/share/perl5/Devel/NYTProf/flamegraph.pl"

FIB = "(defun fib (if (< $1 2) $1\n  (+ (fib (- $1 1))\n     (fib (- $1 2)))))\n(outf \"%ld\\n\" (fib $1))\n"
# What costs time stands in BUSY, which A alone calls.
SHARES = """(defun busy (progn
  (setq i 0)
  (while (< i $1)
    (setq i (+ i 1)))
  i))
(defun a (+ 1 (busy $1)))
(for k 1 1 3
  (setq s (a $1)))
s
"""
TRACED = """(defun half (fdiv $1 2))
(defun join (cat $1
  (replicate "ab" $2)))
(defun fib (if (< $1 2) $1 (+ (fib (- $1 1)) (fib (- $1 2)))))
(defun list (progn (arsetq z 0 1) (arsetq z $1 2) z))
(defun out (break))
(defun leave (if $1 (exit) (half "x")))
(half 3.)
(join "a\\n\\"" 30)
(mapcar "(progn (defun own (+ $1 1)) (own 1))")
(fib 2) (list 3) (out)
(leave 1)
"""
TRACES = [
    ([], """t:8: (HALF 3.0) = 1.5
t:9: (JOIN "a\\n\\"" 30) = "a\\n\\"ababababababababababababababababababa"...
t:11: (FIB 2)
t:4:   (FIB 1) = 1
t:4:   (FIB 0) = 0
t:11: (FIB 2) = 1
t:11: (LIST 3) = [128 places]
t:11: (OUT) = ""
t:12: (LEAVE 1) ends by EXIT
"""),
    (["--depth", "1", "--calls", "2", "--only", "fib,LIST,Out"], """t:11: (FIB 2) = 1
t:11: (LIST 3) = [128 places]
kst trace: 2 calls deeper than 1 are left out (--depth)
kst trace: 1 calls behind the first 2 are left out (--calls)
"""),
]


class Run:
    """A run of kst, and what its report and its folded stacks say."""

    def __init__(self, verb, path, *words, options=(), native="1", limit=60):
        with tempfile.TemporaryDirectory() as folder:
            report, folded = os.path.join(folder, "report"), os.path.join(folder, "folded")
            if verb == "profile":
                options = ["--lines", "1000000", "--folded", folded, *options]
            if verb != "run":
                options = ["-o", report, *options]
            done = subprocess.run([OPTIONS.kst, verb, *options, path, *words], capture_output=True, check=False,
                                  stdin=subprocess.DEVNULL, timeout=limit,
                                  env={**os.environ, "TERM": "vt100", "KESTRIN_NATIVE": native})
            self.outcome = done.returncode, self.plain(done.stdout), self.plain(done.stderr)
            self.report, self.folded = self.text_of(report), self.text_of(folded)

    @staticmethod
    def plain(text):
        return re.sub(rb"ID=\d+", b"ID=", text.replace(b"-NAN", b"NAN"))

    @staticmethod
    def text_of(path):
        if not os.path.exists(path):
            return ""
        with open(path, encoding="utf-8", errors="replace") as f:
            return f.read()

    def parts(self):
        return self.report.split("\n\n")

    def whole(self):
        return microseconds(re.match(r"kst profile: ([\d.]+) ms", self.report)[1])

    def functions(self):
        """{name and place: (calls, own, whole)}"""
        rows = (line.split(None, 5) for line in self.parts()[1].splitlines()[1:])
        return {r[5]: (int(r[0]), microseconds(r[1]), microseconds(r[3])) for r in rows}

    def lines(self):
        rows = (line.split(None, 4) for line in self.parts()[2].splitlines()[1:])
        return [(microseconds(r[0]), microseconds(r[2]), r[4]) for r in rows]

    def calls(self):
        return {name: calls for name, (calls, _, _) in self.functions().items()}


def microseconds(text):
    return round(float(text) * 1000)


class Watched(Folder):
    def program(self, text):
        return self.write("t", text)

    def check_sums(self, run):
        whole = run.whole()
        self.assertEqual(sum(own for _, own, _ in run.functions().values()), whole, run.report)
        self.assertEqual(sum(own for own, _, _ in run.lines()), whole, run.report)
        self.assertEqual(sum(int(line.rsplit(" ", 1)[1]) for line in run.folded.splitlines()), whole)
        for _, own, in_all in run.functions().values():
            self.assertLessEqual(own, in_all)
            self.assertLessEqual(in_all, whole)
        self.assertTrue(all(line.startswith("main") for line in run.folded.splitlines()))

    def test_calls_are_exact(self):
        path = self.program(FIB)
        for native in "012":
            run = Run("profile", path, "20", native=native)
            self.assertEqual(run.outcome, Run("run", path, "20").outcome)
            self.assertEqual(run.calls(), {"main             " + path: 1, "FIB              %s:1" % path: 21891})

    def test_programs_go_on_as_they_do(self):
        for name, size in (("fib", 22), ("sieve", 200000), ("sort", 20000), ("nbody", 5000), ("tokens", 100),
                           ("queens", 8), ("tree", 100), ("eval", 2000), ("ack", 6), ("format", 1000)):
            path = os.path.join(BENCH, name + ".kst")
            with self.subTest(name=name):
                wanted = Run("run", path, str(size)).outcome
                runs = [Run("profile", path, str(size), native=native) for native in "012"]
                for run in runs:
                    self.assertEqual(run.outcome, wanted)
                    self.check_sums(run)
                    self.assertEqual(run.calls(), runs[0].calls())

    def test_random_programs(self):
        for seed in range(OPTIONS.programs):
            path = self.program(render(Program(seed).whole()))
            with self.subTest(seed=seed):
                wanted = Run("run", path).outcome
                runs = [Run("profile", path, native=native) for native in "012"]
                for run in runs:
                    self.assertEqual(run.outcome, wanted)
                    self.check_sums(run)
                    self.assertEqual(run.calls(), runs[0].calls())
                traced = Run("trace", path, options=["--depth", "1000000", "--calls", "1000000000"])
                self.assertEqual(traced.outcome, wanted)
                names = re.findall(r"^\S+: +\((\S+?)(?=[ )]).*?(?: = | ends )", traced.report, re.M)
                calls = {key.split()[0]: n for key, n in runs[0].calls().items() if ":" in key}
                self.assertEqual(Counter(names), calls)

    def test_time_is_told_where_it_goes(self):
        path = self.program(SHARES)
        for native, rounds in (("0", "1000000"), ("1", "50000000"), ("2", "50000000")):
            run = Run("profile", path, rounds, native=native)
            of = {name.split()[0]: row for name, row in run.functions().items()}
            most = run.whole() * 0.8
            with self.subTest(native=native, report=run.report):
                self.assertEqual([of[name][0] for name in ("BUSY", "A", "main")], [3, 3, 1])
                self.assertGreater(min(of["BUSY"][1], of["A"][2]), most)
                self.assertLess(of["A"][1], most / 4)
                self.assertIn("main;A;BUSY ", run.folded)
                self.assertGreater(sum(own for own, _, text in run.lines() if re.search(r":[34] ", text)), most)
                self.assertGreater(min(both for _, both, text in run.lines() if re.search(r":[68] ", text)), most)

    @unittest.skipUnless(os.path.exists(FLAMES), "no program for flame graphs")
    def test_folded_stacks_become_a_flame_graph(self):
        path = self.program(FIB)
        done = subprocess.run(["perl", FLAMES, "--countname", "us"], input=Run("profile", path, "27").folded,
                              capture_output=True, text=True, check=True)
        self.assertEqual(done.stderr, "")
        self.assertRegex(done.stdout, r"<title>FIB \([\d,]+ us")

    def test_an_interrupt_tells_what_there_is(self):
        path = self.program("(defun spin (while 1 (setq i 1)))\n(spin)\n")
        run = subprocess.Popen([OPTIONS.kst, "profile", path], stderr=subprocess.PIPE, text=True)
        time.sleep(0.5)
        run.send_signal(signal.SIGINT)
        report = run.communicate(timeout=20)[1]
        self.assertEqual(run.returncode, -signal.SIGINT)
        self.assertRegex(report, r"\n +1 .* SPIN ")

    def test_deep_recursion_is_told(self):
        path = self.program('(defun f (if $1 (+ 1 (f (- $1 1))) (len "")))\n(for i 1 1 20 (setq s (f 50000)))\ns\n')
        run = Run("profile", path)
        self.assertEqual(run.outcome, (0, b"50000\n", b""))
        self.check_sums(run)
        self.assertEqual([calls for name, calls in run.calls().items() if ":1" in name], [20 * 50001])

    def test_calls_with_what_goes_in_and_comes_out(self):
        path = self.program(TRACED)
        for options, wanted in TRACES:
            with self.subTest(options=options):
                run = Run("trace", path, options=options)
                self.assertEqual(run.report.replace(path, "t"), wanted)
                self.assertEqual(run.outcome, (0, b"\n", b""))


if __name__ == "__main__":
    main(__doc__, "kst", programs={"type": int, "default": 20, "help": "random ones"})

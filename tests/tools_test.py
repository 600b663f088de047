#!/usr/bin/env python3
"""Tests of the test tools: a check that can't fail proves nothing, so each is shown a fault.

The runner of golden cases is given a made-up program, a shell script that knows a few sources; the
include checker is given made-up trees.
"""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.dont_write_bytecode = True
sys.path.insert(0, HERE)
import check_includes  # noqa: E402

FAKE = r"""#!/bin/sh
[ "$1" = -q ] || { echo "options $*"; exit 0; }
case $(cat "$2") in
*runtime*) printf '\n[RunTimeErrCode=1] Integer division by zero!\n' >&2; exit 1 ;;
*refused*) printf '\n[ErrCode=3] In `a\\b'\''\n' >&2; exit 1 ;;
*fatal*) echo "PID=$$, tID=$$, Module=x" >&2; exit 1 ;;
*words*) shift 2; echo "$# $1 $WORD $KESTRIN_CFGPROFILE_path"; cat ;;
*signal*) kill -FPE $$ ;;
*) echo "$2"; printf 'a\\0\tb\n' ;;
esac
"""


class IncludeOrder(unittest.TestCase):
    ROWS = (  # file, its text, part of the fault, None if there is none
        ("strings/a.cpp", '#include "vm/machine.h"\n', "strings may not include vm"),
        ("vm/handlers/a.cpp", '  #  include "frontend/isa.h"\n', "vm may not include frontend"),
        ("vm/a.cpp", '#include "mapcar/mapcar.h"\n', "vm may not include mapcar"),
        ("mapcar/a.cpp", '#include "driver/options.h"\n', "may not include driver"),
        ("extension/ckst_udf.cpp", '#include "strings/scratch.h"\n', "may not include strings"),
        ("extension/include/kestrin/a.h", '#include "strings/scratch.h"\n', "may not include strings"),
        ("frontend/a.cpp", '#include "../vm/a.h"\n', "not a path from the project's root"),
        ("driver/a.cpp", "#include <vm/a.h>\n", "own headers go in quotes"),
        ("frontend/a.cpp", '#include "vm/handler.h"\n#include "kestrin/isa.h"\n#include <string>\n', None),
        ("driver/a.cpp", '#include "mapcar/mapcar.h"\n#include "terminal/terminal.h"\n', None),
    )

    def test_faults_are_found(self):
        for path, text, expected in self.ROWS:
            with self.subTest(path=path, text=text), tempfile.TemporaryDirectory() as root:
                self.write(root, path, text)
                faults, files = check_includes.check(root)
                self.assertEqual(files, 1)
                self.assertEqual(len(faults), 0 if expected is None else 1, faults)
                self.assertIn(expected or "", "".join(faults))

    def test_own_header_goes_first(self):
        with tempfile.TemporaryDirectory() as root:
            self.write(root, "vm/a.h", "#pragma once\n")
            self.write(root, "vm/a.cpp", '#include "vm/b.h"\n#include "vm/a.h"\n')
            self.assertIn("goes first", "".join(check_includes.check(root)[0]))

    @staticmethod
    def write(root, path, text):
        path = os.path.join(root, path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as f:
            f.write(text)


class GoldenRunner(unittest.TestCase):
    def setUp(self):
        self.root = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.root)
        self.golden = os.path.join(self.root, "tests", "golden")
        os.makedirs(self.golden)
        shutil.copy(os.path.join(HERE, "golden", "run.py"), self.golden)
        IncludeOrder.write(self.root, "fake", FAKE)
        os.chmod(os.path.join(self.root, "fake"), 0o755)

    def case(self, name, text):
        IncludeOrder.write(self.golden, "g/" + name, text)

    def record(self, name):
        with open(os.path.join(self.golden, "g", name), encoding="utf-8") as f:
            return f.read()

    def run_cases(self, *options):
        p = subprocess.run([sys.executable, os.path.join(self.golden, "run.py"), "--kestrin",
                            os.path.join(self.root, "fake"), *options], capture_output=True, text=True)
        last = p.stdout.splitlines()[-1]
        self.assertEqual(p.returncode, 0 if last.endswith(" 0 failed") else 1, p.stdout + p.stderr)
        return last

    def test_every_kind_of_difference_fails(self):
        self.case("value.kst", "1")
        good = {"value.out": "value.kst\na\\0\tb\n"}
        for name, text in good.items():
            self.case(name, text)
        self.assertEqual(self.run_cases(), "golden: 1 tests, 0 failed")
        for name, text in (("value.out", "value.kst\na\\0\tb"), ("value.err", "x"), ("value.status", "1\n")):
            with self.subTest(name=name):
                self.case(name, text)
                self.assertEqual(self.run_cases(), "golden: 1 tests, 1 failed")
                if name in good:
                    self.case(name, good[name])
                else:
                    os.unlink(os.path.join(self.golden, "g", name))

    def test_line_cases(self):
        self.case("lines.cases", "; comment\n\n"
                  "(a) => case.kst\\na\\0\\tb\n"
                  "(runtime) => !1 Integer division by zero!\n"
                  "(refused) => !!3 In `a\\b'\n")
        self.assertEqual(self.run_cases(), "golden: 3 tests, 0 failed")
        self.case("lines.cases", "(a) => case.kst\n(runtime) => !2 Integer division by zero!\n"
                  "(runtime) => Integer division by zero!\n(refused) => !3 In `a\\b'\n")
        self.assertEqual(self.run_cases(), "golden: 4 tests, 4 failed")

    def test_accepted_records_pass(self):
        for word in ("value", "fatal", "signal", "runtime"):
            self.case(word + ".kst", word)
        self.case("lines.cases", "(a) =>\n(refused) => 1")
        self.assertEqual(self.run_cases(), "golden: 6 tests, 6 failed")
        self.assertEqual(self.run_cases("--accept"), "golden: 6 tests, 0 failed")
        self.assertEqual(self.run_cases(), "golden: 6 tests, 0 failed")
        self.assertEqual(self.record("fatal.err"), "PID=#, tID=#, Module=x\n")
        self.assertEqual(self.record("signal.status"), "-8\n")
        self.assertEqual(self.run_cases("g/val"), "golden: 1 tests, 0 failed")

    def test_directives(self):
        self.case("words.kst", "words")
        self.case("words.cfg", "")
        self.case("words.run", "# comment\nargs: one 'two words'\nenv: WORD=x=y\nstdin: in\\n\n"
                  "profile: words.cfg\n")
        self.case("words.out", "2 one x=y words.cfg\nin\n")
        self.case("steps.kst", "words")
        self.case("steps.run", "run: -c steps.kst\nsh: ls; exit 3\n")
        self.case("steps.out", "options -c steps.kst\nsteps.kst\n")
        self.case("steps.status", "3\n")
        self.assertEqual(self.run_cases(), "golden: 2 tests, 0 failed")


if __name__ == "__main__":
    unittest.main()

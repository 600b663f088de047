#!/usr/bin/env python3
"""The verbs of kst: what they answer to good and to bad words, and what they tell of faults.

  workshop_test.py --kst PATH [--kestrin PATH]
"""
import argparse
import os
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
MAN = os.path.join(ROOT, "workshop", "man")
OPTIONS = argparse.Namespace()

# Words of the command, standard input, then status, a piece of stdout and one of stderr. A file
# named good.kst or bad.kst is in the folder.
COMMANDS = [
    ([], "", 2, "", "usage: kst VERB"),
    (["--help"], "", 0, "usage: kst VERB", ""),
    (["--version"], "", 0, "kst ", ""),
    (["walk"], "", 2, "", "kst: no such verb: `walk'"),
    (["run"], "", 2, "", "kst run: missing FILE"),
    (["run", "none.kst"], "", 2, "", "kst run: can't open `none.kst': No such file"),
    (["run", "."], "", 2, "", "kst run: can't read `.': Is a directory"),
    (["run", "--what", "good.kst"], "", 2, "", "kst run: unknown option `--what'"),
    (["run", "-e"], "", 2, "", "kst run: `-e' wants TEXT"),
    (["run", "good.kst", "--help"], "", 0, "--help\n", ""),
    (["run", "--", "good.kst", "-e"], "", 0, "-e\n", ""),
    (["run", "good.kst"], "", 1, "", "good.kst: takes 1 word, not 0"),
    (["run", "bad.kst"], "", 1, "", "bad.kst:2:3: undefined function name `NOSUCH'\n"
                                    "      (nosuch 1)\n      ^\n"),
    (["run", "-"], "(+ 1 2)", 0, "3\n", ""),
    (["run", "-"], "(+ 1 2", 1, "", "standard input:1:1: "),
    (["run", "-"], "", 1, "", "standard input: there is no code in it"),
    (["run", "-e", "(+ $1 $2)", "20", "-3"], "", 0, "17\n", ""),
]
FILES = {"good.kst": '(cat $1 "")\n', "bad.kst": '(progn\n  (nosuch 1)\n  1)\n'}


def run(words, text="", folder=None):
    done = subprocess.run([OPTIONS.kst] + words, input=text.encode(), cwd=folder, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    return done.returncode, done.stdout.decode(), done.stderr.decode()


def verbs():
    return re.findall(r"^  (\w+) ", run(["--help"])[1], re.M)


class Workshop(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="kst-test-")
        self.addCleanup(self.folder.cleanup)
        for name, text in FILES.items():
            with open(os.path.join(self.folder.name, name), "w", encoding="utf-8") as f:
                f.write(text)

    def test_commands(self):
        for words, text, *wanted in COMMANDS:
            with self.subTest(words=words):
                status, out, err = run(words, text, self.folder.name)
                self.assertEqual(status, wanted[0], out + err)
                self.assertIn(wanted[1], out)
                self.assertIn(wanted[2], err)
                self.assertTrue(wanted[2] or not err, err)

    def test_each_verb_has_help_and_a_page_with_its_options(self):
        self.assertTrue(verbs())
        with open(os.path.join(MAN, "kst.1"), encoding="utf-8") as f:
            overview = f.read()
        for verb in verbs():
            with self.subTest(verb=verb):
                status, out, err = run([verb, "--help"])
                self.assertEqual((status, err), (0, ""))
                self.assertTrue(out.startswith("usage: kst %s " % verb), out)
                with open(os.path.join(MAN, "kst-%s.1" % verb), encoding="utf-8") as f:
                    page = f.read()
                for option in re.findall(r"^  -(-?\w+)", out, re.M):
                    shown = r"\.(It|Op) Fl " + re.sub("^-", "Fl ", option) + r"\b"
                    self.assertRegex(page, shown)
                self.assertIn("Xr kst-%s 1\n" % verb, overview)
                self.assertEqual(run([verb, "--no-such"])[0], 2)


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--kst", default=os.path.join(ROOT, "build", "release", "kst"))
    p.add_argument("--kestrin", default=os.path.join(ROOT, "build", "release", "kestrin"))
    _, rest = p.parse_known_args(namespace=OPTIONS)
    OPTIONS.kst = os.path.abspath(OPTIONS.kst)
    unittest.main(argv=sys.argv[:1] + rest)


if __name__ == "__main__":
    main()

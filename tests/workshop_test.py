#!/usr/bin/env python3
"""The verbs of kst: what they answer to good and to bad words, and what they tell of faults.

  workshop_test.py --kst PATH
"""
import json
import os
import re
import signal
import subprocess
import time
import xml.etree.ElementTree

from kit.scripts import OPTIONS, ROOT, Folder, is_sanitized, kestrin, main, run
from workshop_faults import random_faults

MAN = os.path.join(ROOT, "workshop", "man")

EXPLAINED = """# a comment
(progn
  (setq a (+ 1 2)) # three
  (progn (outf "%ld" a)
    a))
"""
EXPLANATION = """
   1  # a comment
   2  (progn
   3    (setq a (+ 1 2)) # three |   (SETQ@I A@I (+@J 1 2))
   4    (progn (outf "%ld" a)    |   (OUTF "%ld" A@I)
   5      a))                    |     A@I
"""
STAGES = """
   4    (progn (outf "%ld" a)
       checked |   (PROGN (OUTF "%ld" A)
      squeezed |   (OUTF "%ld" A)
         typed |   (OUTF "%ld" A@I)
   5      a))
"""
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
    (["run", "-"], "(+ 1 2", 1, "", "standard input:1:7: `)' is missing: "),
    (["run", "-"], "", 1, "", "standard input: there is no code in it"),
    (["check"], "", 2, "", "kst check: missing FILE"),
    (["check", "none.kst", "bad.kst"], "", 2, "bad.kst:2:3: ", "can't open `none.kst'"),
    (["check", "good.kst", "bad.kst"], "", 1, "bad.kst:2:3: undefined function name `NOSUCH'\n", ""),
    (["check", "good.kst"], "", 0, "", ""),
    (["check", "--cfg", "set.cfg", "calls_bad.kst"], "", 0, "", ""),
    (["check", "calls_bad.kst"], "", 1, "undefined function name `BAD'", ""),
    (["check", "--cfg", "none.cfg", "good.kst"], "", 2, "", "can't open `none.cfg': No such file"),
    (["run", "--cfg", "none.cfg", "good.kst", "a"], "", 2, "", "can't open `none.cfg': No such file"),
    (["run", "--cfg", "bad.cfg", "good.kst", "a"], "", 1, "", "bad.cfg:2:17: undefined function name `NOSUCH'\n"),
    (["check", "--cfg", "bad.kst", "good.kst"], "", 1, "bad.kst:1:1: a profile holds definitions", ""),
    (["explain"], "", 2, "", "kst explain: missing FILE"),
    (["explain", "good.kst", "bad.kst"], "", 2, "", "kst explain: too many words: `bad.kst'"),
    (["explain", "none.kst"], "", 2, "", "can't open `none.kst'"),
    (["explain", "bad.kst"], "", 1, "", "bad.kst:2:3: undefined function name `NOSUCH'"),
    (["explain", "good.kst"], "", 0, '   1  (cat $1 "") | (CAT $1 "")\n', ""),
    (["explain", "-"], EXPLAINED, 0, EXPLANATION, ""),
    (["explain", "--all", "-"], EXPLAINED, 0, STAGES, ""),
    (["explain", "--code", "-"], "\n(+ 1\n  $1)", 0, " T +\n   3    $1) |   $1)\n", ""),
    (["run", "-e", "(+ $1 $2)", "20", "-3"], "", 0, "17\n", ""),
    (["repl"], "(setq a 2)\n(* a 3)\n", 0, "2\n6\n", ""),
    (["repl", "x"], "", 2, "", "kst repl: too many words: `x'"),
    (["doc"], "", 0, "Strings\n  CHR ASC LEN", ""),
    (["doc", "strtran"], "", 0, "  [26.4 Searching and replacing]\n", ""),
    (["doc", "--"], "", 0, "IDECR, --", ""),
    (["doc", "if"], "", 0, "  [21. Control]\n  [5.2 IF]\n", ""),
    (["doc", "4"], "", 0, "argument counts ", ""),
    (["doc", "7.3"], "", 0, "7.3 Parts of an array\n-----", ""),
    (["doc", "Formatted", "output"], "", 0, "27. Formatted output\n=====", ""),
    (["doc", "errors"], "", 0, "  8. Errors\n", ""),
    (["doc", "kestrin_cfgprofile_path"], "", 0, "10.3 The configuration profile\n", ""),
    (["doc", "strtrn"], "", 1, "", "kst doc: the manual has no `strtrn'; alike: STRTRAN, "),
    (["fmt"], "", 2, "", "kst fmt: missing FILE"),
    (["fmt", "none.kst", "good.kst"], "", 2, "", "kst fmt: can't open `none.kst': No such file"),
    (["fmt", "."], "", 2, "", "kst fmt: can't read `.': Is a directory"),
    (["fmt", "--check", "good.kst", "bad.kst", "wide.kst"], "", 1, "wide.kst\n", ""),
    (["fmt", "-"], " (a\n b)", 0, "(a b)\n", ""),
    (["fmt", "-"], "(a\n  (b)", 1, "", "standard input:2:3: this `(' is never closed\n"),
    (["test"], "", 2, "", "kst test: no program has a comment `# expect:' or `# error:'"),
    (["test", "good.kst"], "", 2, "", "kst test: `good.kst' has no comment `# expect:'"),
    (["test", "none.kst"], "", 2, "", "kst test: can't open `none.kst': No such file"),
    (["test", "--jobs", "0"], "", 2, "", "kst test: `--jobs' wants a number from 1 to 50"),
    (["test", "--jobs", "2x"], "", 2, "", "kst test: `--jobs' wants a number"),
    (["test", "--timeout", ""], "", 2, "", "kst test: `--timeout' wants seconds"),
    (["test", "--junit"], "", 2, "", "kst test: `--junit' wants FILE"),
    (["lsp", "x"], "", 2, "", "kst lsp: too many words: `x'"),
    (["lsp", "--cfg", "none.cfg"], "", 2, "", "kst lsp: can't open `none.cfg': No such file"),
    (["lsp", "--cfg", "bad.cfg"], "", 1, "", "bad.cfg:2:17: undefined function name `NOSUCH'\n"),
    (["lsp"], "(+ 1 2)\r\n\r\n", 1, "this is no frame", ""),
    (["profile"], "", 2, "", "kst profile: missing FILE"),
    (["profile", "none.kst"], "", 2, "", "kst profile: can't open `none.kst': No such file"),
    (["profile", "--lines", "0", "good.kst"], "", 2, "", "kst profile: `--lines' wants a number"),
    (["profile", "-o", "good.kst", "good.kst", "x"], "", 2, "", "kst profile: `good.kst' is a file of the program"),
    (["trace", "-o", "good.kst", "good.kst", "x"], "", 2, "", "kst trace: `good.kst' is a file of the program"),
    (["profile", "-o", "-", "-e", "(+ 1 2)"], "", 0, "\nkst profile: ", ""),
    (["profile", "-o", "-", "--folded", "-", "good.kst", "x"], "", 2, "", "want files of their own"),
    (["trace", "-o", "-", "-e", "(defun f (+ 1 $1)) (f 2) (file_close 1) (f 3)"], "", 0,
     "-e:1: (F 2) = 3\n-e:1: (F 3) = 4\n", ""),
    (["test", "--junit", "-", "--tap"], "", 2, "", "`--tap' and `--junit -' want the same output"),
    (["profile", "-o", "no/where", "good.kst", "x"], "", 2, "", "kst profile: can't open `no/where': No such"),
    (["profile", "--cfg", "none.cfg", "good.kst"], "", 2, "", "kst profile: can't open `none.cfg': No such"),
    (["profile", "bad.kst"], "", 1, "", "bad.kst:2:3: undefined function name `NOSUCH'"),
    (["profile", "-"], "(defun f (+ $1 1))\n(f 2)", 0, "3\n", " F                standard input:1\n"),
    (["trace"], "", 2, "", "kst trace: missing FILE"),
    (["trace", "--depth", "-1", "good.kst"], "", 2, "", "kst trace: `--depth' wants a number"),
    (["trace", "--only", "f,g", "good.kst", "a"], "", 2, "", "kst trace: there is no function `"),
    (["trace", "--cfg", "set.cfg", "-e", "(bad 1)"], "", 1, "", "-e:1: (BAD 1) ends by error 1\nset.cfg:2:12: "),
    (["fmt", "-"], '(a "b)', 1, "", "standard input:1:4: `\"' opens a string"),
    (["run", "--limit", "time=2,memory=64MB", "good.kst"], "", 2, "", "no such limit: `memory=64MB'"),
    (["run", "--limit", "time=0", "good.kst"], "", 2, "", "no such limit: `time=0'"),
    (["run", "--limit", "", "good.kst"], "", 2, "", "no such limit: `'"),
    (["run", "--limit", "time=1,", "good.kst"], "", 2, "", "no such limit: `'"),
    (["pack"], "", 2, "", "kst pack: missing FILE"),
    (["pack", "good.kst"], "", 2, "", "kst pack: missing -o PROGRAM"),
    (["pack", "none.kst", "-o", "x"], "", 2, "", "kst pack: can't open `none.kst': No such file"),
    (["pack", "good.kst", "-o", "good.kst"], "", 2, "", "kst pack: `good.kst' is the program itself"),
    (["pack", "good.kst", "-o", "."], "", 2, "", "kst pack: can't write `.': Is a directory"),
    (["pack", "bad.kst", "-o", "x"], "", 1, "", "bad.kst:2:3: undefined function name `NOSUCH'\n"),
    (["pack", "/bin/sh", "-o", "x"], "", 1, "", "/bin/sh: is an executable, not a source\n"),
    (["run", "/bin/sh"], "", 1, "", "/bin/sh: is an executable, not a source\n"),
    (["check", "--cfg", "/bin/sh", "good.kst"], "", 1, "/bin/sh: is an executable, not a source\n", ""),
    (["fmt", "/bin/sh"], "", 1, "", "/bin/sh: is an executable, not a source\n"),
    (["trace", "-"], "GIF\0(", 1, "", "standard input: is not a source: its first bytes hold NULs\n"),
    (["run", "-"], "\0(+ 1\0\0 2)", 0, "3\n", ""),
    (["fmt", "-"], "\0(+ 1 2)", 1, "", "standard input: is not a source: its first bytes hold NULs\n"),
]
FILES = {"calls_bad.kst": "(bad 1)", "bad.cfg": "((rem x) defun a (+ 1 2))\n(defun b (+ (a) (nosuch)))",
         "set.cfg": "# site\n(defun bad (/ $1 0))\n", "good.kst": '(cat $1 "")\n', "bad.kst": '(progn\n  (nosuch 1)\n  1)\n',
         "wide.kst": "(a\n b)\n"}


# Programs that fail, and the lines of what they are told, without the source lines.
RUNS = {
    "calls": """# a comment
(progn
  (defun g (progn
    (setq b 5)
    (if (> $1 90)
      (/ 7 (- $1 100))
      1)))
  (defun f (+ 1 (g $1)))
  (f (f 100)))
""",
    "deep": '(progn (defun f (if (> $1 50) (rise_error_info 20 "mine") (f (+ $1 1))))\n(f 0))',
    "argument": "(progn (defun f (iadd $1 $1))\n (f (f x)))",
    "caught": '(progn (setq a (mapcar "(/ 1 0)"))\n  (rise_error))',
    "after_break": "(progn (defun f (break))\n (f)\n (index a -1))",
    "endless": '(progn (defun f (+ 1 (f $1)))\n(f 0))',
    "inside": '(progn (defun g (mapcar $1))\n(g "(progn (defun f (+ 1 (f $1))) (f 0))")\n(outf "%s" "no"))',
    "nested": "(progn (defun h (progn\n (defun k (% $1 0))\n (k 3)))\n (h))",
}
ENDLESS = ["endless.kst:1:22: runtime error 0: The recursion is too deep.",
           "endless.kst:1:22: `F' is called here (16 times)", "... many more calls ...",
           "endless.kst:1:22: `F' is called here (15 times)", "endless.kst:2:1: `F' is called here"]
FAILING_RUNS = [
    (["calls.kst"], ["calls.kst:6:7: runtime error 1: Integer division by zero!",
                     "calls.kst:8:17: `G' is called here", "calls.kst:9:6: `F' is called here"]),
    (["deep.kst"], ["deep.kst:1:31: runtime error 20: mine",
                    "deep.kst:1:59: `F' is called here (16 times)", "... 20 more calls ...",
                    "deep.kst:1:59: `F' is called here (15 times)",
                    "deep.kst:2:1: `F' is called here"]),
    (["argument.kst"], ["argument.kst:2:8: runtime error 10: Variable_getval: variable was not "
                        "initialized before use!"]),
    (["caught.kst"], ["caught.kst:2:3: runtime error 0: Unknown error!"]),
    (["after_break.kst"], ["after_break.kst:3:2: runtime error 13: Array_getval: negative array index!"]),
    (["nested.kst"], ["nested.kst:2:11: runtime error 2: Integer division by zero while calculating "
                      "remainder!", "nested.kst:3:2: `K' is called here",
                      "nested.kst:4:2: `H' is called here"]),
    (["endless.kst"], ENDLESS),
    (["--limit", "memory=900000G", "endless.kst"], ENDLESS),
    (["inside.kst"], ["inside.kst:1:17: runtime error 0: The recursion is too deep.",
                      "inside.kst:2:1: `G' is called here"]),
    (["--cfg", "set.cfg", "-e", "(bad 1)"], ["set.cfg:2:12: runtime error 1: Integer division by zero!",
                                             "-e:1:1: `BAD' is called here"]),
]


# Texts and what check tells of them.
CHECKED = [
    ("(progn (setq a 1) (outf \"%ld\" a) \"\")", []),
    ("(defun alone (progn 1))", []),
    ("# nothing", ["0:0: there is no code in it"]),
    ("(progn\n  (one 1 (two))\n  (iadd 1)\n  (setq 1 2)\n  (outf 12x 1))",
     ["2:3: undefined function name `ONE'", "2:10: undefined function name `TWO'",
      "3:3: 2 arguments are required instead of 1", "4:9: invalid variable name `1'",
      "5:9: invalid numeric constant: 12x"]),
    ("(progn\n  (defun f (iadd $1 (nosuch)))\n  (f 1)\n  (f))",
     ["2:21: undefined function name `NOSUCH'", "4:3: 1 argument is required instead of 0"]),
    ("(progn\n  (defun f (iadd $1 $3))\n  (f 1 2)\n  (f 1 2 3))",
     ["2:12: $2 is missed in the enumerated argument sequence."]),
    ("(progn\n  (outf \"%s\" \"a)\n  (outf \"b\" \"c)\n  1)",
     ["2:14: `\"' opens a string that its line does not close",
      "3:13: `\"' opens a string that its line does not close"]),
    ("(progn\n  (if (notempty \"a\"\n    1\n    2)\n  3)",
     ["2:20: `)' is missing: `(notempty' of 2:7 is not closed"]),
    ("(progn\n  (while 0\n    1\n  (outf \"a\" 1)\n)",
     ["3:6: `)' is missing: `(while' of 2:3 is not closed"]),
    ("(+ 1", ["1:5: `)' is missing: `(+' of 1:1 is not closed"]),
    ("(progn\n  (setq a) 1)\n  a)", ["2:10: this `)' is one too many"]),
    ("(progn\n  setq a 1)\n  (setq b a)\n  b)", ["2:3: `(' is missing in front of this"]),
    ("(progn\n  (setq w 1)\n  (if len w) (outf \"%s\" cat w w) \"\")\n  1)",
     ["3:7: `(' is missing in front of this", "3:14: 2 arguments are required instead of 4"]),
    ("(progn\n  (" + 300 * "x" + " 1)\n  1)", ["2:3: undefined function name `" + 80 * "X" + " ...'"]),
    ("(progn\n  (setq a 1 (nosuch a 2x)\n  a)", ["2:12: `)' is missing: `(setq' of 2:3 is not closed",
                                                   "2:13: undefined function name `NOSUCH'",
                                                   "2:23: invalid numeric constant: 2x"]),
    ("(progn\n  (iadd 1 2\n  (nosuch)\n  1)", ["2:12: `)' is missing: `(iadd' of 2:3 is not closed",
                                               "3:3: undefined function name `NOSUCH'"]),
    ("(progn\n  (defun once (twice))\n  (defun rec (if $1 (rec 0) 1))\n  1)",
     ["2:15: undefined function name `TWICE'"]),
    ("(progn\n  (defun once (progn 1))\n  (defun rec (if $1 (rec 0) 1))\n  TERM_TYPE)",
     ["2:10: `ONCE' is never called", "3:10: `REC' is never called"]),
    ("(progn\n  (if 1 (setq a 1) 0)\n  (for i 1 1 2 (setq b i))\n  (cat a (cat b miss)))",
     ["4:8: `A' may be read before it has a value", "4:17: `MISS' may be read before it has a value"]),
]


class Workshop(Folder):
    FILES = FILES


class Verbs(Workshop):
    def test_commands(self):
        for words, text, *wanted in COMMANDS:
            with self.subTest(words=words):
                status, out, err = self.kst(*words, text=text)
                self.assertEqual(status, wanted[0], out + err)
                self.assertIn(wanted[1], out)
                self.assertIn(wanted[2], err)
                self.assertTrue(wanted[2] or not err, err)

    def test_lost_output_is_told(self):
        for words in (["--help"], ["check", "bad.kst"], ["fmt", "-"], ["doc"]):
            with open("/dev/full", "w", encoding="utf-8") as full:
                done = subprocess.run([OPTIONS.kst, *words], cwd=self.folder, check=False,
                                      input=b"(a  b)", stdout=full, stderr=subprocess.PIPE)
            self.assertEqual((done.returncode, done.stderr),
                             (2, b"kst: can't write all of the output: No space left on device\n"), words)

    def test_words_arrive_as_they_are(self):
        program = '(progn (outf "%s" (cat $1 "")) "")'
        every_byte = bytes(range(1, 256)) + bytes(range(255, 0, -1))
        words = ["/etc/x", "-v", "--", "2026-01-31", "12x", "1.50", "007", "", " ", '"', '"a b"', "\\0x61",
                 "\\", 'a\\"', "$1", "(exit)", "#", "é", "progn", every_byte, b"x" * 100000,
                 "".join("\\0x%02X\\\\0x%02x" % (code, code) for code in range(256))]
        for word in words + [chr(c) for c in range(33, 127)]:
            with self.subTest(word=word):
                sent = word.encode() if isinstance(word, str) else word
                done = subprocess.run([OPTIONS.kst, "run", "-e", program, sent], check=False,
                                      stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
                self.assertEqual(done.stdout, sent + b"\n")

    def test_a_program_is_a_command_from_any_folder(self):
        self.write("kestrin.cfg", "(defun two (progn 2))\n")
        path = self.write("add", "#!/usr/bin/env -S kst run\n(+ $1 $2)\n")
        os.chmod(path, 0o755)
        search = os.path.dirname(OPTIONS.kst) + os.pathsep + os.environ["PATH"]
        done = subprocess.run([path, "2", "-3"], cwd="/", env={**os.environ, "PATH": search},
                              stdout=subprocess.PIPE, check=False)
        self.assertEqual(done.stdout, b"-1\n")
        self.assertIn("`TWO'", self.kst("run", "-e", "(two)")[2])
        self.assertEqual(self.kst("run", "--cfg", "kestrin.cfg", "-e", "(two)")[1], "2\n")

    def test_a_runtime_error_has_its_place_and_its_calls(self):
        for name, text in RUNS.items():
            self.write(name + ".kst", text)
        for words, wanted in FAILING_RUNS:
            with self.subTest(words=words):
                status, out, err = self.kst("run", *words)
                self.assertEqual((status, out), (1, ""))
                told = re.sub(r"\d{3,} more", "many more", err)
                self.assertEqual(re.findall(r"^(?!    ).+", told, re.M), wanted)

    def test_check_names_the_line_of_a_fault(self):
        folder = os.path.join(ROOT, "tutorial", "examples")
        programs = []
        for name in sorted(os.listdir(folder)):
            with open(os.path.join(folder, name), encoding="utf-8") as f:
                programs.append(f.read())
        missed = []
        for fault, text, line in random_faults(programs, 200, seed=13):
            status, out, _ = self.kst("check", "-", text=text)
            told = re.match(r"standard input:(\d+):\d+: ", out)
            self.assertEqual((status, bool(told)), (1, True), "%s in line %d\n%s" % (fault, line, out))
            if int(told[1]) != line:
                missed.append((fault, line, out))
                self.assertLessEqual(abs(int(told[1]) - line), 2, missed[-1])
        self.assertLessEqual(len(missed), 20, missed)

    def test_check_is_content_with_the_examples(self):
        folder = os.path.join(ROOT, "tutorial", "examples")
        names = [os.path.join(folder, name) for name in sorted(os.listdir(folder))]
        self.assertEqual(self.kst("check", *names), (0, "", ""))

    def test_check_tells_each_fault_at_its_place(self):
        for text, wanted in CHECKED:
            with self.subTest(text=text):
                status, out, err = self.kst("check", "--json", "-", text=text)
                told = ["%(line)d:%(column)d: %(text)s" % one for one in json.loads(out)]
                self.assertEqual((told, err), (wanted, ""))
                self.assertEqual(status, 1 if wanted else 0)
                plain = self.kst("check", "-", text=text)[1]
                self.assertEqual(len(re.findall("^standard input:", plain, re.M)), len(wanted))

    def test_the_manual_tells_every_name_of_the_tables(self):
        def names(path, pattern):
            with open(os.path.join(ROOT, path), encoding="utf-8") as f:
                return re.findall(pattern, f.read(), re.M)
        mnemonics = names("frontend/isa.def", r'^ROW\(\w+, *"(\S+)",')
        switches = names("driver/switches.def", r'^SWITCH\(\w+, +"(\w+)"')
        options = names("driver/options.cpp", r'^    \{"(--?\w+)", "(--?\w+)"')
        codes = [str(code) for code in range(1, 17)]
        self.assertEqual((len(mnemonics), len(switches), len(options)), (223, 9, 7))
        for name in mnemonics + switches + [o for pair in options for o in pair if o not in
                                            ("-h", "--help")] + codes:
            with self.subTest(name=name):
                status, out, _ = self.kst("doc", name)
                first = re.split(r"  \[\d+\.\d* ", out)[0]
                self.assertEqual(status, 0)
                self.assertIn(name, re.split(r"[,\s]+", first))
                self.assertRegex(out, r"\n  \[\d+\.\d* ")

    def verbs(self):
        return re.findall(r"^  (\w+) ", self.kst("--help")[1], re.M)

    def test_each_verb_has_help_and_a_page_with_its_options(self):
        self.assertTrue(self.verbs())
        with open(os.path.join(MAN, "kst.1"), encoding="utf-8") as f:
            overview = f.read()
        for verb in self.verbs():
            with self.subTest(verb=verb):
                status, out, err = self.kst(verb, "--help")
                self.assertEqual((status, err), (0, ""))
                self.assertTrue(out.startswith("usage: kst %s" % verb), out)
                with open(os.path.join(MAN, "kst-%s.1" % verb), encoding="utf-8") as f:
                    page = f.read()
                for option in re.findall(r"^  -(-?\w+)", out, re.M):
                    shown = r"\.(It|Op) Fl " + re.sub("^-", "Fl ", option) + r"\b"
                    self.assertRegex(page, shown)
                self.assertIn("Xr kst-%s 1\n" % verb, overview)
                self.assertEqual(self.kst(verb, "--no-such")[0], 2)


class Fmt(Workshop):
    def test_a_file_is_replaced_only_by_another_layout(self):
        os.chmod(self.path("wide.kst"), 0o640)
        os.symlink("wide.kst", self.path("link.kst"))
        for name, changes in (("link.kst", True), ("wide.kst", False), ("good.kst", False)):
            with self.subTest(name=name):
                before = os.stat(self.path(name))
                self.assertEqual(self.kst("fmt", name), (0, "", ""))
                after = os.stat(self.path(name))
                self.assertEqual(before.st_mode, after.st_mode)
                self.assertEqual(before.st_ino != after.st_ino, changes)
        self.assertTrue(os.path.islink(self.path("link.kst")))
        self.assertEqual(self.read("wide.kst"), "(a b)\n")
        self.assertEqual(sorted(os.listdir(self.folder)), sorted([*FILES, "link.kst"]))

    def test_a_faulty_or_stored_program_is_left_alone(self):
        open_form = "(progn\n (a)"
        self.write("open.kst", open_form)
        run(kestrin(), "-c", "good.kst", "x", cwd=self.folder)
        stored = [n for n in os.listdir(self.folder) if n not in (*FILES, "open.kst")]
        self.assertEqual(len(stored), 1)
        status, _, err = self.kst("fmt", "open.kst", stored[0], "wide.kst")
        self.assertEqual(status, 1)
        self.assertRegex(err, "open.kst:[12]:[0-9]+: ")
        self.assertIn(stored[0] + ": is a stored program", err)
        self.assertEqual(self.read("open.kst"), open_form)
        self.assertEqual(self.read("wide.kst"), "(a b)\n")


# A program that says what it does, then what kst test tells of it without the file's name; empty if
# it is right.
SAYING = [
    ('(defun f (*. 2. $1))\n(f 4) # expect: 8.0\n(str (f 4)) # expect: 8.0000000000000000E+00', ""),
    ('nil # expect: `NIL\'', ""),
    ('(f) # expect: 1\n# error: undefined function name', ""),
    ('(defun f 1) # expect: 1\n# error: 1', "ended with a fault\n:2: expected error 1\n:1:10: "),
    ('(defun f (+ 1 $1)) # expect: 1', ":1: the form has no value"),
    ('(progn (defun f (+ $1 1))\n (progn (f 1) (rem x))) # expect: 2', ""),
    ('(setq a (+ 1 1)) # expect: 3\na # expect: 2', ":1: the value is another one\n-3\n+2\n"),
    ('(setq kst_value 4) # expect: 4\n(+ kst_value 1) # expect: 5', ""),
    ('(exit) # error: 1', "ended without an error\n:1: expected error 1\n"),
    ('(/ 1 0)\n# error: 1', ""),
    ('(/ 1 0)\n# error: by zero', ""),
    ('(/ 1 0)\n# error: 11', "ended with a fault\n:2: expected error 11\n:1:1: runtime error 1: "),
    ('(/ 1 0) # expect: 1', "ended with a fault\n:1:1: runtime error 1: "),
    ('(progn (a)\n# error: missing', ""),
    ('# input: a\n# input: b\\c\n(outf "%s" (accept ""))\n(accept "") # expect: b\n'
     '# expect: a\n# expect: b', ""),
    ('(outf "%s" "x\\ny\\n")\n""\n# expect: x\n# expect: z', "the output is another one\nx\n-z\n+y\n"),
    ('(outf "%s" "x")\n(exit)\n# expect: x', ""),
    ('(outf "%s|" $1)\n(outf "%s|" $2)\n(cat $3 "")\n# args: one "" \'x"\\n\'\\"\\x41"\\n"\\ b\n'
     '# expect: one||x"\\\\n"A\n# expect:  b', ""),
    ('(cat $1 "") # expect: a b\n# args: "a b', ":2: a quote opens a word"),
    ('(scan_console 1)\n# error: 99', "ended"),
    ('(while 1 1)\n# expect: x', "takes too long\n"),
    ('(while 1 (outf "%s" (replicate "x" 100000)))\n# expect: x', "writes more than 16 MB\n"),
    ('(progn (for i 0 1 255 (file_close i)) (while 1 1))\n# expect: x', "takes too long\n"),
    ('(/ (- -9223372036854775807 1) -1)\n# expect: x', "died of signal 8, Floating point exception\n"),
]


class Test(Workshop):
    def test_what_programs_say(self):
        for i, (text, _) in enumerate(SAYING):
            self.write("%02d.kst" % i, text + "\n")
        status, out, _ = self.kst("test", "--timeout", "3")
        self.assertEqual(status, 1)
        lines = [line.strip() for line in out.splitlines()]
        sanitized = is_sanitized(OPTIONS.kst)
        for i, (text, told) in enumerate(SAYING):
            if sanitized and "signal" in told:
                continue # the sanitizer tells it first
            with self.subTest(text=text):
                mine = [n for n, line in enumerate(lines) if line.startswith("%02d.kst:" % i)]
                end = next((n for n in range(mine[-1] + 1, len(lines))
                            if re.match(r"\d\d\.kst:|\d+ passed", lines[n])), 0) if mine else 0
                shown = "\n".join(lines[mine[0]:end]) + "\n" if mine else ""
                shown = re.sub(r"(?m)^%02d\.kst(:(?= )|(?=:\d)) ?" % i, "", shown)
                self.assertTrue(shown.startswith(told) if told else not shown, shown)
        self.assertEqual(lines[-1], "%d passed, %d failed." % (
            sum(not told for _, told in SAYING), sum(bool(told) for _, told in SAYING)))

    def test_updated_comments_are_right_and_the_rest_stays(self):
        told = b"".join(b'(outf "%%s" (chr %d))\n' % i for i in range(1, 256))
        text = (b'#!/usr/bin/x\n' + told + b'(cat "a\\\\" " b ") # expect:\n'
                b'  # expect: one\n(/ 7. 2) # kept\n5   # expect: 4 \n(outf "%s" "end") # expect:\n')
        path = self.write("bytes.kst", text)
        status, out, _ = self.kst("test", "--update", path)
        self.assertEqual((status, out), (0, "1 passed.\n"))
        with open(path, "rb") as f:
            code = [re.sub(rb"\s*# expect:.*", b"", line) for line in f.read().splitlines()]
        wanted = [re.sub(rb"\s*# expect:.*", b"", line) for line in text.splitlines()]
        self.assertEqual([c for c in code if c], [w for w in wanted if w])
        for words in (["test", path], ["fmt", path], ["test", path]):
            self.assertEqual(self.kst(*words)[0], 0, words)

    def test_a_failing_program_is_not_updated(self):
        for text in ("(/ 1 0)\n# expect: x\n", "1\n# error: 1\n", "(a\n# expect: x\n"):
            path = self.write("fails.kst", text)
            self.assertEqual(self.kst("test", "--update", path)[0], 1)
            self.assertEqual(self.read(path), text)

    def test_tap_and_junit(self):
        self.write("1.kst", "1 # expect: 1\n")
        self.write("2.kst", '"<&\x01\xff\x80" # expect: 2\n'.encode("latin-1"))
        status, out, _ = self.kst("test", "--tap", "--junit", "j.xml", ".")
        self.assertEqual(status, 1)
        self.assertTrue(out.startswith("TAP version 13\n1..2\nok 1 - 1.kst\nnot ok 2 - 2.kst\n# "))
        suite = xml.etree.ElementTree.parse(self.path("j.xml")).getroot()
        self.assertEqual((suite.get("tests"), suite.get("failures")), ("2", "1"))
        self.assertEqual([len(case) for case in suite], [0, 1])
        self.assertEqual(*(re.sub(r'time="[^"]*"', "", text) for text in
                           (self.kst("test", "--junit", "-", ".")[1], self.read("j.xml"))))

    def test_an_interrupt_leaves_no_process(self):
        path = self.write("loop.kst", "(while 1 1)\n# expect: x\n")
        asked = subprocess.Popen([OPTIONS.kst, "test", path])
        children = "/proc/%d/task/%d/children" % (asked.pid, asked.pid)
        for _ in range(500):
            with open(children, encoding="utf-8") as f:
                child = f.read().split()
            if child:
                break
            time.sleep(0.01)
        asked.send_signal(signal.SIGINT)
        self.assertEqual(asked.wait(10), -signal.SIGINT)
        for _ in range(500):
            if not os.path.exists("/proc/" + child[0]):
                return
            time.sleep(0.01)
        self.fail("the program goes on")


if __name__ == "__main__":
    main(__doc__, "kst")

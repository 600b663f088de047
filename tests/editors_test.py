#!/usr/bin/env python3
"""What editors make of programs, beside what the engine does; what shells complete.

  editors_test.py --build FOLDER [--all]

Each editor that is there (--all: each one has to be) opens every example and golden program: a word has the class that the
engine gives it, a text laid out by kst fmt is indented already, faults stand in the list of errors.
"""
import glob
import os
import pty
import re
import select
import shutil
import subprocess
import time
import unittest

from kit.scripts import OPTIONS, ROOT, Folder, main, output, want

HERE = os.path.join(ROOT, "tests", "editors")
PROGRAMS = sorted(glob.glob(os.path.join(ROOT, "tutorial", "examples", "*.kst")) +
                  glob.glob(os.path.join(ROOT, "tests", "golden", "**", "*.kst"), recursive=True))
ODD = os.path.join(HERE, "odd_words.kst")

FAULTY = {"faulty.kst": '(progn\n  "é" (nosuch 1)\n  (if 1 (setq a 1) 0) a 1:2)\n',
          "unset.kst": '(progn\n  (if 1 (setq a 1) 0)\n  "é" (cat "x:1:2: a" a))\n'}
FAULTS = """faulty.kst:2:8::undefined function name `NOSUCH'
faulty.kst:3:25::invalid numeric constant: 1:2
unset.kst:3:24:w:`A' may be read before it has a value
"""
WIDE = "(progn\n (a\n  b))\n"
# What the grammar of the extension calls each class of word_classes.
CODE = {
    "control": "keyword.control", "definition": "storage.type.function",
    "assignment": "keyword.other.assignment", "operator": "keyword.operator",
    "instruction": "support.function", "call": "entity.name.function",
    "name": "entity.name.function.definition", "variable": "variable.other",
    "argument": "variable.parameter", "integer": "constant.numeric.integer",
    "float": "constant.numeric.float", "string": "string.quoted.double", "nil": "constant.language.nil",
    "refused": "invalid.illegal", "note": "comment.line.number-sign", "remark": "comment.block",
}


def words(*files):
    """(file, line, column, class, text) of the first and the last byte of each word."""
    texts = {}
    for line in output(os.path.join(OPTIONS.build, "tests", "word_classes"), *files).splitlines():
        name, row, column, size, kind = line.rsplit(":", 4)
        if name not in texts:
            with open(name, "rb") as f:
                texts[name] = f.read()
        lines = texts[name].split(b"\n")
        begin = sum(len(l) + 1 for l in lines[:int(row) - 1]) + int(column) - 1
        for at in (begin, begin + int(size) - 1):
            while texts[name][at] & 0xC0 == 0x80:
                at -= 1
            ahead = texts[name][:at]
            yield (name, ahead.count(b"\n") + 1, len(ahead) - ahead.rfind(b"\n"), kind,
                   texts[name][begin:begin + int(size)])


class Words:
    """How words are shown."""
    def setUp(self):
        want(self, shutil.which(self.command), self.command)
        super().setUp()

    def test_each_word_has_the_class_that_the_engine_gives_it(self):
        all_words = list(words(*PROGRAMS, ODD))
        self.assertGreater(len(all_words), 5000)
        places = self.write("places", "".join("%s\t%d\t%d\n" % word[:3] for word in all_words))
        self.run_script("places", PLACES=places, FOUND=self.path("found"))
        found = self.read("found").splitlines()
        self.assertEqual(len(found), len(all_words))
        wrong = []
        for (name, line, column, kind, text), shown in zip(all_words, found):
            if not self.is_shown(kind, shown):
                wrong.append("%s:%d:%d: %r is a %s, shown as %s" % (name, line, column, text, kind, shown))
        self.assertEqual(wrong, [])


class Editor(Words):
    """What an editor does with kst."""
    def test_layout_and_faults_are_those_of_kst(self):
        kst = os.path.join(OPTIONS.build, "kst")
        laid_out = {}
        for number, name in enumerate([*PROGRAMS, os.path.join(HERE, "odd_layout.kst")]):
            with open(name, "rb") as f:
                text = subprocess.run([kst, "fmt", "-"], stdin=f, stdout=subprocess.PIPE, check=False).stdout
            # A comment form keeps its lines, and editors go by the characters of UTF-8.
            if not re.search(rb"\([ \n]*(rem|comment)", text, re.I) and text.isascii():
                laid_out[self.path("%d.kst" % number)] = text.decode()
        self.assertGreater(len(laid_out), 40)
        for path, text in laid_out.items():
            self.write(path, re.sub(r"(?m)^ +", "", text))
        faulty = [self.write(name, text) for name, text in FAULTY.items()]
        self.run_script("layout", FILES=self.write("files", "\n".join(laid_out)), FOUND=self.path("found"),
                        FAULTY="\n".join(faulty), WIDE=self.write("wide.kst", WIDE),
                        PATH=os.path.dirname(kst) + os.pathsep + os.environ["PATH"])
        for path, text in laid_out.items():
            self.assertEqual(self.read(path), text)
        self.assertEqual(self.read("wide.kst"), "(progn\n  (a b))\n(progn\n")
        self.assertEqual(re.sub(r"(?m)^.*/", "", self.read("found")), FAULTS)


class Code(Words, Folder):
    """The grammar of the extension, by the packages that ./dev editors brings."""
    command = "node"
    extension = os.path.join(ROOT, "build", "vscode")

    def is_shown(self, kind, scope):
        return scope == CODE[kind] + ".kestrin"

    def run_script(self, name, **environment):
        return output("node", os.path.join(HERE, name + ".js"), EXTENSION=self.extension, **environment)

    def setUp(self):
        want(self, os.path.isdir(os.path.join(self.extension, "node_modules")), "the extension")
        super().setUp()

    def test_the_client_starts_and_ends_the_server(self):
        kst = os.path.join(OPTIONS.build, "kst")
        if "  lsp " in output(kst, "--help"):
            self.assertEqual(self.run_script("client", KST=kst), "started\nended\n")
        self.assertIn("Kestrin: `/nowhere lsp' can't be started", self.run_script("client", KST="/nowhere"))


class Vim(Editor, Folder):
    command = "vim"

    def is_shown(self, kind, group):
        return re.sub("Ahead(OfName)?$", "", group) == "kestrin" + kind.title()

    def run_script(self, name, **environment):
        folders = ",".join(os.path.join(top, "editors", "vim") for top in (ROOT, OPTIONS.build))
        return output("vim", "-es", "-u", "NONE", "-i", "NONE", "--cmd", "set runtimepath^=" + folders,
                   "-S", os.path.join(HERE, name + ".vim"), **environment)


class Emacs(Editor, Folder):
    command = "emacs"

    def is_shown(self, kind, face):
        if kind in ("note", "remark"):
            return face.startswith("font-lock-comment-")
        return face == ("font-lock-string-face" if kind == "string" else "kestrin-" + kind)

    def run_script(self, name, **environment):
        # As a package, which is how it is installed.
        shutil.copytree(os.path.join(OPTIONS.build, "editors", "emacs"), self.path("elpa/kestrin-mode-1"))
        return output("emacs", "-Q", "--batch", "-l", "package", "--eval",
                   '(setq package-directory-list \'("%s/elpa") package-user-dir "/none")' % self.folder,
                   "-f", "package-initialize", "-l", os.path.join(HERE, name + ".el"), **environment)

    def test_it_compiles_without_warnings(self):
        copy = shutil.copy(os.path.join(OPTIONS.build, "editors", "emacs", "kestrin-mode.el"), self.folder)
        output("emacs", "-Q", "--batch", "--eval", "(setq byte-compile-error-on-warn t)",
            "-f", "batch-byte-compile", copy)


# How a shell is started, what it sources, and how it tells its words.
SHELLS = {
    "bash": ("bash --norc --noprofile -i", "source {0}/kst.bash; source {0}/kestrin.bash",
             '%s() {{ echo "<$*>"; }}'),
    "zsh": ("zsh -f -i", "fpath=({0} $fpath); autoload -U compinit; compinit -u -D",
            '%s() {{ echo "<$*>"; }}'),
    "fish": ("fish --no-config -i", "source {0}/kst.fish; source {0}/kestrin.fish",
             'function %s; echo "<$argv>"; end'),
}
# What is typed ahead of the tabulator, and the words of the command then.
COMPLETED = [
    ("kst che", "check"), ("kst check --js", "check --json"), ("kst doc strtr", "doc strtran"),
    ("kst fmt --check si", "fmt --check sieve.kst"), ("kst check --cfg si", "check --cfg sieve.kst"),
    ("kst repl si", "repl si"), ("kst test --jobs si", "test --jobs si"), ("kst check strtr", "check strtr"),
    ("kst check sieve.kst --js", "check sieve.kst --json"), ("kst run --no-f", "run --no-files"),
    ("kst run sieve.kst si", "run sieve.kst sieve.kst"), ("kst run sieve.kst --no-f", "run sieve.kst --no-f"),
    ("kst run -e si", "run -e si"), ("kst run -e 1 si", "run -e 1 sieve.kst"),
    ("kst run --cfg sieve.kst -e 1 --no-f", "run --cfg sieve.kst -e 1 --no-f"),
    ("kst run --limit mem", "run --limit memory="), ("kst run --limit time=2,out", "run --limit time=2,output="),
    ("kst run --limit time=2,output=1K --no-f", "run --limit time=2,output=1K --no-files"),
    ("kst run --limit time=2 si", "run --limit time=2 sieve.kst"), ("kst trace --only strtr", "trace --only strtr"),
    ("kestrin --vers", "--versions"), ("kestrin -q si", "-q sieve.kst"), ("kestrin si", "sieve.kst"),
]


class Shells(Folder):
    FILES = {"sieve.kst": "1"}

    def complete_in(self, name):
        """What a shell in a terminal of its own says to all lines of COMPLETED."""
        start, setup, tell = SHELLS[name]
        setup = "; ".join([setup] + [tell % command for command in ("kst", "kestrin")])
        child, terminal = pty.fork()
        if child == 0:
            os.chdir(self.folder)
            words = start.split()
            os.execvpe(words[0], words, {**os.environ, "TERM": "dumb", "HOME": self.folder})
        said = b""

        def type_in(text, wanted):
            nonlocal said
            os.write(terminal, text.encode())
            since, end = len(said), time.monotonic() + 20
            while wanted not in said[since:] and time.monotonic() < end:
                if select.select([terminal], [], [], 0.1)[0]:
                    said += os.read(terminal, 65536)

        type_in(setup.format(os.path.join(OPTIONS.build, "editors", "completion")) + "; echo rea''dy\n", b"ready")
        for typed, words in COMPLETED:
            type_in(typed + "\t\n", b"<%s>" % words.encode())
        os.close(terminal)
        os.waitpid(child, 0)
        return said.decode("utf-8", "replace")

    def test_shells_complete_verbs_options_and_operands(self):
        for name in SHELLS:
            with self.subTest(shell=name):
                want(self, shutil.which(name), name)
                said = re.findall(r"<[^\n\"$]*?>", self.complete_in(name))
                for typed, words in COMPLETED:
                    self.assertIn("<%s>" % words, said, typed)


if __name__ == "__main__":
    main(__doc__, build={"type": os.path.abspath, "default": os.path.join(ROOT, "build", "release")},
         all={"action": "store_true"})

"""What the test scripts share: their options, a folder of one's own, and runs of commands."""
import argparse
import os
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
OPTIONS = argparse.Namespace()


def main(doc, *programs, **options):
    """Runs the tests of the script that calls it. OPTIONS has the path of each program, of the release
    build if no other one is given, and the options, which are told as add_argument() wants them."""
    parser = argparse.ArgumentParser(description=doc, formatter_class=argparse.RawDescriptionHelpFormatter)
    for name in programs:
        options[name] = {"type": os.path.abspath, "default": os.path.join(ROOT, "build", "release", name)}
    for name, settings in options.items():
        parser.add_argument("--" + name, **settings)
    _, rest = parser.parse_known_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1] + rest)


def is_sanitized(program):
    with open(program, "rb") as f:
        return b"__ubsan_handle" in f.read()


def kestrin():
    """It lies beside kst."""
    return os.path.join(os.path.dirname(OPTIONS.kst), "kestrin")


def run(*command, text="", **more):
    """The status of a command, what it prints and what it says on stderr."""
    sent = {} if "stdin" in more else {"input": text.encode()}
    done = subprocess.run(command, **sent, **more, check=False, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    return done.returncode, done.stdout.decode("utf-8", "replace"), done.stderr.decode("utf-8", "replace")


def output(*command, cwd=None, **environment):
    """All that a command says, which has to succeed."""
    done = subprocess.run(command, cwd=cwd, env={**os.environ, **environment}, text=True, check=False, timeout=600,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(command)}: status {done.returncode}\n{done.stdout}")
    return done.stdout


def want(test, is_there, what):
    """Leaves a test out where a tool is missing; --all: fails."""
    if not is_there and OPTIONS.all:
        test.fail(what + " is missing")
    if not is_there:
        test.skipTest(what + " is missing")


class Folder(unittest.TestCase):
    """Each test has a folder of its own, with the files of FILES in it: {name: text}."""
    FILES = {}

    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="kst-test-")
        self.addCleanup(holder.cleanup)
        self.folder = holder.name
        for name, text in self.FILES.items():
            self.write(name, text)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, text):
        """Text or bytes; the path."""
        with open(self.path(name), "wb") as f:
            f.write(text if isinstance(text, bytes) else text.encode())
        return self.path(name)

    def read(self, name):
        with open(self.path(name), encoding="utf-8") as f:
            return f.read()

    def kst(self, *words, **more):
        return run(OPTIONS.kst, *words, cwd=self.folder, **more)

#!/usr/bin/env python3
"""The tutorial archive that `kestrin -h` writes: tutorial_test.py --kestrin PATH."""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
NAME = "kst_tut.tgz"
KESTRIN = ""


class Archive(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.directory = holder.name

    def written(self, option):
        done = subprocess.run([KESTRIN, option], cwd=self.directory, capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.assertTrue(done.stdout.endswith(
            b"\n" + b"_" * 36 + b"\nWRITING TARRED GZIPPED TUTORIAL FILE `kst_tut.tgz'"
            b" (man,doc,cfg&&examples)...\n" + b"~" * 36 + b"\n"), done.stdout[-300:])
        with open(os.path.join(self.directory, NAME), "rb") as file:
            return file.read()

    def test_an_older_file_is_overwritten_whole(self):
        first = self.written("-h")
        path = os.path.join(self.directory, NAME)
        self.assertEqual(os.stat(path).st_mode & 0o133, 0)
        with open(path, "ab") as file:
            file.write(b"more")
        self.assertEqual(self.written("--help"), first)

    def test_the_same_sources_give_the_same_bytes(self):
        """Whatever the umask, the locale, the time zone and the times of the sources are."""
        for folder in ("tutorial", "extension"):
            shutil.copytree(os.path.join(ROOT, folder), os.path.join(self.directory, folder),
                            copy_function=shutil.copy)
        subprocess.run(["bash", "-c", "umask 077; tutorial/pack out"], cwd=self.directory, check=True,
                       env={**os.environ, "LANG": "C.UTF-8", "TZ": "Asia/Tokyo"})
        with open(os.path.join(self.directory, "out", NAME), "rb") as file:
            self.assertEqual(file.read(), self.written("-h"))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--kestrin", required=True)
    options, rest = parser.parse_known_args()
    KESTRIN = os.path.abspath(options.kestrin)
    unittest.main(argv=sys.argv[:1] + rest)

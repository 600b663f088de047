#!/usr/bin/env python3
"""The tutorial archive that `kestrin -h` writes: tutorial_test.py --kestrin PATH."""
import argparse
import gzip
import io
import os
import shutil
import subprocess
import sys
import tarfile
import tempfile
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
NAME = "kst_tut.tgz"
KESTRIN = ""

# Where each member comes from; the manual is joined from its chapters.
SOURCES = {
    "kestrin.man": "tutorial/kestrin.man",
    "ckst_udf.man": "tutorial/ckst_udf.man",
    "kestrin.cfg": "tutorial/kestrin.cfg",
    "kestrin.run": "tutorial/kestrin.run",
    "examples": "tutorial/examples",
    "kst_dev/include": "extension/include",
    "kst_dev/ckst_udf.cpp": "extension/ckst_udf.cpp",
    "kst_dev/examples": "extension/examples",
}


def read(path):
    with open(path, "rb") as file:
        return file.read()


def usage(directory, *words):
    return subprocess.run([KESTRIN, *words], cwd=directory, capture_output=True, check=False)


def members(archive):
    """{name: (bytes, may be executed)} of the files in a tar."""
    with tarfile.open(fileobj=io.BytesIO(archive)) as tar:
        return {m.name: (tar.extractfile(m).read(), bool(m.mode & 0o111)) for m in tar if m.isfile()}


def expected_files():
    """{name in the archive: path}"""
    files = {}
    for name, source in SOURCES.items():
        source = os.path.join(ROOT, source)
        if os.path.isfile(source):
            files[name] = source
        for folder, _, leaves in os.walk(source):
            for leaf in leaves:
                path = os.path.join(folder, leaf)
                files[os.path.join(name, os.path.relpath(path, source))] = path
    return files


class Written(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.directory = holder.name
        self.path = os.path.join(self.directory, NAME)

    def test_help_writes_the_archive_and_says_so(self):
        done = usage(self.directory, "-h")
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.assertTrue(done.stdout.endswith(
            b"\n" + b"_" * 36 + b"\nWRITING TARRED GZIPPED TUTORIAL FILE `kst_tut.tgz'"
            b" (man,doc,cfg&&examples)...\n" + b"~" * 36 + b"\n"), done.stdout[-300:])
        self.assertEqual(os.stat(self.path).st_mode & 0o133, 0)

    def test_an_older_file_is_overwritten_whole(self):
        usage(self.directory, "-h")
        first = read(self.path)
        with open(self.path, "ab") as file:
            file.write(b"more")
        usage(self.directory, "--help")
        self.assertEqual(read(self.path), first)

    def test_what_cannot_be_written_gives_no_message(self):
        os.mkdir(self.path)
        done = usage(self.directory, "-h")
        self.assertEqual((done.returncode, done.stderr), (0, b""))

    def test_usage_on_stderr_writes_nothing(self):
        for words in ((), ("-h", "x"), ("-q",)):
            self.assertEqual(usage(self.directory, *words).returncode, 1)
        self.assertEqual(os.listdir(self.directory), [])


class Contents(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with tempfile.TemporaryDirectory() as directory:
            usage(directory, "-h")
            cls.archive = read(os.path.join(directory, NAME))
        cls.files = members(cls.archive)

    def test_the_header_names_the_member(self):
        self.assertEqual(self.archive[:4], b"\x1f\x8b\x08\x08")
        self.assertEqual(self.archive[10:].split(b"\0")[0], b"kst_tut.tar")
        self.assertEqual(gzip.decompress(self.archive)[257:262], b"ustar")

    def test_members_are_the_sources(self):
        held = dict(self.files)
        held.update(members(held.pop("kst_dev.tar.xz")[0]))
        manual = held.pop("kestrin.doc")[0]
        for name, path in expected_files().items():
            with self.subTest(name):
                self.assertEqual(held.pop(name), (read(path), os.access(path, os.X_OK)))
        self.assertEqual(list(held), [])
        chapters = os.path.join(ROOT, "tutorial", "manual")
        for chapter in os.listdir(chapters):
            self.assertIn(read(os.path.join(chapters, chapter)), manual)

    def test_the_same_sources_give_the_same_bytes(self):
        """Whatever the umask, the locale, the time zone and the times of the sources are."""
        with tempfile.TemporaryDirectory() as top:
            for folder in ("tutorial", "extension"):
                shutil.copytree(os.path.join(ROOT, folder), os.path.join(top, folder),
                                copy_function=shutil.copy)
            subprocess.run(["bash", "-c", "umask 077; tutorial/pack out"], cwd=top, check=True,
                           env={**os.environ, "LANG": "C.UTF-8", "TZ": "Asia/Tokyo"})
            self.assertEqual(read(os.path.join(top, "out", NAME)), self.archive)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--kestrin", required=True)
    options, rest = parser.parse_known_args()
    KESTRIN = os.path.abspath(options.kestrin)
    unittest.main(argv=sys.argv[:1] + rest)

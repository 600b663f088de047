#!/usr/bin/env python3
"""The tutorial archive that `kestrin -h` writes: tutorial_test.py --kestrin PATH."""
import os
import shutil

from kit.scripts import OPTIONS, ROOT, Folder, main, output, run

NAME = "kst_tut.tgz"
TOLD = ("\n" + "_" * 36 + "\nWRITING TARRED GZIPPED TUTORIAL FILE `kst_tut.tgz' (man,doc,cfg&&examples)...\n"
        + "~" * 36 + "\n")


class Archive(Folder):
    def bytes_of(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def written(self, option):
        status, out, err = run(OPTIONS.kestrin, option, cwd=self.folder)
        self.assertEqual((status, err), (0, ""))
        self.assertTrue(out.endswith(TOLD), out[-300:])
        return self.bytes_of(NAME)

    def test_an_older_file_is_overwritten_whole(self):
        first = self.written("-h")
        self.assertEqual(os.stat(self.path(NAME)).st_mode & 0o133, 0)
        self.write(NAME, first + b"more")
        self.assertEqual(self.written("--help"), first)

    def test_the_same_sources_give_the_same_bytes(self):
        """Whatever the umask, the locale, the time zone, their folder and their times are."""
        folder = self.path("99_folder")
        for name in ("tutorial", "extension"):
            shutil.copytree(os.path.join(ROOT, name), os.path.join(folder, name), copy_function=shutil.copy)
        output("bash", "-c", "umask 077; tutorial/pack ..", cwd=folder, LANG="C.UTF-8", TZ="Asia/Tokyo")
        self.assertEqual(self.bytes_of(NAME), self.written("-h"))


if __name__ == "__main__":
    main(__doc__, "kestrin")

#!/usr/bin/env python3
"""Executables that kst pack makes: on a bare root, damaged, replaced, without room to be written.

  pack_test.py --kst PATH
"""
import os
import re
import resource
import shutil
import signal

from kit.scripts import OPTIONS, Folder, is_sanitized, kestrin, main, run

TELLS = '(outf "%s" (cat "[" (cat $1 "]")))\n(/ 7 $2)\n'


class Packed(Folder):
    FILES = {"it.kst": TELLS}

    def pack(self, *words, name="it", **more):
        return self.kst("pack", *words, "it.kst", "-o", name, **more)

    def test_words_and_statuses_on_a_bare_root(self):
        self.assertEqual(self.pack(), (0, "", ""))
        self.assertEqual(os.path.getsize(self.path("it")), os.path.getsize(kestrin()) + len(TELLS))
        if is_sanitized(self.path("it")):
            self.skipTest("sanitizers want /proc")
        libraries = re.findall(r"/\S+", run("ldd", self.path("it"))[1])
        for library in libraries: # nothing else lies there, /proc neither
            place = self.path("root" + library)
            os.makedirs(os.path.dirname(place), exist_ok=True)
            shutil.copy(library, place)
        shutil.move(self.path("it"), self.path("root/it"))
        enter = ["chroot"] if os.getuid() == 0 else ["unshare", "--map-root-user", "chroot"]
        if run(*enter, "/", "true")[0]:
            self.skipTest("this system lets nobody change the root")
        for words, status, out, err in (
                (["-q", "2"], 0, "[-q]3\n", ""),
                (['/etc "\\x41', "-7"], 0, '[/etc "\\x41]-1\n', ""),
                (["a", "0"], 1, "[a]", "\n[RunTimeErrCode=1] Integer division by zero!"),
                (["a"], 1, "", "/it: takes 2 words, not 1.\n")):
            done = run(*enter, self.path("root"), "/it", *words)
            self.assertEqual((done[:2], done[2][:len(err)]), ((status, out), err))

    def test_a_damaged_program_is_told(self):
        self.pack()
        with open(self.path("it"), "rb") as f:
            whole = f.read()
        damaged = (whole[:-1], whole[:-1] + b"x", whole[:-len(TELLS)])
        for data in damaged:
            self.write("it", data)
            self.assertEqual(run("./it", "a", "1", cwd=self.folder),
                             (1, "", "\nThe program in `./it' is damaged or can't be read, sorry.\n"))

    def test_what_stands_there_gives_way_only_to_a_whole_executable(self):
        os.symlink("it", self.path("link"))
        self.write("it", "before")
        room = lambda: (signal.signal(signal.SIGXFSZ, signal.SIG_IGN),
                        resource.setrlimit(resource.RLIMIT_FSIZE, (100000, 100000)))
        status, _, err = self.pack(preexec_fn=room)
        self.assertEqual((status, err[:38]), (2, "kst pack: can't write `it': File too l"))
        self.assertEqual(sorted(os.listdir(self.folder)), ["it", "it.kst", "link"])
        self.assertEqual(os.path.getsize(self.path("it")), len("before"))
        self.assertEqual(self.pack(name="link", umask=0o027)[0], 0)
        self.assertEqual(os.stat(self.path("it")).st_mode & 0o777, 0o750)
        self.assertTrue(os.path.islink(self.path("link")))
        os.unlink(self.path("it"))
        os.symlink("link", self.path("chain"))
        self.assertEqual(self.pack(name="chain"), (0, "", ""))
        self.assertFalse(os.path.islink(self.path("it")))
        self.assertEqual(run("sh", "-c", "'%s' pack it.kst -o - | cmp - it" % OPTIONS.kst, cwd=self.folder), (0, "", ""))
        os.symlink("loop", self.path("loop"))
        self.assertEqual(self.pack(name="loop")[:2], (2, ""))
        os.chmod(self.path("it"), 0o555)
        own_powers = ["setpriv", "--bounding-set=-dac_override,-fowner"] if os.getuid() == 0 else []
        self.assertEqual(run(*own_powers, OPTIONS.kst, "pack", "it.kst", "-o", "it", cwd=self.folder),
                         (2, "", "kst pack: can't write `it': Permission denied (see kst pack --help)\n"))

    def test_the_profile_and_a_stored_program_are_inside(self):
        self.write("set.cfg", "(defun half (/ $1 2))\n")
        self.write("it.kst", "(half $1)\n")
        self.assertEqual(self.pack("--cfg", "set.cfg")[0], 0)
        settings = {"KESTRIN_CFGPROFILE_path": "set.cfg"}
        run(kestrin(), "-c", "it.kst", "12", cwd=self.folder, env=settings)
        os.unlink(self.path("set.cfg"))
        self.assertEqual(run("./it", "84", cwd=self.folder), (0, "42\n", ""))
        os.rename(self.path("it.ksx"), self.path("it.kst"))
        self.assertEqual(self.pack("--cfg", "/dev/null")[0], 0)
        self.assertEqual(run("./it", cwd=self.folder), (0, "6\n", ""))
        with open(self.path("it.kst"), "r+b") as f:
            f.seek(100)
            f.write(b"?")
        self.assertEqual(self.pack(name="no")[0], 1)
        self.assertFalse(os.path.exists(self.path("no")))


if __name__ == "__main__":
    main(__doc__, "kst")

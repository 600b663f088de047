#!/usr/bin/env python3
"""Installs what a build or a Debian package holds into an empty root, and builds units there.

  install_test.py --build FOLDER [--flags "compiler flags"] [--ways cmake,make]

The units are those of the kit in the tutorial archive, which the installed program writes. They are
built by CMake (find_package) and by make (pkg-config), without the source tree, as C++17 with
warnings as errors, and their programs are run.
"""
import glob
import os
import re
import tempfile
import unittest

from kit.scripts import OPTIONS, main, output as run

INSTALLED = """
bin/kestrin
bin/kst
include/kestrin/ckst_udf.h
LIB/cmake/kestrin/kestrin-config.cmake
LIB/cmake/kestrin/kestrin-config-version.cmake
LIB/libkestrin.a
LIB/pkgconfig/kestrin.pc
share/bash-completion/completions/kestrin
share/bash-completion/completions/kst
share/fish/vendor_completions.d/kst.fish
share/vim/vimfiles/ftdetect/kestrin.vim
share/vim/vimfiles/syntax/kestrin.vim
share/doc/kestrin/changelog.gz
share/doc/kestrin/copyright
share/doc/kestrin/examples/extension/fusion.cpp
share/doc/kestrin/examples/hello.kst
share/doc/kestrin/kestrin.cfg
share/doc/kestrin/kestrin.doc
share/doc/kestrin/kestrin.run
share/kestrin/ckst_udf.cpp
share/kestrin/termcap
share/man/man1/kestrin.1.gz
share/man/man1/kst.1.gz
share/man/man1/kst-check.1.gz
share/man/man1/kst-explain.1.gz
share/man/man1/kst-doc.1.gz
share/man/man1/kst-repl.1.gz
share/man/man1/kst-run.1.gz
share/man/man3/ckst_udf.3.gz
""".split()
EXECUTABLE = """
bin/kestrin
bin/kst
share/doc/kestrin/kestrin.run
share/doc/kestrin/examples/number.kst
share/doc/kestrin/examples/extension/run_examples
""".split()
# Data, functions and a type by names that the engine uses for itself.
CLASHING = """
#include <cstdlib>
#include <string_view>
int terminal, UP, BC, PC, ospeed, stack_floor, rt_ctrl, the_engine, isa_table, engine_open;
std::string_view trimmed(std::string_view) { abort(); }
void term_init(const char *) { abort(); }
struct scratch { char *s; scratch(); ~scratch(); };
inline scratch::scratch() { abort(); }
inline scratch::~scratch() { abort(); }
void make_a_scratch() { scratch one; }
"""
DEFINED_BY_UNITS = {"startup_callback", "taskjob_end_callback", "user_io_callback"}
WARNINGS = "-Wall -Wextra -Werror"


def library_folder():
    """Below the prefix: what the build was told, and in a package what Debian's multiarch wants."""
    if OPTIONS.package:
        return "lib/" + run("c++", "-print-multiarch").strip()
    with open(os.path.join(OPTIONS.build, "CMakeCache.txt"), encoding="utf-8") as cache:
        return re.search(r"^CMAKE_INSTALL_LIBDIR:\w+=(.*)$", cache.read(), re.M)[1]


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(holder.cleanup)
        cls.top = holder.name
        if OPTIONS.package:
            run("dpkg-deb", "-x", OPTIONS.package, cls.top)
        else:
            os.umask(0o022)
            run("cmake", "--install", OPTIONS.build, "--prefix", "/usr", DESTDIR=cls.top)
        cls.prefix = os.path.join(cls.top, "usr")
        cls.libraries = os.path.join(cls.prefix, library_folder())
        cls.path = os.path.join(cls.prefix, "bin") + ":" + os.environ["PATH"]
        run("kestrin", "-h", cwd=cls.top, PATH=cls.path)
        run("tar", "xzf", "kst_tut.tgz", cwd=cls.top)
        run("tar", "xJf", "kst_dev.tar.xz", cwd=cls.top)
        cls.kit = os.path.join(cls.top, "kst_dev", "examples")
        cls.flags = f"-std=c++17 {WARNINGS} {OPTIONS.flags}"

    def run_units(self, folder):
        said = run("./run_examples", folder, cwd=self.kit, PATH=self.path)
        counted = re.search(r"(\d+) checks, 0 failed\n$", said)
        self.assertTrue(counted and int(counted[1]) > 5, said)

    def test_files_are_in_their_places(self):
        places = [os.path.join(self.libraries, name[4:]) if name.startswith("LIB/") else
                  os.path.join(self.prefix, name) for name in INSTALLED]
        self.assertEqual([name for name in places if not os.path.isfile(name)], [])

    def test_modes_are_those_of_a_system(self):
        wrong = []
        for folder, folders, files in os.walk(self.prefix):
            for path in (os.path.join(folder, name) for name in folders + files):
                runs = os.path.isdir(path) or os.path.relpath(path, self.prefix) in EXECUTABLE
                if os.stat(path).st_mode & 0o7777 != (0o755 if runs else 0o644):
                    wrong.append(path)
        self.assertEqual(wrong, [])

    def test_installed_scripts_run(self):
        documents = os.path.join(self.prefix, "share/doc/kestrin")
        os.symlink(os.path.join(documents, "kestrin.run"), os.path.join(self.top, "link"))
        with open(os.path.join(self.top, "profile.kst"), "w", encoding="utf-8") as program:
            program.write("(grouped 1234567)")
        self.assertEqual(run("./link", "-q", "profile.kst", cwd=self.top, PATH=self.path),
                         "1,234,567\n")
        self.assertEqual(run("sh", "-c", "echo one | examples/number.kst", cwd=documents,
                             PATH=self.path), "     1  one\n\n")

    def test_terminals_are_known(self):
        with open(os.path.join(self.top, "one.kst"), "w", encoding="utf-8") as program:
            program.write("1")
        said = run("kestrin", "one.kst", cwd=self.top, PATH=self.path, TERM="xterm-256color",
                   TERMCAP=os.path.join(self.prefix, "share/kestrin/termcap"))
        self.assertTrue(said.startswith("Current termcap settings:\n"), said[:300])

    def test_the_package_links_its_terminals_where_there_are_none(self):
        if not OPTIONS.package:
            self.skipTest("no package")
        scripts, etc = os.path.join(self.top, "DEBIAN"), os.path.join(self.top, "etc")
        run("dpkg-deb", "-e", OPTIONS.package, scripts)
        os.mkdir(etc)
        link = os.path.join(etc, "termcap")

        def call(script, word):
            with open(os.path.join(scripts, script), encoding="utf-8") as text:
                run("sh", "-c", text.read().replace("/etc/termcap", link), script, word)

        call("postinst", "configure")
        self.assertTrue(os.path.samefile(link, os.path.join(self.prefix, "share/kestrin/termcap")))
        call("postinst", "configure")
        call("prerm", "upgrade")
        self.assertTrue(os.path.exists(link))
        call("prerm", "remove")
        self.assertFalse(os.path.lexists(link))
        with open(link, "w", encoding="utf-8") as own:
            own.write("mine")
        call("postinst", "configure")
        call("prerm", "remove")
        self.assertEqual(os.path.getsize(link), 4)

    def build(self, unit, program):
        words = run("pkg-config", "--cflags", "--libs", "--static", "kestrin",
                    PKG_CONFIG_PATH=os.path.join(self.libraries, "pkgconfig")).split()
        run("c++", *self.flags.split(), unit, *words, "-o", program, cwd=self.top)

    def test_the_library_shows_the_published_names_alone(self):
        text = ""
        for name in glob.glob(os.path.join(self.prefix, "include/kestrin/*.h")):
            with open(name, encoding="utf-8") as header:
                text += re.sub(r"//.*", "", header.read())
        declared = re.findall(r"^(?:\[\[noreturn\]\] )?\w+ [^\n(]*?(\w+)\(", text, re.M)
        functions = set(declared) - DEFINED_BY_UNITS
        library = os.path.join(self.libraries, "libkestrin.a")
        shown = set()
        for line in run("nm", "-C", "-g", "--defined-only", library).splitlines():
            kind, name = re.match(r"\S+ (\w) (.*)|", line).groups()
            # Templates of the standard library are weak, and the same in every unit.
            if name and not (kind in "VW" and re.search("std::|__gnu_cxx::|^operator ", name)):
                shown.add(re.sub(r"\(.*", "", name))
        self.assertEqual(shown - set(re.findall(r"\w+", text)), set())
        self.assertEqual(functions - shown, set())
        self.assertGreater(len(functions), 100)

    def test_a_unit_may_have_the_engine_s_own_names(self):
        default = os.path.join(self.prefix, "share/kestrin/ckst_udf.cpp")
        with open(default, encoding="utf-8") as unit:
            text = unit.read()
        with open(os.path.join(self.top, "names.cpp"), "w", encoding="utf-8") as unit:
            unit.write(CLASHING + text)
        self.build("names.cpp", "names")
        self.assertEqual(run("./names", "-q", "examples/hello.kst", cwd=self.top),
                         "Hello, world!\n")

    def test_the_unit_of_the_manual_does_what_the_manual_says(self):
        with open(os.path.join(self.top, "kestrin.doc"), encoding="utf-8") as manual:
            section = re.search(r"\n13\.3 A complete unit\n(.*?)\n13\.4 ", manual.read(), re.S)[1]
        with open(os.path.join(self.top, "unit.cpp"), "w", encoding="utf-8") as unit:
            unit.write(re.search(r"^  //.*?^  int main[^\n]*\n", section, re.S | re.M)[0])
        self.build("unit.cpp", "unit")
        uses = re.findall(r"^  (\(.*\)) +prints (.*)$", section, re.M)
        self.assertEqual(len(uses), 2)
        for code, printed in uses:
            with open(os.path.join(self.top, "use.kst"), "w", encoding="utf-8") as program:
                program.write(code)
            said = run("./unit", "-q", "use.kst", cwd=self.top)
            self.assertEqual(said.split("\n")[0], printed)

    def test_units_build_with_cmake(self):
        if "cmake" not in OPTIONS.ways:
            self.skipTest("not asked for")
        build = os.path.join(self.top, "cmake")
        run("cmake", "-S", self.kit, "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}",
            f"-DCMAKE_CXX_FLAGS={self.flags}", "-DCMAKE_CXX_EXTENSIONS=OFF")
        run("cmake", "--build", build, "-j2")
        self.run_units(build)

    def test_units_build_with_pkg_config(self):
        if "make" not in OPTIONS.ways:
            self.skipTest("not asked for")
        build = os.path.join(self.top, "make")
        run("make", "-j2", f"OUT={build}", f"CXXFLAGS={self.flags}", cwd=self.kit,
            PKG_CONFIG_PATH=os.path.join(self.libraries, "pkgconfig"))
        self.run_units(build)

    def test_the_shell_completes_options_and_programs(self):
        usage = run("kestrin", "-h", cwd=self.top, PATH=self.path)
        options = set(re.findall(r"(?:[ \[|])(--?[a-zA-Z0-9]+)(?=[|\]\n])", usage))
        folder = os.path.join(self.prefix, "share/bash-completion/completions")
        script = ("source '{0}/{1}'; COMP_WORDS=({1} {2}); COMP_CWORD={3}; _{1};"
                  "printf '%s\\n' \"${{COMPREPLY[@]}}\"")

        def completed(words, at, command="kestrin"):
            return run("bash", "-c", script.format(folder, command, words, at), cwd=self.top,
                       PATH=self.path).split()

        self.assertEqual(set(completed("-", 1)), options)
        self.assertEqual(completed("-q examples/hel", 2), ["examples/hello.kst"])
        self.assertEqual(completed("exam", 1), ["examples"])
        self.assertEqual(completed("-h k", 2), [])
        self.assertEqual(completed("ch", 1, "kst"), ["check"])
        self.assertEqual(completed("check -", 2, "kst"), ["--help", "--cfg", "--json"])
        self.assertEqual(completed("run examples/hel", 2, "kst"), ["examples/hello.kst"])


if __name__ == "__main__":
    main(__doc__, build={"type": os.path.abspath}, package={"type": os.path.abspath},
         flags={"default": ""}, ways={"default": "cmake,make"})

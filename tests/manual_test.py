#!/usr/bin/env python3
"""Runs every example of the manual and compares what the manual says with what comes out.

  manual_test.py --kestrin PATH [FILE...]      the files, or all of tutorial/manual

An example stands in lines that begin with four blanks:

    > (iadd 20                  a program, "> " in front of each line; it runs as kestrin -q
    >       22)
    42                          what it prints, stdout and stderr together, its value last
    $ echo '(- 3 1)' >a.kst     a shell command, and what it prints; kestrin is on the path
    $ kestrin -q a.kst
    2

Blank lines of the output are left out. "..." stands for any text in a line, and a line "..." for
any number of lines. The examples of one run share a directory, which holds what the tutorial
archive holds; each program is the file "example.kst" there.
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(HERE, "golden"))
from run import ENVIRONMENT  # noqa: E402

TUTORIAL = os.path.join(os.path.dirname(HERE), "tutorial")
INDENT = "    "


def examples(path):
    """Yields (number of the first line, kind, text, expected lines)."""
    current = None
    with open(path, encoding="utf-8") as manual:
        lines = [line.rstrip("\n") for line in manual]
    for number, line in enumerate(lines + [""], 1):
        body = line[len(INDENT):] if line.startswith(INDENT) else ""
        kind = body[:1] if body[:2] in ("> ", "$ ") or body in (">", "$") else ""
        if kind == ">" and current and current[1] == ">" and not current[3]:
            current[2] += body[2:] + "\n"
        elif kind or not body.strip():
            if current:
                yield tuple(current)
            current = [number, kind, body[2:] + "\n", []] if kind else None
        elif current:
            current[3].append(body)


def pattern(expected):
    """The expected lines as an expression on the joined lines of the output."""
    parts = []
    for line in expected:
        if line.strip() == "...":
            parts.append(r"(?:.*\n)*?")
        else:
            parts.append(r"[^\n]*?".join(re.escape(p) for p in line.rstrip().split("...")) + r"\n")
    return "".join(parts)


def output(kind, text, directory, environment):
    command = ["bash", "-c", text]
    if kind == ">":
        with open(os.path.join(directory, "example.kst"), "w", encoding="utf-8") as program:
            program.write(text)
        command = ["kestrin", "-q", "example.kst"]
    done = subprocess.run(command, cwd=directory, env=environment, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60,
                          start_new_session=True)
    lines = done.stdout.decode("utf-8", "replace").split("\n")
    return "".join(line.rstrip() + "\n" for line in lines if line.strip())


def check(paths, kestrin):
    """Returns (number of examples, list of faults)."""
    count, faults = 0, []
    with tempfile.TemporaryDirectory() as top:
        directory = os.path.join(top, "tutorial")
        shutil.copytree(TUTORIAL, directory)
        environment = {**ENVIRONMENT, "HOME": top,
                       "PATH": os.path.dirname(os.path.abspath(kestrin)) + ":/usr/bin:/bin"}
        for path in paths:
            for number, kind, text, expected in examples(path):
                count += 1
                got = output(kind, text, directory, environment)
                if not re.fullmatch(pattern(expected), got):
                    faults.append(f"{path}:{number}:\n{text}-- the manual says:\n"
                                  + "".join(f"{line}\n" for line in expected)
                                  + f"-- it gives:\n{got}")
    return count, faults


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kestrin", required=True)
    parser.add_argument("files", nargs="*")
    options = parser.parse_args()
    chapters = os.path.join(TUTORIAL, "manual")
    paths = options.files or sorted(os.path.join(chapters, name) for name in os.listdir(chapters))
    count, faults = check(paths, options.kestrin)
    print("\n".join(faults), end="")
    print(f"manual: {count} examples, {len(faults)} failed")
    return 1 if faults or not count else 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Runs every example of the manual and compares what the manual says with what comes out; compares
the headings of the instruction reference with the instruction table.

  manual_test.py --kestrin PATH [FILE...]      the files, or all of tutorial/manual

An example stands in lines that begin with four blanks:

    > (iadd 20                  a program, "> " in front of each line; it runs as kestrin -q
    >       22)
    42                          what it prints, stdout and stderr together, its value last
    $ echo '(- 3 1)' >a.kst     a shell command, and what it prints; kestrin is on the path
    $ kestrin -q a.kst
    2

Blank lines of the output are left out. "..." stands for any text in a line, and a line "..." for
any number of lines. The examples of one run share a directory, in which the tutorial archive was
unpacked; each program is the file "example.kst" there.

A heading of the reference begins a line: "IADD, +    I I -> I", the names that share a handler, the
letters of the operands ("..." for any number) and of the result.
"""
import argparse
import os
import re
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(HERE, "golden"))
from run import ENVIRONMENT  # noqa: E402

ROOT = os.path.dirname(HERE)
TUTORIAL = os.path.join(ROOT, "tutorial")
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
        os.mkdir(directory)
        subprocess.run([os.path.abspath(kestrin), "-h"], cwd=directory, check=True,
                       stdout=subprocess.DEVNULL)
        subprocess.run(["tar", "xzf", "kst_tut.tgz"], cwd=directory, check=True)
        environment = {**ENVIRONMENT, "HOME": top,
                       "ASAN_OPTIONS": "check_printf=0",  # formats are the engine's business
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


def table():
    """{name: (operands, result, handler)} of the instruction table."""
    with open(os.path.join(ROOT, "frontend", "isa.def"), encoding="utf-8") as text:
        rows = re.findall(r"""^ROW\(\w+, *"(\S+)", *(-?\d+), *'(.)', *"(\S*)", *\w+, *(\w+)\)$""",
                          text.read(), re.M)
    return {name: ("..." if n == "-1" else " ".join(letters), result, handler)
            for name, n, result, letters, handler in rows}


def check_reference(text):
    """Faults of the reference's headings against the instruction table."""
    rows, seen, faults = table(), set(), []
    for heading in re.findall(r"^(\S.*?)  +(\S.*)?-> (\w)$", text, re.M):
        names = heading[0].split(", ")
        told = (heading[1].strip(), heading[2])
        for name in names:
            if name not in rows or name in seen or rows[name][:2] != told:
                faults.append(f"{name}: the manual says {told}, the table {rows.get(name)}")
            seen.add(name)
        if len({rows[name][2] for name in names if name in rows}) != 1:
            faults.append(f"{heading[0]}: not one handler")
    return faults + [f"{name}: not in the manual" for name in rows if name not in seen]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kestrin", required=True)
    parser.add_argument("files", nargs="*")
    options = parser.parse_args()
    chapters = os.path.join(TUTORIAL, "manual")
    paths = options.files or sorted(os.path.join(chapters, name) for name in os.listdir(chapters))
    count, faults = check(paths, options.kestrin)
    if not options.files:
        faults += check_reference("".join(open(path, encoding="utf-8").read() for path in paths))
    print("\n".join(faults), end="")
    print(f"manual: {count} examples, {len(faults)} failed")
    return 1 if faults or not count else 0


if __name__ == "__main__":
    sys.exit(main())

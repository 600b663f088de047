#!/usr/bin/env python3
"""What a program does when the system refuses something: faults.py [filter] [--kestrin PATH] [--most N]

  memory    each allocation of hello and of ten programs fails, once, or with all that follow: the
            program ends with status 0 and all of its output, or with status 1, a part of its output
            and a report
  files     each system call upon a file that a program writes fails: status 0 or 1
None may end by a signal. `--most` bounds the allocations that are tried for one command; those of
hello are all tried. The filter is a piece of the name of a line of the table. Findings stand behind
the table, each with the command that shows it.
"""
import argparse
import concurrent.futures
import os
import re
import shlex
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "golden"))
import run as golden  # noqa: E402

LIMIT = 30  # seconds for one run
MEMORY = ("examples/hello", "examples/words", "examples/calculator", "examples/report", "examples/sieve",
          "examples/quicksort", "examples/tree", "mapcar/nested", "heap/many_blocks", "file/written_and_read",
          "terminal/reinit")
# The engine's report, the terminal library's, and that of a program which was told of the lack.
OUT_OF_MEMORY = re.compile(rb"(out of memory|memory allocation failure)\.\n(ProcName=.*, )?PID=.*, Location=\d+\.\n"
                           rb"|^virtual memory exhausted\.\n|^\n\[RunTimeErrCode=")
SAME_TWICE = {"KESTRIN_CODE_PRINT__LINKED": "0"}  # addresses differ from run to run
FILE_CALLS = "creat,open,openat,write,close,lseek,read,fstat,newfstatat,unlink"


def case_named(name):
    return next(case for case in golden.find_cases() if case.name == name)


class Line:
    """A line of the table: how many faults were tried and how they ended."""

    def __init__(self, name):
        self.name, self.done, self.reported, self.findings = name, 0, 0, []

    def add(self, verdict, command):
        """A verdict is True for a normal end, False for a report, else what is wrong."""
        if isinstance(verdict, bool):
            self.done, self.reported = self.done + verdict, self.reported + (not verdict)
        else:
            self.findings.append("%s: %s" % (verdict, command))

    def __str__(self):
        tried = self.done + self.reported + len(self.findings)
        return "%-34s %7d %7d %9d %9d" % (self.name, tried, self.done, self.reported, len(self.findings))


class Command:
    """Words for kestrin in a folder of their own, which holds these files."""

    def __init__(self, kestrin, words, files, plan):
        self.kestrin, self.words, self.files, self.plan = kestrin, words, files, plan

    def run(self, env=(), prefix=()):
        """What came out, and the files that are new or changed."""
        with tempfile.TemporaryDirectory(prefix="kestrin-faults-") as folder:
            for name, data in self.files.items():
                golden.write(os.path.join(folder, name), data)
            process = subprocess.Popen([*prefix, self.kestrin, *self.words], cwd=folder, stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE, env={**self.plan.env, **SAME_TWICE, **dict(env)})
            try:
                out, err = process.communicate(self.plan.stdin, LIMIT)
            except subprocess.TimeoutExpired:
                process.kill()
                out, err = process.communicate()
                err = b"(time limit)"
            left = {n: golden.read(os.path.join(folder, n)) for n in sorted(os.listdir(folder))}
        outcome = golden.Outcome(out, err, process.returncode)
        outcome.written = {n: data for n, data in left.items() if self.files.get(n) != data}
        return outcome

    def shown(self, *fault):
        return shlex.join([*fault, "kestrin", *self.words])


def judged(outcome, wanted):
    if outcome.status not in (0, 1):
        return "status %d" % outcome.status
    for name, data in outcome.written.items():
        if data and data != wanted.written.get(name, data):
            return "half of a file"
    if (outcome.out, outcome.status) == (wanted.out, wanted.status):
        return True
    if outcome.status == 0:
        return "other output"
    if not OUT_OF_MEMORY.search(outcome.err):
        return "no report"
    return False if wanted.out.startswith(outcome.out) else "other output ahead of the report"


# -- Memory ---------------------------------------------------------------------------------------

def commands_of(kestrin, case):
    """The program as source, quiet and listed, stored twice, shown, and run from its file."""
    name, text = golden.source_of(case)
    plan, stored = case.plan, name[:-1] + "x"
    source, words = {name: text}, [name, *plan.args]
    for path in plan.files:
        source[os.path.basename(path)] = golden.read(path)
    store = Command(kestrin, ["-c", *words], source, plan)
    code = {**source, stored: store.run().written[stored]}
    yield from (Command(kestrin, ["-q", *words], source, plan), Command(kestrin, words, source, plan), store,
                Command(kestrin, ["-cm", *words], source, plan), Command(kestrin, ["-sd", stored], code, plan),
                Command(kestrin, ["-q", stored], code, plan))


def places(count, most):
    """All numbers up to `count`, or the first of them and some of the rest."""
    if count <= most:
        return range(1, count + 1)
    first = most * 2 // 3
    return [*range(1, first), *(first + i * (count - first) // (most - first) for i in range(most - first + 1))]


def memory(a, pool):
    library = os.path.join(a.folder, "alloc.so")
    subprocess.run(["gcc", "-O2", "-Wall", "-Werror", "-shared", "-fPIC", "-o", library,
                    os.path.join(HERE, "alloc.c")], check=True)
    for name in MEMORY:
        line, case = Line("memory " + name), case_named(name)
        if a.filter not in line.name:
            continue
        count = os.path.join(a.folder, "count")
        tries = []
        for command in commands_of(a.kestrin, case):
            wanted = command.run({"LD_PRELOAD": library, "FAULT_COUNT": count})
            most = sys.maxsize if name == MEMORY[0] else a.most
            for n in places(int(golden.read(count)), most):
                for more in ({}, {"FAULT_ON": "1"}):
                    tries.append((command, wanted, {"LD_PRELOAD": library, "FAULT_AT": str(n), **more}))
        for (command, wanted, env), outcome in zip(tries, pool.map(lambda t: t[0].run(t[2]), tries)):
            line.add(judged(outcome, wanted), command.shown("env", *("%s=%s" % v for v in env.items())))
        yield line


# -- Files ----------------------------------------------------------------------------------------

def files(a, pool):
    case = case_named("file/written_and_read")
    for option, name in (("-c", "p.ksx"), ("-cm", "p.ksx"), ("-h", "kst_tut.tgz"), ("-q", "made")):
        words, line = [option] if option == "-h" else [option, "p.kst"], Line("files " + option)
        if a.filter not in line.name:
            continue
        command = Command(a.kestrin, words, {"p.kst": golden.source_of(case)[1]}, case.plan)
        trace = os.path.join(a.folder, "trace")
        command.run(prefix=["strace", "-y", "-o", trace, "-e", "trace=" + FILE_CALLS])
        seen, tries = {}, []
        for call, rest in re.findall(r"^(\w+)\((.*)$", os.fsdecode(golden.read(trace)), re.M):
            seen[call] = seen.get(call, 0) + 1
            if name in rest:
                for error in ("EIO", "ENOSPC", "EINTR", "EMFILE"):
                    tries.append("inject=%s:error=%s:when=%d" % (call, error, seen[call]))
        run = [pool.submit(command.run, prefix=["strace", "-o", "/dev/null", "-e", t]) for t in tries]
        for fault, outcome in zip(tries, run):
            status = outcome.result().status
            line.add(status == 0 if status in (0, 1) else "status %d" % status,
                     command.shown("strace", "-e", fault))
        yield line


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("filter", nargs="?", default="")
    p.add_argument("--kestrin", default=os.path.join(golden.ROOT, "build", "release", "kestrin"))
    p.add_argument("--most", type=int, default=150)
    a = p.parse_args()
    a.kestrin = os.path.abspath(a.kestrin)
    lines = []
    with tempfile.TemporaryDirectory(prefix="kestrin-faults-") as a.folder:
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 1) as pool:
            print("%-34s %7s %7s %9s %9s" % ("", "tried", "ended", "reported", "findings"))
            for kind in (memory, files):
                for line in kind(a, pool):
                    print(line, flush=True)
                    lines.append(line)
    for line in lines:
        for finding in line.findings:
            print("FAILED %s: %s" % (line.name, finding))
    return 1 if any(line.findings for line in lines) or not lines else 0


if __name__ == "__main__":
    sys.exit(main())

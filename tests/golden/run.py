#!/usr/bin/env python3
"""Runs whole programs through kestrin and compares what comes out with what is recorded.

  run.py [filter] [--kestrin PATH] [--accept] [--jobs N] [--road ROAD] [--native 0|1|2]
         [--sanitized]

A case is <group>/<name>.kst beside this script; the filter is a piece of "group/name".
  name.out     stdout, byte for byte; without the file nothing may be printed
  name.err     stderr likewise
  name.status  exit status, 0 without the file; -N is death by signal N
  name.run     how it is run, one directive a line, # begins a comment line:
    options: -sd            options in front of the file, -q if not given; may be empty
    args: one "two words"   words behind the file, split as a shell does
    env: NAME=VALUE         added to the environment, or replaced in it
    unset: NAME             taken out of it
    stdin: text\\n           standard input, with the escapes of *.cases; else it is empty
    stdin_file: FILE        the same from a file beside the case
    file: FILE              copied from beside the case into its directory
    profile: FILE           the same, and named as the configuration profile
    run: -c name.kst        words for kestrin instead of options, file and args; may be repeated
    sh: printf x >>a        a shell command between such runs ($KESTRIN is the program)
    roads: disk             which of the other roads show the same, none if empty; else all
    native: yes             left out with --sanitized: sanitizers change what it shows
    offsets: exact          byte offsets (Dbg=) are what is shown: they are compared, too
Outputs of several steps stand one behind the other; the status is that of the last.

A *.cases file holds a case a line, "expression => expected"; blank lines and lines that begin with
; are comments. The expression runs inside (progn ...), and expected is what it prints, without the
last newline, in which \\n \\t \\\\ \\xHH are escapes, or
  !code text       a runtime error, "[RunTimeErrCode=code] text", with nothing on stdout
  !!code text      a refusal of the program, "[ErrCode=code] text"

The programs of tutorial/examples are cases of the group "examples": the program stands there, the
records stand here in examples/.

Each case runs in a directory of its own that holds a copy of the program, so that messages show the
plain file name, in a session of its own without a terminal and with a fixed environment. The last
line is for scripts: "golden: N tests, M failed".
"""
import argparse
import concurrent.futures
import difflib
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
LIMIT = 60  # seconds for one step

ENVIRONMENT = {
    "PATH": "/usr/bin:/bin",
    "TZ": "UTC",
    "TERM": "dumb",
    "TERMCAP": r"dumb:li#24:co#80:cl=\E[H\E[J:mr=\E[7m:mb=\E[5m:md=\E[1m:me=\E[m:"
               r"vi=\E[?25l:ve=\E[?25h:cm=\E[%i%d;%dH:",
}
PASSED_ON = ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "GCOV_PREFIX", "LLVM_PROFILE_FILE")

# What differs from run to run: process numbers, addresses, times, the build's description. Behind
# them, what a change of the terminal's values shifts in every program.
MASKS = [(re.compile(pattern), text) for pattern, text in (
    (rb"PID=\d+, tID=\d+", b"PID=#, tID=#"),
    (rb"\b0x[0-9a-f]{8,16}\b", b"0x#"),
    (rb"(Used by (?:process| system): )\d+\.\d{6}sec", rb"\g<1>#sec"),
    (rb"(Total used time: |Real absolute time: )\d\.\d{12}E[+-]\d+sec", rb"\g<1>#sec"),
    (rb'(Compiled (?:on|by): )"[^"]*"', rb'\g<1>"#"'),
    (rb"\bDbg=[1-9]\d*", b"Dbg=#"),
)]

ESCAPES = {b"n": b"\n", b"t": b"\t", b"\\": b"\\"}


def masked(data, exact):
    for pattern, text in MASKS[:-1] if exact else MASKS:
        data = pattern.sub(text, data)
    return data


def unescape(text):
    """Bytes with \\n, \\t, \\\\ and \\xHH resolved; any other backslash stands for itself."""
    return re.sub(rb"\\(?:x([0-9a-fA-F]{2})|([nt\\]))",
                  lambda m: bytes([int(m[1], 16)]) if m[1] else ESCAPES[m[2]], text)


def escape(data):
    data = data.replace(b"\\", b"\\\\").replace(b"\n", b"\\n").replace(b"\t", b"\\t")
    data = re.sub(rb"[\x00-\x1f]|^!|^\s|\s$", lambda m: b"\\x%02x" % m[0][0], data)
    return re.sub(rb"\\\\(?![nt\\x])(?!$)", rb"\\", data)


def read(path):
    try:
        with open(path, "rb") as f:
            return f.read()
    except FileNotFoundError:
        return b""


def write(path, data):
    """An empty record is no record."""
    if data:
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as f:
            f.write(data)
    elif os.path.exists(path):
        os.unlink(path)


class Outcome:
    """What a program did: stdout, stderr and status, masked."""

    def __init__(self, out=b"", err=b"", status=0, exact=False):
        self.out, self.err, self.status = masked(out, exact), masked(err, exact), status

    def __eq__(self, other):
        return (self.out, self.err, self.status) == (other.out, other.err, other.status)

    def is_quiet(self):
        return not self.err and not self.status

    def difference(self, wanted):
        text = diff("stdout", wanted.out, self.out) + diff("stderr", wanted.err, self.err)
        if self.status != wanted.status:
            text += "status %d, expected %d\n" % (self.status, wanted.status)
        return text


def diff(title, wanted, got):
    lines = [t.decode("utf-8", "backslashreplace").splitlines(keepends=True) for t in (wanted, got)]
    text = "".join(line if line.endswith("\n") else line + "\n\\ no newline at the end\n"
                   for line in difflib.unified_diff(*lines, title + " recorded", title + " now"))
    return text if text or wanted == got else title + " differs in line ends\n"


class Plan:
    """How a program is run: the directives of a .run file."""

    def __init__(self, text="", where=""):
        self.options, self.args, self.steps, self.files = ["-q"], [], [], []
        self.roads = list(ROADS)
        self.env, self.stdin, self.native, self.exact = dict(ENVIRONMENT), b"", False, False
        self.env.update((k, os.environ[k]) for k in PASSED_ON if k in os.environ)
        for line in text.splitlines():
            if line.strip() and not line.startswith("#"):
                key, colon, value = line.partition(":")
                directive = getattr(self, "do_" + key, None)
                if not colon or directive is None:
                    raise ValueError("no such directive: " + line)
                directive(value[1:] if value.startswith(" ") else value, where)

    def do_options(self, value, _):
        self.options = shlex.split(value)

    def do_args(self, value, _):
        self.args = shlex.split(value)

    def do_env(self, value, _):
        name, _, text = value.partition("=")
        self.env[name] = text

    def do_unset(self, value, _):
        self.env.pop(value.strip(), None)

    def do_stdin(self, value, _):
        self.stdin += unescape(os.fsencode(value))

    def do_stdin_file(self, value, where):
        with open(os.path.join(where, value.strip()), "rb") as f:
            self.stdin += f.read()

    def do_file(self, value, where):
        self.files.append(os.path.join(where, value.strip()))

    def do_profile(self, value, where):
        self.do_file(value, where)
        self.env["KESTRIN_CFGPROFILE_path"] = os.path.basename(value.strip())

    def do_run(self, value, _):
        self.steps.append(shlex.split(value))

    def do_sh(self, value, _):
        self.steps.append(value)

    def do_roads(self, value, _):
        self.roads = value.split()

    def do_native(self, value, _):
        self.native = value.strip() == "yes"

    def do_offsets(self, value, _):
        self.exact = value.strip() == "exact"


def run_step(kestrin, step, plan, folder):
    """Runs words for kestrin, or a text for the shell. The time limit ends the whole session."""
    command = ["kestrin"] + step if isinstance(step, list) else ["sh", "-c", step]
    program = kestrin if isinstance(step, list) else "/bin/sh"
    process = subprocess.Popen(command, executable=program, cwd=folder, start_new_session=True,
                               env=dict(plan.env, KESTRIN=kestrin) if program != kestrin else plan.env,
                               stdin=subprocess.PIPE if plan.stdin else subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    try:
        out, err = process.communicate(plan.stdin or None, LIMIT)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        out, err = process.communicate()
        err += b"\n(ended by the time limit of %d s)\n" % LIMIT
    return out, err, process.returncode


def run_program(kestrin, name, text, plan, keep=None):
    """Runs the plan on a program of that name and text; `keep` is a file that a later road needs."""
    with tempfile.TemporaryDirectory(prefix="kestrin-golden-") as folder:
        for source in plan.files:
            shutil.copy(source, folder)
        with open(os.path.join(folder, name), "wb") as f:
            f.write(text)
        out, err, status = b"", b"", 0
        for step in plan.steps or [plan.options + [name] + plan.args]:
            more_out, more_err, status = run_step(kestrin, step, plan, folder)
            out, err = out + more_out, err + more_err
        outcome = Outcome(out, err, status, plan.exact)
        return (outcome, read(os.path.join(folder, keep))) if keep else outcome


class ProgramCase:
    """A .kst file with its records."""

    def __init__(self, group, path, records):
        self.name = group + "/" + os.path.basename(path)[:-len(".kst")]
        self.path, self.records = path, records
        run = records + ".run"
        self.plan = Plan(os.fsdecode(read(run)), os.path.dirname(run))
        status = read(records + ".status").strip()
        self.wanted = Outcome(read(records + ".out"), read(records + ".err"), int(status or 0),
                              self.plan.exact)

    def run(self, kestrin):
        return run_program(kestrin, os.path.basename(self.path), read(self.path), self.plan)

    def accept(self, outcome):
        write(self.records + ".out", outcome.out)
        write(self.records + ".err", outcome.err)
        write(self.records + ".status", b"%d\n" % outcome.status if outcome.status else b"")


class LineCase:
    """One line of a .cases file."""

    def __init__(self, group, path, number, line):
        self.name = "%s/%s:%d" % (group, os.path.basename(path)[:-len(".cases")], number)
        self.path, self.number, self.plan = path, number, Plan()
        self.expression, arrow, expected = line.rpartition(b"=>")
        if not arrow:
            raise ValueError("%s: no => in the line" % self.name)
        self.wanted = self.outcome(expected.strip())

    @staticmethod
    def outcome(expected):
        for mark, label in ((b"!!", b"ErrCode"), (b"!", b"RunTimeErrCode")):
            if expected.startswith(mark):
                code, _, text = expected[len(mark):].partition(b" ")
                return Outcome(b"", b"\n[%s=%s] %s\n" % (label, code, unescape(text)), 1)
        return Outcome(unescape(expected) + b"\n")

    @staticmethod
    def expected(outcome):
        """The text that reads back as this outcome, or None."""
        error = re.fullmatch(rb"\n\[(RunTime)?ErrCode=(\d+)\] (.*)\n", outcome.err, re.DOTALL)
        if error:
            text = (b"!" if error[1] else b"!!") + error[2] + b" " + escape(error[3])
        else:
            text = escape(outcome.out[:-1])
        return text if LineCase.outcome(text) == outcome else None

    def run(self, kestrin):
        return run_program(kestrin, "case.kst", b"(progn " + self.expression.strip() + b")\n", self.plan)

    def accept(self, outcome):
        text = self.expected(outcome)
        if text is None:
            raise ValueError("such an outcome needs a case of its own")
        lines = read(self.path).split(b"\n")
        lines[self.number - 1] = self.expression.rstrip() + b" => " + text
        write(self.path, b"\n".join(lines))


class DiskRoad:
    """The same program stored by -c and run from its file, with nothing else at hand."""

    def __init__(self, case):
        self.case, self.name, self.plan, self.wanted = case, case.name + " (disk)", case.plan, case.wanted

    @staticmethod
    def fits(case):
        return not case.plan.steps and case.plan.options == ["-q"] and b"\n[ErrCode=" not in case.wanted.err

    def run(self, kestrin):
        store = Plan()
        store.env.update(self.plan.env)
        store.options, store.args, store.files = ["-c"], self.plan.args, self.plan.files
        name, text = source_of(self.case)
        _, stored = run_program(kestrin, name, text, store, name[:-1] + "x")
        load = Plan()
        load.env, load.stdin, load.exact = dict(self.plan.env), self.plan.stdin, self.plan.exact
        load.env.pop("KESTRIN_CFGPROFILE_path", None)
        return run_program(kestrin, name, stored, load)


class MapcarRoad:
    """The same program as a text that a running program compiles and runs."""

    def __init__(self, case):
        self.case, self.name, self.plan, self.wanted = case, case.name + " (mapcar)", case.plan, case.wanted

    @staticmethod
    def fits(case):
        plan = case.plan
        return not plan.steps and not plan.args and plan.options == ["-q"] and case.wanted.is_quiet()

    def run(self, kestrin):
        name, text = source_of(self.case)
        for byte, raw in ((b"\\", b"\\\\"), (b'"', b'\\"'), (b"\n", b"\\n"), (b"\t", b"\\t")):
            text = text.replace(byte, raw)
        outer = b'(progn (setq mapcar_road (mapcar "%s")) (outf "%%s" (index mapcar_road 0)) ' \
                b"(index mapcar_road 1))\n" % text
        return run_program(kestrin, name, outer, self.plan)


class KstRoad:
    """The same program run by kst, which stands beside kestrin and words its faults in its own way."""

    words, env = ["run"], {}

    def __init__(self, case):
        self.case, self.name, self.plan = case, case.name + " (kst)", case.plan
        self.wanted = Outcome(case.wanted.out, b"", case.wanted.status)

    @staticmethod
    def fits(case):
        steps = case.plan.steps or [case.plan.options]
        return all(isinstance(step, list) and step[:1] == ["-q"] for step in steps)

    def run(self, kestrin):
        plan = Plan()
        plan.env, plan.stdin, plan.files = {**self.plan.env, **self.env}, self.plan.stdin, self.plan.files
        plan.options, plan.args = self.words, self.plan.args
        plan.steps = [self.words + step[1:] for step in self.plan.steps]
        name, text = source_of(self.case)
        outcome = run_program(os.path.join(os.path.dirname(kestrin), "kst"), name, text, plan)
        faulty = bool(self.case.wanted.err) == bool(outcome.err)
        return Outcome(outcome.out, b"" if faulty else outcome.err + b"?", outcome.status)


class LimitsRoad(KstRoad):
    """The same within limits, of programs that need no file while they run."""

    words = ["run", "--limit", "time=50,memory=2G,output=64M", "--no-files"]
    env = {"ASAN_OPTIONS": "detect_leaks=0"} # that needs a process of its own
    FILES = re.compile(rb"file_|pwd|reinit_terminal", re.IGNORECASE)

    @staticmethod
    def fits(case):
        return KstRoad.fits(case) and not LimitsRoad.FILES.search(source_of(case)[1])


class ProfileRoad(KstRoad):
    words = ["profile", "-o", "/dev/null"]


class TraceRoad(KstRoad):
    words = ["trace", "-o", "/dev/null"]


class PackRoad:
    """The same program and kestrin in one executable, called with the words of the case."""

    @staticmethod
    def fits(case):
        return isinstance(case, ProgramCase) and DiskRoad.fits(case) # an executable is large

    def __init__(self, case):
        self.case, self.name, self.plan, self.wanted = case, case.name + " (pack)", case.plan, case.wanted

    def run(self, kestrin):
        plan = Plan()
        plan.env, plan.stdin, plan.exact = self.plan.env, self.plan.stdin, self.plan.exact
        plan.steps = [self.plan.args]
        with tempfile.TemporaryDirectory(prefix="kestrin-golden-") as folder:
            name, text = source_of(self.case)
            write(os.path.join(folder, name), text)
            for source in self.plan.files:
                shutil.copy(source, folder)
            kst = os.path.join(os.path.dirname(kestrin), "kst")
            done = subprocess.run([kst, "pack", name, "-o", "packed"], cwd=folder, env=plan.env,
                                  stderr=subprocess.PIPE, check=False)
            if done.returncode:
                return Outcome(b"", done.stderr, done.returncode)
            plan.files = self.plan.files
            return run_program(os.path.join(folder, "packed"), name, text, plan)


def source_of(case):
    if isinstance(case, LineCase):
        return "case.kst", b"(progn " + case.expression.strip() + b")\n"
    return os.path.basename(case.path), read(case.path)


ROADS = {"disk": DiskRoad, "kst": KstRoad, "limits": LimitsRoad, "profile": ProfileRoad,
         "trace": TraceRoad, "mapcar": MapcarRoad, "pack": PackRoad}


def find_cases():
    cases = []
    for folder, _, names in sorted(os.walk(HERE)):
        group = os.path.relpath(folder, HERE)
        for name in sorted(names):
            path = os.path.join(folder, name)
            if name.endswith(".kst"):
                cases.append(ProgramCase(group, path, path[:-len(".kst")]))
            elif name.endswith(".cases"):
                for number, line in enumerate(read(path).split(b"\n"), 1):
                    if line.strip() and not line.startswith(b";"):
                        cases.append(LineCase(group, path, number, line))
    examples = os.path.join(ROOT, "tutorial", "examples")
    for name in sorted(os.listdir(examples)) if os.path.isdir(examples) else ():
        if name.endswith(".kst"):
            records = os.path.join(HERE, "examples", name[:-len(".kst")])
            cases.append(ProgramCase("examples", os.path.join(examples, name), records))
    return cases


def chosen(a):
    cases = [c for c in find_cases() if a.filter in c.name and not (a.sanitized and c.plan.native)]
    if not a.road:
        return cases
    road = ROADS[a.road]
    return [road(c) for c in cases if a.road in c.plan.roads and road.fits(c)]


def settle(case, outcome, accept):
    """True if the case passes or was accepted; else says why not."""
    if outcome == case.wanted:
        return True
    print("FAILED %s\n%s" % (case.name, outcome.difference(case.wanted)), flush=True)
    if accept:
        try:
            case.accept(outcome)
            print("accepted " + case.name, flush=True)
            return True
        except ValueError as why:
            print("not accepted: %s" % why, flush=True)
    return False


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("filter", nargs="?", default="")
    p.add_argument("--kestrin", default=os.path.join(ROOT, "build", "release", "kestrin"))
    p.add_argument("--accept", action="store_true", help="record what comes out; review the change")
    p.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    p.add_argument("--road", choices=sorted(ROADS), help="run the quiet cases on another road")
    p.add_argument("--native", choices="012", help="KESTRIN_NATIVE in the environment")
    p.add_argument("--sanitized", action="store_true", help="leave out the cases marked native")
    a = p.parse_args()
    if a.accept and a.road:
        p.error("records are made on the plain road only")
    if a.native:
        ENVIRONMENT["KESTRIN_NATIVE"] = a.native
    kestrin = os.path.abspath(a.kestrin)
    if not os.access(kestrin, os.X_OK):
        p.error("no program at " + kestrin)
    cases, failed = chosen(a), 0
    with concurrent.futures.ThreadPoolExecutor(a.jobs) as pool:
        for case, outcome in zip(cases, pool.map(lambda c: c.run(kestrin), cases)):
            failed += not settle(case, outcome, a.accept)
    print("golden: %d tests, %d failed" % (len(cases), failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

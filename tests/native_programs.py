#!/usr/bin/env python3
"""Random programs answer the same without native code, with it, and with nothing but it.

  native_programs.py KESTRIN [--count N] [--seed S] [--jobs J] [--show]

Each program runs with KESTRIN_NATIVE 0, 1 and 2; output, status and messages are compared byte for
byte. A difference is shrunk and shown with its seed; status 1. The last lines tell how the programs
ended: where too few are run at all, that is a failure as well. --show writes the program of one seed.

The programs are what native code is made of: functions and loops on numbers and arrays, hot enough
to be compiled while they run, whose variables change type on the way. They end because each loop
counts its rounds in a variable of its own and each recursion its depth, and because what they cost
is counted while they are written."""
import argparse
import multiprocessing
import os
import random
import re
import resource
import subprocess
import sys
import tempfile
import time
from collections import Counter

from native_forms import ARRAYS, CONSTANTS, FAR, TABLE, VARIABLES

MODES = ("0", "1", "2")
LIMIT = 20  # seconds for one run
MEMORY = 1 << 32  # for a program that is shrunk
GOOD_ENDS = 0.9
BUDGET = 60000  # nodes that a program evaluates, as far as can be told while it is written
FUNCTION_BUDGET = 1500
MEMBERS = 4  # of each array, all assigned at the start of a body
DEPTHS = (0, 1, 2, 3, 4, 6, 10, 60, 150, 1000)
ROUNDS = (0, 1, 2, 3, 7, 20, 49, 50, 51, 52, 60, 75, 100, 120)
BODIES = ("large", "large", "small", "pure")  # without arrays, without variables


def render(tree):
    """A form is a list, all else a word; QUOTE makes its operand the text of a program."""
    if isinstance(tree, str):
        return tree
    if tree[0] == "QUOTE":
        return '"%s"' % render(tree[1]).replace("\\", "\\\\").replace('"', '\\"')
    return "(" + " ".join(map(render, tree)) + ")"


class Function:
    def __init__(self, name, takes, answers, recursive, kinds):
        self.name, self.takes, self.answers = name, takes, answers
        self.kinds = kinds  # of numbers that it takes and answers
        self.recursive, self.branches = recursive, 0  # whether, and how often, a level calls itself
        self.ways = [name]  # what it calls to call itself
        self.cost = 0  # of one level

    def calls(self, level):
        """How many levels a call makes."""
        if not self.recursive:
            return 1
        return level + 1 if self.branches == 1 else self.branches ** (level + 1)


class Scope:
    """What can be named where a form is written: the variables of one body and its arguments."""

    def __init__(self, takes, body="large"):
        self.values = {"i": "ij", "f": "fg", "s": "s", "x": "xyz"}
        if body != "large":
            self.values = {"i": "i", "f": "f", "s": "x", "x": "x"} if body == "small" else {}
        self.arrays = ARRAYS if body == "large" else {}
        self.uses = ["$%d" % n for n in range(1, len(takes) + 1)]
        self.arguments = {kind: [u for u, k in zip(self.uses, takes) if k == kind] for kind in "NA"}
        self.counters = 0
        self.loops = []  # (counter, rounds) of the loops around
        self.leave = True  # whether BREAK and EXIT may stand here
        self.function = None  # that is written

    def allows(self, rule):
        return ((self.arrays or not rule.needs_arrays) and (self.loops or not rule.needs_loop)
                and (self.leave or not rule.needs_leave)
                and (self.values or not rule.needs_variables))


class Program:
    def __init__(self, seed, faulty=(0, 0, 0, 25, 150), budget=BUDGET):
        self.dice = random.Random(seed)
        self.functions, self.names, self.texts = [], 0, 0
        self.cost, self.times, self.budget = 0, 1, budget
        self.faulty = self.pick(faulty)  # one in so many forms may fail; 0 is none
        self.scope = None

    def below(self, n):
        return int(self.dice.random() * n)

    def one_in(self, n):
        return n > 0 and self.below(n) == 0

    def pick(self, of):
        return of[self.below(len(of))]

    def affords(self, cost):
        return self.cost + self.times * cost <= self.budget

    # -- forms by rules

    def make(self, form, depth):
        if isinstance(form, list):
            return [self.make(part, depth) for part in form]
        if isinstance(form, tuple):
            return self.make(self.pick(form), depth)
        if form[0] != "%" or len(form) == 1:
            return form
        name = form[1:]
        if name in VARIABLES:
            return self.value(name, depth - 1)
        if name in self.scope.values:
            return self.pick(self.scope.values[name])
        return self.by_rule(name, depth) if name in TABLE else getattr(self, name)(depth)

    def by_rule(self, name, depth):
        self.cost += self.times
        rules, weights = TABLE[name]
        while True:
            rule = self.dice.choices(rules, weights)[0]
            if self.scope.allows(rule):
                return self.make(rule.form, depth)

    def value(self, kind, depth):
        self.cost += self.times
        if self.one_in(self.faulty):
            return self.fault(depth, kind)
        if depth <= 0 or self.one_in(5):
            return self.leaf(kind)
        return self.by_rule(kind, depth)

    def fault(self, depth, kind):
        """Mostly late in a loop, when it is hot."""
        fault = self.by_rule("fault", 1)
        return ["IF", self.sometime(depth), fault, self.leaf(kind)] if self.scope.loops else fault

    def leaf(self, kind):
        scope = self.scope
        if kind == "I" and scope.loops and self.one_in(3):
            return self.pick(scope.loops)[0]
        if scope.arguments["N"] and self.one_in(4):
            return self.pick(scope.arguments["N"])
        if self.one_in(3) or not scope.values:
            return self.constant(0, kind)
        return self.pick(scope.values["x" if self.one_in(9) else VARIABLES[kind]])

    def constant(self, _, kind="U"):
        kind = self.pick("IIIFFFSZ") if kind == "U" else kind
        return self.pick((FAR if kind in FAR and self.one_in(8) else CONSTANTS)[kind])

    # -- arrays, arguments and calls

    def a(self, _):
        of = [*self.scope.arrays, *self.scope.arguments["A"]] or self.scope.values.get("x")
        return self.pick(of or ["7"])

    def called(self, depth):
        able = [f for f in self.functions if f.answers != "A" and self.affords(f.cost)]
        return self.call_of(self.pick(able), depth) if able else self.leaf("U")

    def made_array(self, depth):
        able = [f for f in self.functions if f.answers == "A" and self.affords(f.cost)]
        return self.call_of(self.pick(able), depth) if able else "r"

    def call_of(self, f, depth):
        """At a depth of N, a function that calls itself once has N + 1 levels."""
        level = self.pick([n for n in DEPTHS if self.affords(f.cost * f.calls(n))] or [0])
        self.cost += self.times * f.cost * f.calls(level)
        given = [str(level)] if f.recursive else []
        return [f.name, *given, *self.given_to(f, depth)]

    def given_to(self, f, depth):
        """Arguments, but for the first one of what calls itself."""
        given = [self.value(self.pick(f.kinds), depth - 1) if kind == "N" else self.a(depth)
                 for kind in f.takes[f.recursive:]]
        return [self.a(depth) if self.one_in(self.faulty) else each for each in given]

    def again(self, depth):
        """A call of the function that is written, one level down."""
        f = self.scope.function
        f.branches += 1
        return [self.pick(f.ways), ["-", "$1", self.pick("112")], *self.given_to(f, depth - 1)]

    # -- statements

    def block(self, depth, most=2):
        forms = [self.by_rule("statement", depth - 1) for _ in range(1 + self.below(most))]
        return forms[0] if len(forms) == 1 and isinstance(forms[0], list) else ["PROGN", *forms]

    def inside(self, depth):
        """A statement that is an operand: what leaves can't stand in it."""
        leave, self.scope.leave = self.scope.leave, False
        form = self.by_rule("statement", depth - 1)
        self.scope.leave = leave
        return form

    def sometime(self, depth):
        """A condition that holds in one round of a loop around."""
        if not self.scope.loops:
            return self.value("I", depth)
        counter, rounds = self.pick(self.scope.loops)
        return ["==", counter, str(self.below(rounds + 2))]

    def k(self, _):
        return self.scope.loops[-1][0]

    def n(self, _):
        return str(self.scope.loops[-1][1])

    def body(self, depth):
        return self.block(depth, 4)

    def looping(self, depth):
        rounds = [n for n in ROUNDS if self.affords(n * 40 + 200)]
        if depth <= 0 or not rounds:
            return self.by_rule("small", depth)
        self.scope.counters += 1
        times, rounds = self.times, self.pick(rounds[-6:] if self.below(3) else rounds)
        self.times *= max(rounds, 1)
        self.scope.loops.append(("k%d" % self.scope.counters, rounds))
        form = self.by_rule("loop", depth)
        self.scope.loops.pop()
        self.times = times
        return form

    def tiny_text(self, depth):
        if not self.affords(2000) or self.below(4):
            return self.by_rule("small", depth)
        return self.mapcar(self.by_rule("tiny", 1))

    def mapcar(self, program):
        """What it answers, but for times and addresses."""
        self.texts += 1
        self.cost += self.times * 2000
        name = "m%d" % self.texts
        show = [["OUTF", '"|%s"', ["STR", ["INDEX", name, str(n)]]] for n in range(6)]
        again = [["SETQ", name, ["MAPCAR", ["INDEX", name, "8"]]], *show] if self.one_in(4) else []
        return ["PROGN", ["SETQ", name, ["MAPCAR", ["QUOTE", program]]], *show, *again]

    # -- bodies and functions

    def start(self):
        """Values for all variables: few programs should end at the first read."""
        forms = []
        for kind, name in VARIABLES.items():
            forms += [["SETQ", v, self.constant(0, kind)] for v in self.scope.values[name]
                      if not self.one_in(8 * self.faulty)]
        self.dice.shuffle(forms)
        for name, kind in self.scope.arrays.items():
            if kind == "U":
                forms.append(["SETQ", name, "NIL"])
            if kind == "I" and self.one_in(2):
                last = str(self.pick((MEMBERS - 1, 60, 130)))
                forms.append(["FOR", "i", "0", "1", last, ["ARSETQ", name, "i", ["*", "i", "3"]]])
            else:
                forms += [["ARSETQ", name, str(n), self.constant(0, kind)] for n in range(MEMBERS)]
        self.cost += self.times * 2 * len(forms)
        return forms

    def show(self):
        names = sorted(set("".join(self.scope.values.values())))
        forms = [["OUTF", '"%s "', ["STR", name]] for name in names]
        for name in self.scope.arrays:
            member = ["OUTF", '"%s "', ["STR", ["INDEX", name, "i"]]]
            forms.append(["FOR", "i", "0", "1", str(MEMBERS - 1), member])
        return forms

    def define(self):
        self.names += 1
        recursive, body = self.one_in(2), self.pick(BODIES)
        takes = "N" * recursive
        takes += "".join(self.pick("N" if body == "pure" else "NNNA") for _ in range(self.below(4)))
        answers = "A" if body == "large" and not recursive and self.one_in(3) else "U"
        kinds = self.pick(("I", "F", "IIFU"))
        f = Function("fn%d" % self.names, takes, answers, recursive, kinds)
        kept = self.cost, self.times, self.budget, self.scope
        self.cost, self.times, self.budget, self.scope = 10, 1, FUNCTION_BUDGET, Scope(takes, body)
        self.scope.function = f
        form = self.pure_body(f) if body == "pure" else self.function_body(f, self.pick((0, 1, 3)))
        f.cost = self.cost
        self.cost, self.times, self.budget, self.scope = kept
        self.functions.append(f)
        return ["DEFUN", f.name, form]

    def pure_body(self, f):
        if f.recursive:
            return self.recursion(f)
        first = ["PROGN", *self.scope.uses, self.value(self.pick(f.kinds), 3)]
        return ["IF", self.value("I", 2), first, self.value(self.pick(f.kinds), 3)]

    def function_body(self, f, statements):
        forms = [*self.scope.uses, *self.start()]
        forms += [self.by_rule("statement", 2) for _ in range(statements)]
        if self.one_in(8):
            word = ["EXIT"] if self.one_in(30) else ["BREAK"]
            forms.append(["IF", self.value("I", 2), word, "0"])
        if f.recursive:
            forms += self.inner(f)
            forms.append(self.recursion(f))
        else:
            forms.append("r" if f.answers == "A" else self.value(self.pick(f.kinds), 3))
        return ["PROGN", *forms]

    def inner(self, f):
        """Sometimes a function within it, through which it calls itself."""
        if self.below(3):
            return []
        uses = self.scope.uses
        f.ways.append(f.name + "in")
        deeper = [f.name, self.pick(("$1", ["--", "$1"])), *uses[1:]]
        return [["DEFUN", f.ways[1], ["IF", ["<", "$1", "1"], ["PROGN", *uses], deeper]]]

    def recursion(self, f):
        """Calls of itself as operands."""
        end = ["PROGN", *self.scope.uses, self.value(self.pick(f.kinds), 2)]
        step = self.by_rule("step", 2)
        if f.branches == 1 and self.one_in(3):
            two = [step, self.again(1)]
            step = self.pick((["+", *two], ["+.", *two], ["IF", ["<", "$1", "3"], *two]))
        return ["IF", ["<", "$1", "1"], end, step]

    def program(self, statements):
        self.scope = Scope("")
        forms = [self.define() for _ in range(self.below(5))] + self.start()
        forms += [self.by_rule("statement", 3) for _ in range(statements)]
        return [*forms, *self.show(), self.value("U", 3)]

    def text(self):
        """A program for MAPCAR: what fails in it ends nothing else."""
        inner = Program(self.dice.random(), (0, 40, 150, 400), BUDGET // 3)
        return self.mapcar(["PROGN", *inner.program(3 + self.below(4))])

    def whole(self):
        return ["PROGN", *(self.text() for _ in range(3)), *self.program(4 + self.below(6))]


# -- running, comparing, shrinking


class Runner:
    def __init__(self, kestrin, folder, limit=LIMIT):
        self.kestrin, self.limit = kestrin, limit
        self.path = os.path.join(folder, "%d.kst" % os.getpid())

    def run(self, mode):
        """(status, output, messages) of the program in the file, or None: it took too long."""
        environment = {"PATH": os.environ["PATH"], "TERM": "vt100", "KESTRIN_NATIVE": mode}
        try:
            p = subprocess.run([self.kestrin, "-q", self.path], stdin=subprocess.DEVNULL,
                               capture_output=True, timeout=self.limit, env=environment,
                               close_fds=False, check=False)
        except subprocess.TimeoutExpired:
            return None
        return p.returncode, self.plain(p.stdout), re.sub(rb"ID=\d+", b"ID=", self.plain(p.stderr))

    @staticmethod
    def plain(text):
        """Which of two NaNs an operation answers, and so its sign, is up to the processor."""
        return re.sub(rb"-(nan)", rb"\1", text, flags=re.IGNORECASE)

    def answers(self, tree, modes=MODES):
        with open(self.path, "w", encoding="ascii") as file:
            file.write(render(tree) + "\n")
        return {mode: self.run(mode) for mode in modes}


def differs(answers):
    return len(set(answers.values())) > 1


def end_of(answer):
    """How a run ended, in a word or two."""
    if answer is None:
        return "too long"
    status, _, messages = answer
    code = re.search(rb"\[(RunTime)?ErrCode=\d+\]", messages)
    if code:
        return code[0].decode()
    return "well" if status == 0 else "status %d" % status


def smaller(tree):
    """Trees with one change towards less, the largest changes first."""
    if isinstance(tree, str):
        yield from (word for word in ("0", "1") if tree not in ("0", "1"))
        return
    if tree[0] != "QUOTE":
        yield from tree[1:]
        yield "0"
    for n in range(1, len(tree)):
        if tree[0] == "PROGN" and len(tree) > 2:
            yield tree[:n] + tree[n + 1:]
    for n in range(1, len(tree)):
        yield from (tree[:n] + [less] + tree[n + 1:] for less in smaller(tree[n]))


def shrink(tree, still, seconds=40):
    """A small tree for which `still` holds as it does for this one."""
    end, progress = time.monotonic() + seconds, True
    while progress:
        progress, at = False, 0
        while True:
            for n, less in enumerate(smaller(tree)):
                if time.monotonic() > end:
                    return tree
                if n >= at and still(less):
                    tree, at, progress = less, n, True
                    break
            else:
                break
    return tree


def report(seed, kestrin, folder):
    """The shrunk program and its answers. What is cut may be the end of a loop or a recursion: time
    and memory are bounded, and what fails so without native code as well is no difference."""
    runner = Runner(kestrin, folder, 2)
    tree = Program(seed).whole()
    mode = next((m for m in MODES[1:] if differs(runner.answers(tree, ("0", m)))), None)
    if mode is None:
        return "seed %d: answers differ from run to run" % seed

    def still(less):
        answers = runner.answers(less, ("0", mode))
        return differs(answers) and None not in answers.values() and answers["0"][0] in (0, 1)

    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, resource.RLIM_INFINITY))
    tree = shrink(tree, still)
    answers = runner.answers(tree, ("0", mode))
    resource.setrlimit(resource.RLIMIT_AS, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))
    lines = ["seed %d, KESTRIN_NATIVE=%s differs from 0:" % (seed, mode), render(tree)]
    for m, answer in answers.items():
        status, output, messages = answer or (0, b"", b"It takes too long.")
        lines.append("%s: %d %s" % (m, status, (output + messages).decode("latin-1")))
    return "\n".join(lines)


def start_worker(kestrin, folder):
    check.runner = Runner(kestrin, folder)


def check(seed):
    """(seed, whether the answers differ, how it ended, how the texts in it ended)"""
    answers = check.runner.answers(Program(seed).whole())
    output = answers["0"][1] if answers["0"] else b""
    texts = [("syntax" if int(a) else "error " + b.decode() if int(b) else "well")
             for a, b in re.findall(rb"\|(\d+)\|[^|]*\|(\d+)\|", output)]
    return seed, differs(answers), end_of(answers["0"]), texts


def table(title, ends):
    total, shown = max(sum(ends.values()), 1), ends.most_common(12)
    others = total - sum(n for _, n in shown)
    shown += [("others", others)] if others else []
    print(title + ", ".join("%s %.1f %%" % (end, 100 * n / total) for end, n in shown))


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("kestrin")
    p.add_argument("--count", type=int, default=300)
    p.add_argument("--seed", type=int, default=1, help="of the first program; the next ones follow")
    p.add_argument("--jobs", type=int, default=os.cpu_count())
    p.add_argument("--most", type=int, default=3, help="differences that are shown before it ends")
    p.add_argument("--show", action="store_true", help="write the program and run nothing")
    a = p.parse_args()
    if a.show:
        print(render(Program(a.seed).whole()))
        return 0
    begin, kestrin = time.monotonic(), os.path.abspath(a.kestrin)
    ends, texts, different = Counter(), Counter(), []
    with tempfile.TemporaryDirectory() as folder:
        with multiprocessing.Pool(a.jobs, start_worker, (kestrin, folder)) as pool:
            seeds = range(a.seed, a.seed + a.count)
            for seed, differ, end, inner in pool.imap_unordered(check, seeds, 8):
                ends[end] += 1
                texts.update(inner)
                different += [seed] * differ
                if len(different) >= a.most:
                    break
        for seed in different:
            print(report(seed, kestrin, folder), flush=True)
    total = sum(ends.values())
    seconds = time.monotonic() - begin
    print("native: %d programs, %d differ, %.0f s" % (total, len(different), seconds))
    table("ends: ", ends)
    table("of texts in them: ", texts)
    good = sum(n for end, n in ends.items() if end == "well" or end.startswith("[RunTime"))
    if good < GOOD_ENDS * total:
        print("Too few programs run.")
        return 1
    return 1 if different else 0


if __name__ == "__main__":
    sys.exit(main())

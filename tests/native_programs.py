#!/usr/bin/env python3
"""Random programs answer the same without native code, with it, and with nothing but it.

  native_programs.py KESTRIN [--count N] [--seed S] [--jobs J] [--show]

Each program runs with KESTRIN_NATIVE 0, 1 and 2; output, status and messages are compared byte for
byte. A difference is shrunk and shown with its seed; status 1. The last lines tell how the programs
ended: too few good ends are a failure as well. --show writes the program of one seed.

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

MODES = ("0", "1", "2")
LIMIT = 20  # seconds for one run
MEMORY = 1 << 32  # for a program that is shrunk
GOOD_ENDS = 0.9
BUDGET = 60000  # nodes that a program evaluates, as far as can be told while it is written
FUNCTION_BUDGET = 1500
MEMBERS = 4  # of each array, all assigned at the start of a body
DEPTHS = (0, 1, 2, 3, 4, 6, 10, 60, 150, 1000)
ROUNDS = (0, 1, 2, 3, 7, 20, 49, 50, 51, 52, 60, 75, 100, 120)

INTEGERS = "0 1 2 3 4 5 7 10 63 64 65 100 127 128 -1 -2 -3 -64".split()
FAR_INTEGERS = ("2147483647 2147483648 -2147483649 4294967296 4503599627370497 4611686018427387904 "
                "9007199254740993 9223372036854775807 -9223372036854775808").split()
FLOATS = "0. 1. -1. 0.5 2.5 -0.5 3. 0.1 10. 100. -7.25".split()
FAR_FLOATS = "-0. 1e10 1e300 -1e300 1e-310 9.2233720368547758e18 4503599627370497.5 1e19".split()
TEXTS = ['""', '"x"', '"12"', '"3.5 and"', '"-1"', '"a longer text"', '" 7"']
BINARY = {"I": "+ + + - - * * & | ^ << >> IADD ISUB IMUL IAND IOR IXOR ISHL ISHR".split(),
          "F": "+. +. -. -. *. *. FADD FSUB FMUL".split()}
UNARY = {"I": "++ -- 0- IABS ~ ! IINCR INEG".split(), "F": "FABS INT ROUND COS SIN ATN EXP CAS".split()}
COMPARE = "== != < > <= >= EQUAL LESS GREATEROREQUAL".split()
INFINITE = ["*.", "1e300", "1e300"]
NOT_A_NUMBER = ["-.", INFINITE, INFINITE]
FAULTS = [["/", "1", "0"], ["%", "i", "0"], ["/.", "f", "0."], ["/.", "1", "-0."], ["SQRT", "-1."],
          ["LN", "0."], ["**", "-2.", "0.5"], "unset", ["++", "unset"], ["INDEX", "p", "500"],
          ["INDEX", "q", "-1"], ["INDEX", "r", "100"], ["INDEX", "unset", "0"], ["ARSETQ", "p", "-1", "i"],
          ["ARSETQ", "r", "0", "p"], ["ALINDEX", "p", "0"], ["ALINDEX", "q", "100"], ["RISE_ERROR"],
          ["RISE_ERROR_INFO", "20", '"raised"'], ["RISE_ERROR_INFO_DBG", "i", '"raised here"'],
          ["RISE_ERROR_INFO", "250", '""']]


def render(tree):
    """A form is a list, all else a word; QUOTE makes its operand the text of a program."""
    if isinstance(tree, str):
        return tree
    if tree[0] == "QUOTE":
        return '"%s"' % render(tree[1]).replace("\\", "\\\\").replace('"', '\\"')
    return "(" + " ".join(map(render, tree)) + ")"


def sequence(forms):
    return forms[0] if len(forms) == 1 and isinstance(forms[0], list) else ["PROGN", *forms]


class Function:
    def __init__(self, name, takes, answers, recursive):
        self.name, self.takes, self.answers = name, takes, answers
        self.recursive = recursive  # how many calls of itself a level makes
        self.cost = 0  # of a call; of one level if it is recursive


class Scope:
    """What can be named where a form is written: the variables of one body and its arguments."""

    def __init__(self, takes, small=False):
        self.values = {"I": ["i", "j"], "F": ["f", "g"], "S": ["s"], "U": ["x", "y", "z"]}
        self.arrays = {"p": "I", "q": "F", "r": "U", "t": "S"}
        if small:
            self.values, self.arrays = {"I": ["i"], "F": ["f"], "S": ["x"], "U": ["x"]}, {}
        self.arguments = {"N": [], "A": []}
        for n, kind in enumerate(takes, 1):
            self.arguments[kind].append("$%d" % n)
        self.counters = 0
        self.loops = []  # (counter, rounds) of the loops around
        self.leave = True  # whether BREAK and EXIT may stand here


class Program:
    def __init__(self, seed):
        self.dice = random.Random(seed)
        self.functions, self.names, self.texts = [], 0, 0
        self.cost, self.times, self.budget = 0, 1, BUDGET
        self.faulty = self.pick((0, 0, 0, 25, 150))  # one in so many forms may fail; 0 is none
        self.scope = None

    def below(self, n):
        return int(self.dice.random() * n)

    def one_in(self, n):
        return n > 0 and self.below(n) == 0

    def pick(self, of):
        return of[self.below(len(of))]

    def affords(self, cost):
        return self.cost + self.times * cost <= self.budget

    # -- values of a kind: Integer, Float, String, or Unknown, of any type

    def value(self, kind, depth):
        self.cost += self.times
        if self.one_in(self.faulty):
            return self.fault(kind)
        if depth <= 0 or self.one_in(5):
            return self.leaf(kind)
        if kind == "U":
            return self.unknown(depth - 1)
        return self.common(kind, depth - 1) if self.one_in(3) else getattr(self, "value_" + kind)(depth - 1)

    def fault(self, kind):
        """Mostly late in a loop, when it is hot."""
        fault = self.pick(FAULTS)
        if not self.scope.loops:
            return fault
        counter, rounds = self.pick(self.scope.loops)
        return ["IF", ["==", counter, str(self.below(rounds + 1))], fault, self.leaf(kind)]

    def leaf(self, kind):
        scope = self.scope
        if kind == "I" and scope.loops and self.one_in(3):
            return self.pick(scope.loops)[0]
        if scope.arguments["N"] and self.one_in(4):
            return self.pick(scope.arguments["N"])
        if self.one_in(3):
            return self.constant(kind)
        if self.one_in(9):
            kind = "U"
        return self.pick(scope.values[kind])

    def constant(self, kind):
        if kind == "U":
            kind = self.pick("IIIFFFSZ")
        if kind == "I":
            return self.pick(FAR_INTEGERS if self.one_in(6) else INTEGERS)
        if kind == "F":
            if self.one_in(12):
                return self.pick((INFINITE, NOT_A_NUMBER, ["PI"], ["FSUB", "0.", INFINITE]))
            return self.pick(FAR_FLOATS if self.one_in(6) else FLOATS)
        return self.pick(TEXTS) if kind == "S" else "NIL"

    def common(self, kind, depth):
        """Forms that have a value of any kind."""
        choice = self.below(9)
        if choice == 0:
            return ["IF", self.value("I", depth), self.value(kind, depth), self.value(kind, depth)]
        if choice == 1:
            return ["PROGN", self.inside(depth), self.value(kind, depth)]
        if choice <= 3:
            name = self.pick(self.scope.values[kind])
            return [self.pick(("SETQ", "ALSETQ")), name, self.value(kind, depth)]
        if choice >= 7 or choice == 4 and not self.scope.arrays:
            return self.member(kind, depth)
        return self.store(kind, depth) if choice == 4 else self.call(kind, depth)

    def inside(self, depth):
        """A statement that is an operand."""
        leave, self.scope.leave = self.scope.leave, False
        form = self.statement(depth)
        self.scope.leave = leave
        return form

    def value_I(self, depth):
        v = self.value
        choice = self.below(20)
        if choice < 7:
            return [self.pick(BINARY["I"]), v("I", depth), v("I", depth)]
        if choice < 9:
            return [self.pick(UNARY["I"]), v("I", depth)]
        if choice == 9:
            return [self.pick(("*+", "IMA")), v("I", depth), v("I", depth), v("I", depth)]
        if choice <= 11:
            return [self.pick(("/", "%", "IDIV", "IMOD")), v("I", depth), self.divisor(depth)]
        if choice <= 14:
            kind = self.pick("IIFUS")
            return [self.pick(COMPARE), v(kind, depth), v(kind if self.below(3) else "U", depth)]
        if choice <= 16:
            return [self.pick(("&&", "||", "AND", "OR")), v("I", depth), v("I", depth)]
        if choice == 17:
            return [self.pick(("IVAL", "LEN", "ASC", "INDICES", "NOT")), v("U", depth)]
        return ["+", v("U", depth), v(self.pick("UI"), depth)]

    def divisor(self, depth):
        """Never -1, by which the smallest integer can't be divided."""
        if self.one_in(3):
            return self.pick(("1", "2", "3", "8", "-2", "-7", "1000000007"))
        masked = ["&", self.value("I", depth), self.pick(("7", "63", "1048575"))]
        return masked if self.one_in(self.faulty) else ["|", masked, "1"]

    def value_F(self, depth):
        v = self.value
        choice = self.below(16)
        if choice < 6:
            return [self.pick(BINARY["F"]), v("F", depth), v("F", depth)]
        if choice < 8:
            return [self.pick(UNARY["F"]), v("F", depth)]
        if choice == 8:
            return [self.pick(("*+.", "FMA")), v("F", depth), v("F", depth), v("F", depth)]
        if choice == 9:
            return [self.pick(("/.", "FDIV")), v("F", depth), ["+.", "0.5", ["FABS", v("F", depth)]]]
        if choice == 10:
            return [self.pick(("SQRT", "FSQRT")), ["FABS", v("F", depth)]]
        if choice == 11:
            return ["LN", ["+.", "0.25", ["*.", "1.", ["&", v("I", depth), "255"]]]]
        if choice == 12:
            return ["**", ["FABS", v("F", depth)], v("F", depth)]
        if choice == 13:
            return ["FVAL", v("U", depth)]
        return [self.pick(BINARY["F"]), v("U", depth), v("I", depth)]

    def value_S(self, depth):
        choice = self.below(5)
        if choice == 0:
            return ["TYPE", self.value("U", depth)]
        if choice == 1:
            return ["SUBSTR", self.value("S", depth), "1", ["&", self.value("I", depth), "15"]]
        if choice == 2:
            return ["LEFT", ["CAT", self.value("U", depth), self.value("S", depth)], "30"]
        return ["LEFT", ["STR", self.value(self.pick("IFU"), depth)], "30"]

    def unknown(self, depth):
        choice = self.below(12)
        if choice < 3:
            return self.common("U", depth)
        if choice == 3:
            return ["IF", self.value("I", depth), self.value("U", depth), self.value(self.pick("IFS"), depth)]
        if choice == 4 and self.array_names():
            return self.pick(self.array_names())
        if choice == 5 and self.array_names():
            return ["ALINDEX", self.pick(self.array_names()), self.pick(("1", "2", "4"))]
        return self.value(self.pick("IIIFFS"), depth)

    # -- arrays, arguments and calls

    def array_names(self):
        return list(self.scope.arrays) + self.scope.arguments["A"]

    def index(self, depth):
        if self.one_in(4 * self.faulty):
            return self.pick(("-1", "4", "127", "128", "1.9", '"3"', "NIL", "x", ["&", "i", "255"]))
        if self.one_in(2):
            return str(self.below(MEMBERS))
        return [self.pick(("&", "IAND")), self.value("I", depth), str(MEMBERS - 1)]

    def member(self, kind, depth):
        kinds = self.scope.arrays
        of_kind = [a for a in kinds if kinds[a] == kind]
        if self.one_in(8) or not self.array_names():
            return ["INDEX", self.pick(self.scope.values["U"]), "0"]
        if not of_kind or self.one_in(3):
            of_kind = self.array_names()
        return ["INDEX", self.pick(of_kind), self.index(depth)]

    def store(self, kind, depth):
        kinds = self.scope.arrays
        if self.one_in(self.faulty):
            name = self.pick(list(kinds) + self.scope.values["U"])
            return ["ARSETQ", name, self.index(depth), self.value("U", depth)]
        name = self.pick([a for a in kinds if kinds[a] == kind])
        if kind == "U":  # an array can't be member 0
            at = ["+", "1", ["&", self.value("I", depth), "3"]]
            return ["ARSETQ", name, at, self.value("U", depth)]
        proved = {"I": ["+", "0", self.value(kind, depth)], "F": ["+.", "0.", self.value(kind, depth)],
                  "S": ["LEFT", self.value(kind, depth), "30"]}
        return ["ARSETQ", name, self.index(depth), proved[kind]]

    def call(self, kind, depth):
        able = [f for f in self.functions if f.answers != "A" and self.affords(f.cost)]
        if not able:
            return self.leaf(kind)
        return self.call_of(self.pick(able), depth)

    def call_of(self, f, depth):
        arguments = []
        if f.recursive:
            calls = {n: n + 1 if f.recursive == 1 else 2 ** (n + 1) for n in DEPTHS}
            level = self.pick([n for n in DEPTHS if self.affords(f.cost * calls[n])] or [0])
            self.cost += self.times * f.cost * calls[level]
            arguments.append(str(level))
        else:
            self.cost += self.times * f.cost
        for kind in f.takes[len(arguments):]:
            arguments.append(self.argument(kind, depth))
        return [f.name, *arguments]

    def argument(self, kind, depth):
        if kind == "A":
            return self.pick(self.array_names() or self.scope.values["U"])
        if self.one_in(4):
            return self.member("U", depth) if self.one_in(2) else self.pick(self.scope.values["U"])
        return self.value(self.pick("IIFU"), depth)

    # -- statements

    def statement(self, depth):
        self.cost += self.times
        if depth > 0 and self.affords(300):
            if self.one_in(6):
                return self.loop(depth - 1)
            if self.affords(2000) and self.one_in(40):
                return self.mapcar(self.tiny_program())
        choice = self.below(16)
        if choice < 5:
            kind = self.pick("IIFFUUS")
            return ["SETQ", self.pick(self.scope.values[kind]), self.value(kind, 3)]
        if choice < 8 and self.scope.arrays:
            return self.store(self.pick("IIFFUS"), 2)
        if choice == 8:
            return self.output()
        if choice == 9 and self.scope.loops:
            counter, rounds = self.pick(self.scope.loops)
            return ["IF", ["==", counter, str(self.below(rounds + 1))], self.change(), self.small_statement()]
        if choice == 10 and self.scope.leave and self.scope.loops:
            return self.departure()
        if choice == 11:
            return ["IF", self.value("I", 2), self.block(depth - 1, 2), self.block(depth - 1, 2)]
        if choice == 12:
            return self.accumulate()
        if choice == 13 and self.scope.arrays:
            return self.whole_array()
        if choice == 14 and self.one_in(4):
            return ["SET_ERROR_INFO", self.value("I", 1), self.value("S", 1)]
        return self.call("U", 2)

    def small_statement(self):
        return self.accumulate() if self.one_in(2) else ["SETQ", self.pick(self.scope.values["U"]), self.value("U", 1)]

    def accumulate(self):
        kind = self.pick("IF")
        name = self.pick(self.scope.values[kind if self.below(4) else "U"])
        return ["SETQ", name, [self.pick(BINARY[kind]), name, self.value(kind, 2)]]

    def change(self):
        """A variable gets another type in the middle of a loop."""
        name = self.pick(self.scope.values["U"])
        whole = self.pick(self.array_names() or [name])
        return self.pick((["SETQ", name, self.constant("U")], ["SETQ", name, whole],
                          ["ALSETQ", name, self.value("U", 2)], ["ARSETQ", name, "0", self.constant("U")]))

    def departure(self):
        word = ["EXIT"] if self.one_in(40) else ["BREAK"]
        if self.one_in(3):
            word = ["PROGN", self.small_statement(), word]
        counter, rounds = self.pick(self.scope.loops)
        when = ["==", counter, str(self.below(rounds + 2))] if self.below(3) else [">", counter, self.value("I", 2)]
        return ["IF", when, word, "0"] if self.one_in(2) else ["IF", ["!", when], self.small_statement(), word]

    def whole_array(self):
        able = [f for f in self.functions if f.answers == "A" and self.affords(f.cost)]
        if able and self.one_in(2):
            return ["SETQ", "r", self.call_of(self.pick(able), 2)]
        if self.one_in(2):
            low, high = self.index(1), self.index(1)
            return ["PROGN", ["SETQ", "i", ["INDEX", "p", low]],
                    ["ARSETQ", "p", low, ["+", "0", ["INDEX", "p", high]]], ["ARSETQ", "p", high, "i"]]
        return ["SETQ", "x", self.pick(self.array_names())]

    def output(self):
        return self.pick((["OUTF", '"%s,"', ["STR", self.value("U", 2)]],
                          ["OUTF", '"%ld,"', ["+", "0", self.value("I", 2)]],
                          ["OUTF", '"%g,"', ["+.", "0.", self.value("F", 2)]]))

    def block(self, depth, most):
        return sequence([self.statement(depth) for _ in range(1 + self.below(most))])

    def loop(self, depth):
        scope = self.scope
        scope.counters += 1
        counter = "k%d" % scope.counters
        able = [n for n in ROUNDS if self.affords(n * 40)]
        rounds = self.pick(able[-6:] if self.below(3) else able)
        scope.loops.append((counter, rounds))
        times, self.times = self.times, self.times * max(rounds, 1)
        shape = self.below(5)
        if shape <= 1:
            form = self.plain_for(counter, rounds, depth)
        elif shape == 2 and scope.leave:
            form = self.odd_for(counter, rounds, depth)
        else:
            form = self.while_loop(counter, rounds, depth)
        self.times = times
        scope.loops.pop()
        return form

    def plain_for(self, counter, rounds, depth):
        body = self.block(depth, 4)
        step = self.pick((1, 1, 1, 2, -1, -3, 7))
        start = self.pick((0, 0, 1, 1, -5, 100, rounds))
        end = start + step * (rounds - 1)
        if self.one_in(4):
            return ["FOR", counter, str(start), self.pick((str(step), "%d." % step, '"%d"' % step)),
                    self.pick((["+", str(end), "0"], "%d.75" % end if end > 0 else str(end))), body]
        return ["FOR", counter, str(start), str(step), str(end), body]

    def odd_for(self, counter, rounds, depth):
        """Any variable counts, the body may change it, the step and the end: BREAK bounds it."""
        name = self.pick(self.pick((self.scope.values["I"], self.scope.values["U"], [counter + "v"])))
        step = self.value("I", 2) if self.one_in(3) else self.pick(("1", "-1", "2", "j", "0"))
        end = self.pick((self.value("U", 2), str(rounds), str(-rounds), "x"))
        start = self.value(self.pick("IU"), 1)
        bound = [["SETQ", counter, ["++", counter]], ["IF", [">", counter, str(rounds)], ["BREAK"], "0"]]
        change = [["SETQ", name, self.value("I", 1)]] if self.one_in(3) else []
        return ["PROGN", ["SETQ", counter, "0"],
                ["FOR", name, start, step, end, ["PROGN", *bound, self.block(depth, 3), *change]]]

    def while_loop(self, counter, rounds, depth):
        more = ["<", counter, str(rounds)]
        start, count = "0", [["SETQ", counter, ["++", counter]]]
        shape = self.below(5)
        if shape == 0:
            more = ["&&", more, self.value("I", 2)]
        elif shape == 1:
            more = ["PROGN", self.inside(0), more]
        elif shape == 2:
            start, more, count = str(rounds + 1), ["SETQ", counter, ["--", counter]], []
        elif shape == 3:
            more, count = ["<=", ["SETQ", counter, ["++", counter]], str(rounds)], []
        body = [*count, self.block(depth, 4)]
        if self.one_in(2):
            body.reverse()
        return ["PROGN", ["SETQ", counter, start], ["WHILE", more, sequence(body)]]

    def mapcar(self, program):
        """What it answers but for times and addresses."""
        self.texts += 1
        self.cost += self.times * 2000
        name = "m%d" % self.texts
        show = [["OUTF", '"<%s"', ["INDEX", name, "0"]]]
        show += [["OUTF", '"|%s"', ["STR", ["INDEX", name, str(n)]]] for n in (1, 2, 3, 4, 5)]
        run = [["SETQ", name, ["MAPCAR", ["QUOTE", program]]], *show]
        if self.one_in(4):
            run += [["SETQ", name, ["MAPCAR", ["INDEX", name, "8"]]], *show]
        return ["PROGN", *run, ["OUTF", '">%s"', '"\\n"']]

    def tiny_program(self):
        number = ["SETQ", "a", [self.pick(BINARY["I"] + BINARY["F"]), "a", self.pick(("k", "b"))]]
        end = self.pick(("a", "b", ["/", "b", "0"], ["/.", "a", "0."], ["SQRT", "-1"]))
        return ["PROGN", ["SETQ", "a", self.constant("U")], ["SETQ", "b", self.constant("I")],
                ["FOR", "k", "1", "1", str(self.pick(ROUNDS)), number], end]

    # -- bodies and functions

    def start(self):
        """Values for all variables: few programs should end at the first read."""
        values, members = [], []
        for kind, names in self.scope.values.items():
            values += [["SETQ", name, self.constant(kind)] for name in names if not self.one_in(8 * self.faulty)]
        for name, kind in self.scope.arrays.items():
            if kind == "U":
                values.append(["SETQ", name, "NIL"])
            if kind == "I" and self.one_in(2):
                last = str(self.pick((MEMBERS - 1, 60, 130)))
                members.append(["FOR", "i", "0", "1", last, ["ARSETQ", name, "i", ["*", "i", "3"]]])
                continue
            constants = [self.pick(FLOATS) if kind == "F" else self.constant(kind) for _ in range(MEMBERS)]
            members += [["ARSETQ", name, str(n), constant] for n, constant in enumerate(constants)]
        self.dice.shuffle(values)
        self.cost += self.times * 2 * len(values + members)
        return values + members

    def show(self):
        names = [name for kind in "IFSU" for name in self.scope.values[kind]]
        forms = [["OUTF", '"%s "', ["STR", name]] for name in names]
        for name in self.scope.arrays:
            member = ["OUTF", '"%s "', ["STR", ["INDEX", name, "i"]]]
            forms.append(["FOR", "i", "0", "1", str(MEMBERS - 1), member])
        return forms

    def define(self):
        self.names += 1
        recursive = self.pick((0, 0, 1, 1, 2))
        takes = ["N"] * (recursive > 0) + [self.pick("NNNA") for _ in range(self.below(4))]
        small = self.one_in(2 if recursive else 3)
        f = Function("fn%d" % self.names, takes, self.pick("UUU" if small or recursive else "UUA"), recursive)
        kept = self.cost, self.times, self.budget, self.scope
        self.cost, self.times, self.budget, self.scope = 0, 1, FUNCTION_BUDGET, Scope(takes, small)
        uses = ["$%d" % n for n in range(1, len(takes) + 1)]
        forms = uses + self.start() + [self.statement(2) for _ in range(self.below(2 if small else 4))]
        if self.one_in(8):
            forms.append(["IF", self.value("I", 2), ["EXIT"] if self.one_in(30) else ["BREAK"], "0"])
        forms += self.recursion(f, uses) if recursive else ["r" if f.answers == "A" else self.value("U", 3)]
        f.cost = self.cost + 10
        self.cost, self.times, self.budget, self.scope = kept
        self.functions.append(f)
        return ["DEFUN", f.name, ["PROGN", *forms]]

    def recursion(self, f, uses):
        """Calls of itself as operands, some through a function within it."""
        at_end = ["<", "$1", "1"]
        name, forms = f.name, []
        if self.one_in(3):
            name += "in"
            deeper = [f.name, self.pick(("$1", ["--", "$1"])), *uses[1:]]
            forms = [["DEFUN", name, ["IF", at_end, ["PROGN", *uses], deeper]]]
        calls = []
        for _ in range(f.recursive):
            passed = [self.argument(kind, 1) for kind in f.takes[1:]]
            calls.append([self.pick((name, f.name)), ["-", "$1", "1"], *passed])
        other = calls[1] if len(calls) > 1 else self.value("U", 1)
        step = self.pick((["+", *calls[:1], other], ["+.", other, calls[0]], ["*+", calls[0], "3", other],
                          ["IF", ["<", calls[0], other], "$1", "x"], ["PROGN", ["SETQ", "x", calls[0]], other],
                          ["SUBSTR", calls[0], "1", other]))
        if len(calls) == 1 and self.one_in(3):
            step = calls[0]
        return [*forms, ["IF", at_end, self.value("U", 2), step]]

    def body(self, statements):
        self.scope = Scope([])
        forms = [self.define() for _ in range(self.below(5))] + self.start()
        return forms + [self.statement(3) for _ in range(statements)]

    def text(self):
        """A program for MAPCAR: what fails in it ends nothing else."""
        inner = Program(self.dice.random())
        inner.budget, inner.faulty = BUDGET // 3, self.pick((0, 40, 150, 400))
        return ["PROGN", *inner.body(3 + self.below(4)), *inner.show(), inner.value("U", 3)]

    def whole(self):
        forms = self.body(4 + self.below(6))
        return ["PROGN", *forms, *(self.mapcar(self.text()) for _ in range(3)), *self.show(), self.value("U", 3)]


# -- running, comparing, shrinking


class Runner:
    def __init__(self, kestrin, folder, limit=LIMIT):
        self.kestrin, self.limit = kestrin, limit
        self.path = os.path.join(folder, "%d.kst" % os.getpid())

    def run(self, mode):
        """(status, output, messages) of the program in the file, or None: it took too long."""
        environment = {"PATH": os.environ["PATH"], "TERM": "vt100", "KESTRIN_NATIVE": mode}
        try:
            p = subprocess.run([self.kestrin, "-q", self.path], stdin=subprocess.DEVNULL, capture_output=True,
                               timeout=self.limit, env=environment, close_fds=False, check=False)
        except subprocess.TimeoutExpired:
            return None
        return p.returncode, p.stdout, re.sub(rb"ID=\d+", b"ID=", p.stderr)

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


def shrink(tree, still, seconds=120):
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
    """The shrunk program and its answers. What is cut may be the end of a recursion: memory is bounded,
    and what dies without native code as well is no difference."""
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
        lines += ["%s: %s" % (m, part if isinstance(part, int) else part.decode("latin-1")) for part in answer or ("too long",) if part != b""]
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
    total = max(sum(ends.values()), 1)
    print(title + ", ".join("%s %.2f %%" % (end, 100 * n / total) for end, n in ends.most_common()))


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
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
    ends, texts, different, begin = Counter(), Counter(), [], time.monotonic()
    kestrin = os.path.abspath(a.kestrin)
    with tempfile.TemporaryDirectory() as folder:
        with multiprocessing.Pool(a.jobs, start_worker, (kestrin, folder)) as pool:
            for seed, differ, end, inner in pool.imap_unordered(check, range(a.seed, a.seed + a.count), 8):
                ends[end] += 1
                texts.update(inner)
                if differ:
                    different.append(seed)
                if len(different) >= a.most:
                    break
        for seed in different:
            print(report(seed, kestrin, folder), flush=True)
    print("native: %d programs, %d differ, %.0f s" % (sum(ends.values()), len(different), time.monotonic() - begin))
    table("ends: ", ends)
    table("of texts in them: ", texts)
    good = sum(n for end, n in ends.items() if end == "well" or end.startswith("[RunTime"))
    if good < GOOD_ENDS * sum(ends.values()):
        print("Too few programs run.")
    return 1 if different or good < GOOD_ENDS * sum(ends.values()) else 0


if __name__ == "__main__":
    sys.exit(main())

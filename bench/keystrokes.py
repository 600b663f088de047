#!/usr/bin/env python3
"""How long after a keystroke the language server tells the faults, in a program of 2,000 lines.

  keystrokes.py --kst PATH [--strokes N]

A program is made, and forms are typed into it at places all over it, taken back key by key, and
lines are torn apart and joined. Each key is one change; the next one follows when its faults are told.
"""
import argparse
import os
import random
import statistics
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "tests", "lsp"))
from lsp_client import Client  # noqa: E402

FUNCTION = """# Sums up to a bound, number {0}.
(defun sum_{0}
  (progn
    (setq total 0)
    (for k 1 1 $1
      (if (== (% k {1}) 0)
        (setq total (+ total (* k {0})))
        (setq text (cat "step " (str k)))))
    total))
"""
TYPED = ['(setq x (+ total 1))', '(outf "%ld items, or so" total)', '(if (> total 3) (setq y 1) (setq y 2))',
         '# a remark (of sorts)', '(for i 1 1 9 (progn (setq z (* i i)) (outf "%ld" z)))', '(nosuch total "x")']


def program(lines):
    count = lines // 10
    calls = ["  (setq grand (+ grand (sum_%d 10)))" % i for i in range(count)]
    calls = calls[:lines - 9 * count - 3]
    text = "\n".join(FUNCTION.format(i, i % 7 + 2).rstrip("\n") for i in range(count))
    return text + "\n(progn (setq grand 0)\n" + "\n".join(calls) + '\n  (outf "%ld\\n" grand) grand)\n'


def strokes(lines, dice):
    """Endless changes, as (line, first character, last character, text)."""
    while True:
        line, typed = dice.randrange(len(lines) - 1), dice.choice(TYPED)
        begin = len(lines[line])
        yield line, begin, begin, "\n    "
        for i, key in enumerate(typed):
            yield line + 1, 4 + i, 4 + i, key
        for i in range(len(typed), 0, -1):
            yield line + 1, 3 + i, 4 + i, ""
        yield line + 1, 0, 4, ""
        yield line, begin, None, ""
        cut = dice.randrange(begin + 1)  # a key in the middle of what is there
        yield line, cut, cut, dice.choice('()"x')
        yield line, cut, cut + 1, ""


def processor_time(client):
    """Milliseconds that the server has run, which other work on the machine does not prolong."""
    with open("/proc/%d/schedstat" % client.server.pid, encoding="ascii") as file:
        return int(file.read().split()[0]) / 1e6


def summary(name, times):
    times = sorted(times)
    return "%-15s median %.1f ms, mean %.1f, 90 %% %.1f, 99 %% %.1f, longest %.1f" % (
        name, statistics.median(times), statistics.mean(times), times[len(times) * 90 // 100],
        times[len(times) * 99 // 100], times[-1])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kst", default="build/release/kst")
    parser.add_argument("--lines", type=int, default=2000)
    parser.add_argument("--strokes", type=int, default=2000)
    options = parser.parse_args()
    text = program(options.lines)
    client = Client(options.kst, capabilities={"general": {"positionEncodings": ["utf-8"]}})
    client.open(text)
    client.diagnostics(1)
    elapsed, used, longest = [], [], []
    for version, (line, begin, end, key) in enumerate(strokes(text.split("\n"), random.Random(1)), 2):
        last = {"line": line + 1, "character": 0} if end is None else {"line": line, "character": end}
        start, ran = time.perf_counter(), processor_time(client)
        client.change(version, {"range": {"start": {"line": line, "character": begin}, "end": last}, "text": key})
        client.diagnostics(version)
        elapsed.append(1000 * (time.perf_counter() - start))
        used.append(processor_time(client) - ran)
        if used[-1] == max(used):
            longest = [line + 1, begin + 1, key]
        if len(used) >= options.strokes:
            break
    client.end()
    print("%d lines, %d keystrokes" % (text.count("\n"), len(used)))
    print(summary("elapsed", elapsed))
    print(summary("processor", used))
    print("most of it: %d:%d %r" % tuple(longest))


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Times Kestrin against the languages a user would take instead.

  run.py --kestrin PATH            all benchmarks, Kestrin and all peers found
  run.py                           the peers alone
  run.py --kestrin-cmd 'CMD' --check   only check the Kestrin programs, at small sizes
  --only a,b  --peers a,b  --rounds N  --quick  --probes  --json FILE
  --metric median|min  --clock cpu|wall  --markdown  --load FILE

Every program takes its size as the one argument. All systems run the same
size in turn, round after round, so that a busy machine hits them alike; what
is compared are the medians (or minima) of those rounds. Before timing, the
output of every system is compared with the majority's: the first line, or for
`dump' all the lines that it is to print."""
import argparse
import hashlib
import json
import math
import os
import shlex
import shutil
import statistics
import subprocess
import sys
import tempfile
from collections import Counter

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import gen_source  # noqa: E402

# name: (full, quick, small for --check)
SIZES = {
    "fib": (35, 27, 12),
    "tak": (300, 8, 1),
    "ack": (10, 6, 2),
    "sum": (100000000, 5000000, 300),
    "collatz": (200000, 10000, 30),
    "mandel": (850, 120, 6),
    "nbody": (250000, 20000, 3),
    "spectral": (1000, 120, 6),
    "sieve": (5000000, 500000, 200),
    "matmul": (300, 90, 6),
    "lcs": (6000, 1500, 20),
    "permute": (9, 8, 4),
    "queens": (12, 9, 5),
    "life": (250, 80, 5),
    "bignum": (8000, 2000, 30),
    "strings": (5000, 1000, 2),
    "tokens": (2500, 300, 1),
    "scan": (2500, 200, 1),
    "append": (1000000, 100000, 10),
    "list": (3000000, 200000, 100),
    "sort": (500000, 40000, 40),
    "tree": (5000, 400, 1),
    "pair": (3000000, 300000, 10),
    "eval": (300000, 50000, 5),
    "recall": (300000, 50000, 5),
    "hello": (0, 0, 0),
    "compile100k": (600, 600, 3),
    "compile1m": (6000, 2000, 6),
    "dump": (1000000, 200000, 20),
    "format": (1000000, 200000, 20),
}
REPEAT = {"hello": 20, "compile100k": 5}  # runs folded into one sample
GENERATED = ("compile100k", "compile1m")
NO_ARGUMENT = ("hello",) + GENERATED
PROBE_DEPTHS = (1000, 10000, 100000, 1000000)
PROBE_INTS = 10000000


def find_python():
    """The system's own interpreter where there is one: version managers' wrappers and
    their crowded package folders cost more than some of the programs."""
    return "/usr/bin/python3" if os.path.exists("/usr/bin/python3") else os.path.realpath(sys.executable)


class System:
    def __init__(self, name, ext, command, alternatives=()):
        self.name, self.ext, self.command, self.alternatives = name, ext, command, alternatives

    def source(self, folder, bench):
        for ext in tuple(self.alternatives) + (self.ext,):
            path = os.path.join(folder, bench + "." + ext)
            if os.path.exists(path):
                return path
        return None


class Bench:
    def __init__(self, args):
        self.args = args
        self.tmp = tempfile.mkdtemp(prefix="kestrin-bench-")
        self.env = dict(os.environ, XDG_CACHE_HOME=os.path.join(self.tmp, "cache"))
        self.measure = os.path.join(self.tmp, "measure")
        subprocess.run(["gcc", "-O2", os.path.join(HERE, "measure.c"), "-o", self.measure], check=True)
        self.systems = self.find_systems()
        self.built = {}

    def find_systems(self):
        a, found = self.args, []
        if a.kestrin:
            found.append(System("kestrin", "kst", [os.path.abspath(a.kestrin), "-q"]))
        elif a.kestrin_cmd:
            found.append(System("kestrin", "kst", shlex.split(a.kestrin_cmd) + ["-q"]))
        peers = [
            System("C", "c", None),
            System("lua5.4", "lua", ["lua5.4"]),
            System("luajit", "lua", ["luajit"], ("luajit",)),
            System("luajit-joff", "lua", ["luajit", "-joff"], ("luajit",)),
            System("python3", "py", [find_python()]),
            System("perl", "pl", ["perl"]),
            System("newlisp", "lsp", ["newlisp", "-s", "10000000"]),
            System("tcl", "tcl", ["tclsh"]),
            System("guile", "scm", ["guile"]),
            System("picolisp", "l", ["picolisp"]),
            System("gawk", "awk", ["gawk", "-f"]),
            System("mawk", "awk", ["mawk", "-f"]),
        ]
        wanted = a.peers.split(",") if a.peers else None
        for p in peers:
            if wanted is not None and p.name not in wanted:
                continue
            if p.command and not shutil.which(p.command[0]):
                print("not installed, left out: " + p.name, file=sys.stderr)
                continue
            found.append(p)
        return found

    def command(self, system, folder, bench, size):
        """The command line, or None where the system has no such program."""
        if bench in GENERATED:
            if system.ext not in gen_source.GROUP:
                return None
            path = os.path.join(self.tmp, "%s-%d.%s" % (bench, size, system.ext))
            if not os.path.exists(path):
                with open(path, "w") as f:
                    f.write(gen_source.source(system.ext, size))
        else:
            path = system.source(folder, bench)
            if path is None:
                return None
        if system.name == "C":
            exe = self.built.get(path)
            if exe is None:
                exe = os.path.join(self.tmp, bench + ".exe")
                subprocess.run(["gcc", "-O2", path, "-o", exe, "-lm"], check=True)
                self.built[path] = exe
            cmd = [exe]
        elif system.name == "guile" and bench in GENERATED:
            cmd = system.command + ["--no-auto-compile", path]
        else:
            cmd = system.command + [path]
        return cmd if bench in NO_ARGUMENT else cmd + [str(size)]

    def run(self, cmd, count=1, out=None, limit=None):
        """Returns (wall, cpu, rss in kB, status) of a command, times in seconds."""
        report = os.path.join(self.tmp, "report")
        if os.path.exists(report):
            os.unlink(report)
        sink = open(out, "wb") if out else subprocess.DEVNULL
        err = open(os.path.join(self.tmp, "stderr"), "wb")
        p = subprocess.Popen([self.measure, report, str(count)] + cmd, stdin=subprocess.DEVNULL, stdout=sink,
                             stderr=err, env=self.env, start_new_session=True)
        try:
            p.wait(limit)
        except subprocess.TimeoutExpired:
            os.killpg(p.pid, 9)  # the session this very call has started
            p.wait()
            return None
        finally:
            err.close()
            if out:
                sink.close()
        if not os.path.exists(report):
            return None
        w, u, s, rss, status = open(report).read().split()
        return float(w) / 1e6, (float(u) + float(s)) / 1e6, int(rss), int(status)

    def answer(self, path, bench, size):
        with open(path, "rb") as f:
            data = f.read()
        if bench == "dump":
            lines = data.split(b"\n")[:size // 2 * 2]
            return hashlib.sha256(b"\n".join(lines)).hexdigest()[:16]
        return data.split(b"\n")[0].strip().decode("latin-1")

    def stderr_head(self):
        with open(os.path.join(self.tmp, "stderr"), "rb") as f:
            text = f.read(600).decode("latin-1").strip()
        return text.replace(HERE + os.sep, "").replace(self.tmp + os.sep, "").replace("\n", " | ")[:160]

    # -- the benchmarks

    def size(self, bench):
        return SIZES[bench][2 if self.args.check else 1 if self.args.quick else 0]

    def benchmark(self, bench):
        size = self.size(bench)
        folder = os.path.join(HERE, "programs")
        out = os.path.join(self.tmp, "out")
        live, answers = [], {}
        for s in self.systems:
            cmd = self.command(s, folder, bench, size)
            if cmd is None:
                continue
            r = self.run(cmd, 1, out, self.args.limit)  # also fills the caches
            if r is None:
                print("  %s %s: over the limit of %d s" % (bench, s.name, self.args.limit))
                continue
            if r[3] != 0:
                print("  %s %s: status %d: %s" % (bench, s.name, r[3], self.stderr_head()))
                continue
            answers[s.name] = self.answer(out, bench, size)
            live.append((s, cmd, r))
        if not live:
            return None
        truth = Counter(v for k, v in answers.items() if k != "kestrin").most_common(1) or [(answers["kestrin"], 1)]
        truth = truth[0][0]
        right = []
        for s, cmd, r in live:
            if answers[s.name] != truth:
                print("  %s %s: WRONG OUTPUT %r, expected %r" % (bench, s.name, answers[s.name], truth))
            else:
                right.append((s, cmd, r))
        if self.args.check:
            mine = answers.get("kestrin")
            print("%-12s size %-8d %s" % (bench, size, "ok" if mine == truth else "FAILED"))
            return mine == truth
        samples = {s.name: [] for s, _, _ in right}
        for n in range(self.args.rounds):
            for s, cmd, first in right:
                if first[0] > self.args.slow and n >= 2:
                    continue  # two samples are enough of what takes so long
                r = self.run(cmd, REPEAT.get(bench, 1), out if bench == "dump" else None, self.args.limit)
                if r is not None:
                    samples[s.name].append(r)
        result = {}
        for name, rs in samples.items():
            if rs:
                result[name] = {
                    "wall_min": min(r[0] for r in rs), "wall_median": statistics.median(r[0] for r in rs),
                    "cpu_min": min(r[1] for r in rs), "cpu_median": statistics.median(r[1] for r in rs),
                    "rss_kb": max(r[2] for r in rs), "rounds": len(rs),
                }
        return {"size": size, "answer": truth, "systems": result}

    # -- the probes

    def probes(self):
        folder, out = os.path.join(HERE, "probes"), os.path.join(self.tmp, "out")
        result = {}
        print("\nDeepest of the recursions %s that ends well; peak memory" % (PROBE_DEPTHS,))
        for s in self.systems:
            row = {"deep": {}, "ints_rss_kb": None, "hello_rss_kb": None}
            for depth in PROBE_DEPTHS:
                cmd = self.command(s, folder, "deep", depth)
                if cmd is None:
                    break
                r = self.run(cmd, 1, out, self.args.limit)
                ok = r is not None and r[3] == 0 and self.answer(out, "deep", depth) == str(depth)
                row["deep"][depth] = {"ok": ok, "status": r[3] if r else None, "rss_kb": r[2] if r else None,
                                      "note": "" if ok else self.stderr_head()}
            cmd = self.command(s, folder, "ints", PROBE_INTS)
            if cmd:
                r = self.run(cmd, 1, out, self.args.limit)
                if r and r[3] == 0 and self.answer(out, "ints", PROBE_INTS) == str(PROBE_INTS - 1):
                    row["ints_rss_kb"] = r[2]
            cmd = self.command(s, os.path.join(HERE, "programs"), "hello", 0)
            if cmd:
                r = self.run(cmd, 1, out, self.args.limit)
                row["hello_rss_kb"] = r[2] if r else None
            result[s.name] = row
            depths = " ".join("%d:%s" % (d, "ok" if v["ok"] else "FAILS(%s)" % v["status"]) for d, v in row["deep"].items())
            print("%-12s %-66s ints %8s kB  hello %6s kB" % (s.name, depths, row["ints_rss_kb"], row["hello_rss_kb"]), flush=True)
        return result


def print_table(title, names, rows, markdown):
    """rows: (label, cells, format); a missing cell is None."""
    print("\n" + title)
    cells = [(b, ["-" if c is None else f % c for c in cs]) for b, cs, f in rows]
    if markdown:
        print("\n| | " + " | ".join(names) + " |\n|---|" + "---:|" * len(names))
        for b, cs in cells:
            print("| " + b + " | " + " | ".join(cs) + " |")
    else:
        print("%-12s" % "" + "".join("%12s" % n for n in names))
        for b, cs in cells:
            print("%-12s" % b + "".join("%12s" % c for c in cs))


def table(results, key, base, markdown=False):
    """Prints times, then the ratios of base to the others with their geometric means."""
    names = []
    for r in results.values():
        names += [n for n in r["systems"] if n not in names]
    rows = [(b, [r["systems"][n][key] * 1e3 if n in r["systems"] else None for n in names], "%.1f") for b, r in results.items()]
    print_table("Milliseconds (%s)" % key, names, rows, markdown)
    least = key.replace("median", "min")
    noise = [[r["systems"][n][key] / r["systems"][n][least] for r in results.values()
              if n in r["systems"] and r["systems"][n][least] > 0] for n in names]
    print_table("Noise: the middle row's median over its minimum", names,
                [("noise", [statistics.median(v) if v else None for v in noise], "%.2f")], markdown)
    for against, inverse in base:
        logs, rows = {n: [] for n in names}, []
        for b, r in results.items():
            if against not in r["systems"]:
                continue
            one, cells = r["systems"][against][key], []
            for n in names:
                other = r["systems"][n][key] if n in r["systems"] else 0
                q = None if not one or not other else one / other if inverse else other / one
                cells.append(q)
                if q:
                    logs[n].append(math.log(q))
            rows.append((b, cells, "%.2f"))
        rows.append(("geo. mean", [math.exp(sum(v) / len(v)) if v else None for v in logs.values()], "%.2f"))
        rows.append(("rows", [len(v) for v in logs.values()], "%d"))
        print_table("Ratio " + ("%s / peer (above 1: %s is slower)" % (against, against) if inverse else "peer / " + against),
                    names, rows, markdown)


def show(results, a):
    mine = any("kestrin" in r["systems"] for r in results.values())
    base = [("kestrin", True)] if mine else [("lua5.4", False), ("C", False)]
    table(results, a.clock + "_" + a.metric, base, a.markdown)
    missing = [b for b, r in results.items() if mine and "kestrin" not in r["systems"]]
    if missing:
        print("\nkestrin has no result in: " + ", ".join(missing))
    return 1 if missing else 0


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--kestrin", help="path of the kestrin program")
    p.add_argument("--kestrin-cmd", help="command that behaves like it")
    p.add_argument("--only", help="benchmarks, comma-separated")
    p.add_argument("--peers", help="peers, comma-separated")
    p.add_argument("--rounds", type=int, default=None)
    p.add_argument("--quick", action="store_true", help="small sizes, three rounds")
    p.add_argument("--check", action="store_true", help="tiny sizes, outputs only, against Lua, Python and C")
    p.add_argument("--probes", action="store_true", help="deep recursion and memory only")
    p.add_argument("--limit", type=int, default=120, help="seconds for one run")
    p.add_argument("--slow", type=float, default=5.0, help="systems slower than this get two rounds")
    p.add_argument("--metric", choices=("median", "min"), default="median")
    p.add_argument("--clock", choices=("cpu", "wall"), default="cpu")
    p.add_argument("--json", help="write all figures to this file")
    p.add_argument("--load", help="print the tables of such a file and run nothing")
    p.add_argument("--markdown", action="store_true", help="print the tables in that form")
    a = p.parse_args()
    a.rounds = a.rounds or (3 if a.quick else 5)
    if a.load:
        with open(a.load) as f:
            return show(json.load(f), a)
    if a.check and not a.peers:
        a.peers = "C,lua5.4,python3"
    bench = Bench(a)
    try:
        if a.probes:
            data = bench.probes()
            if a.json:
                with open(a.json, "w") as f:
                    json.dump(data, f, indent=1)
            return 0
        results, failed = {}, 0
        for name in a.only.split(",") if a.only else SIZES:
            r = bench.benchmark(name)
            if a.check:
                failed += not r
                continue
            if r:
                results[name] = r
                key = a.clock + "_" + a.metric
                print("%-12s %s" % (name, "  ".join("%s %.1f" % (n, v[key] * 1e3) for n, v in r["systems"].items())), flush=True)
            if a.json:
                with open(a.json, "w") as f:
                    json.dump(results, f, indent=1)
        if a.check:
            print("%d failed" % failed)
            return 1 if failed else 0
        return show(results, a)
    finally:
        shutil.rmtree(bench.tmp, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())

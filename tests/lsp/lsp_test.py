#!/usr/bin/env python3
"""kst lsp by its protocol: what it answers, what it tells of faults, and what it bears.

  lsp_test.py --kst PATH
"""
import json
import os
import random
import re
import signal
import subprocess
import sys

from lsp_client import URI, Client

sys.path.append(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from kit.scripts import OPTIONS, Folder, main  # noqa: E402

RICH = {"textDocument": {"hover": {"contentFormat": ["plaintext", "markdown"]},
                         "documentSymbol": {"hierarchicalDocumentSymbolSupport": True},
                         "signatureHelp": {"signatureInformation": {"parameterInformation": {"labelOffsetSupport": True}}}},
        "workspace": {"workspaceEdit": {"documentChanges": True}}}
PROFILE = "# One more.\n(defun next (+ $1 1))\n"
# A place in it is told by a text and how far into it the place is.
TEXT = """#!/usr/bin/env kst
# Twice as much,
## of anything.
(defun twice
  (progn
    (setq sum (+ $1 $1))
    SUM))
(setq sum 1)
(rem (twice 0) "sum")
(defun outer (progn (defun inner (twice $1)) (+ (inner $2) (inner $1))))
(outf "%ld \U0001d4b3(é" (twice sum)) (outer sum 2)
(setq n (next sum)) (lost n)
"""


def units(text):
    return len(text.encode("utf-16-le")) // 2


def place(text, byte):
    line = text.count("\n", 0, byte)
    return line, units(text[text.rfind("\n", 0, byte) + 1:byte])


def text_at(spot, text=TEXT):
    """The place in front of `|` in a text that holds the rest."""
    ahead, behind = spot.split("|")
    assert text.count(ahead + behind) >= 1, spot
    return place(text, text.index(ahead + behind) + len(ahead))


def spelled(value):
    """An answer with its ranges as `line:character-line:character`, from 0."""
    if isinstance(value, list):
        return [spelled(one) for one in value]
    if not isinstance(value, dict):
        return value
    if set(value) == {"start", "end"}:
        ends = value["start"], value["end"]
        return "-".join("%d:%d" % (end["line"], end["character"]) for end in ends)
    return {key: spelled(one) for key, one in value.items()}


def ranges(value):
    return [one["range"] for one in spelled(value)]


def edits(value):
    change = spelled(value)["documentChanges"][0]
    assert change["textDocument"] == {"uri": URI, "version": 1}
    return [(one["range"], one["newText"]) for one in change["edits"]]


def labels(value):
    return [one["label"] for one in value]


def contents(value):
    return value["contents"]["value"]


def no_view(value):
    return value


def symbols(value):
    return [(one["name"], one["range"], symbols(one.get("children", []))) for one in spelled(value)]


SUM_IN_TWICE, SUM_IN_PROGRAM = ["5:10-5:13", "6:4-6:7"], ["7:6-7:9", "10:24-10:27", "10:37-10:40", "11:14-11:17"]
TWICE = ["3:7-3:12", "9:34-9:39", "10:18-10:23"]
SHARED = {"context": {"includeDeclaration": True}}
# The question, where it is asked, what else it says, what is looked at in the answer, and what that is.
QUESTIONS = [
    ("hover", "(|twice $1", {}, contents, "```kestrin\n(defun twice\n```\n\nTwice as much,\nof anything."),
    ("hover", "(next| sum", {}, contents, "```kestrin\n(defun next (+ $1 1))\n```\n\nOne more."),
    ("hover", "s|um 1", {}, contents, "variable of the program, assigned in line 8"),
    ("hover", "$|2", {}, contents, "argument of `OUTER'"),
    ("hover", "(lo|st", {}, no_view, None),
    ("hover", "(twice| 0", {}, no_view, None),
    ("hover", " |1)\n(rem", {}, no_view, None),
    ("definition", "(|twice $1", {}, lambda found: spelled(found)["range"], TWICE[0]),
    ("definition", "(tw|ice sum", {}, lambda found: spelled(found)["range"], TWICE[0]),
    ("definition", "S|UM", {}, lambda found: spelled(found)["range"], SUM_IN_TWICE[0]),
    ("definition", "outer s|um", {}, lambda found: spelled(found)["range"], SUM_IN_PROGRAM[0]),
    ("definition", "|next sum", {}, lambda found: (os.path.basename(found["uri"]), spelled(found)["range"]), ("a%20b.cfg", "1:7-1:11")),
    ("definition", "(p|rogn", {}, no_view, None),
    ("references", "(twice| $1", SHARED, ranges, TWICE),
    ("references", "(twice| $1", {}, ranges, TWICE[1:]),
    ("references", "(inner| $2", SHARED, ranges, ["9:27-9:32", "9:49-9:54", "9:60-9:65"]),
    ("references", "S|UM", SHARED, ranges, SUM_IN_TWICE),
    ("references", "(|next sum", SHARED, ranges, ["11:9-11:13", "1:7-1:11"]),
    ("references", "twice $|1", {}, ranges, ["9:40-9:42"]),
    ("references", "# |Twice", SHARED, ranges, []),
    ("documentHighlight", "outer s|um", {}, lambda all: [(one["range"], one["kind"]) for one in spelled(all)],
     list(zip(SUM_IN_PROGRAM, [3, 2, 2, 2]))),
    ("prepareRename", "(tw|ice sum", {}, lambda found: (spelled(found)["range"], found["placeholder"]), (TWICE[2], "twice")),
    ("prepareRename", "# |Twice", {}, no_view, None),
    ("prepareRename", "(p|rogn", {}, str, "`PROGN' is an instruction"),
    ("prepareRename", "$|2", {}, str, "`$2' is an argument, which has no other name"),
    ("prepareRename", "(next| sum", {}, str, "`NEXT' is a function of the profile"),
    ("prepareRename", "(|lost", {}, str, "`LOST' is not defined"),
    ("rename", "(tw|ice sum", {"newName": "2x"}, edits, [(one, "2x") for one in TWICE]),
    ("rename", "outer s|um", {"newName": "Total"}, edits, [(one, "Total") for one in SUM_IN_PROGRAM]),
    ("rename", "S|UM", {"newName": "n"}, edits, [(one, "n") for one in SUM_IN_TWICE]),
    ("rename", "(tw|ice sum", {"newName": "TWICE"}, edits, [(one, "TWICE") for one in TWICE]),
    ("rename", "outer s|um", {"newName": "N"}, str, "`N' is taken already"),
    ("rename", "outer s|um", {"newName": "term_type"}, str, "`term_type' is taken already"),
    ("rename", "outer s|um", {"newName": "2x"}, str, "`2x' is no name of a variable"),
    ("rename", "outer s|um", {"newName": "a#b"}, str, "`a#b' is no name of a variable"),
    ("rename", "(tw|ice sum", {"newName": "a b"}, str, "`a b' is no name of a function"),
    ("rename", "(tw|ice sum", {"newName": "setq"}, str, "`setq' is an instruction"),
    ("rename", "(tw|ice sum", {"newName": "inner"}, str, "`inner' is taken already"),
    ("rename", "(tw|ice sum", {"newName": "next"}, str, "`next' is taken already"),
    ("rename", "(tw|ice sum", {}, str, "`' is no name of a function"),
    ("completion", "(out|f", {}, labels, ["outf", "outer"]),
    ("completion", "(ne|xt", {}, labels, ["next"]),
    ("completion", "(in|ner $1", {}, labels, ["index", "indices", "ineg", "inot", "int", "inner"]),
    ("completion", "(twice s|um", {}, labels, ["sum"]),
    ("completion", "(inner $|1", {}, labels, ["$2"]),
    ("completion", "# T|wice", {}, labels, []),
    ("completion", '"%ld |', {}, labels, []),
    ("completion", "(rem (tw|ice", {}, labels, []),
    ("signatureHelp", "(outer sum| 2", {}, lambda told: (told["signatures"][0], told["activeParameter"]),
     ({"label": "(outer $1 $2)", "parameters": [{"label": [7, 9]}, {"label": [10, 12]}]}, 0)),
    ("signatureHelp", "(setq sum |(+", {}, lambda told: (told["signatures"][0]["label"], told["activeParameter"]), ("(setq V U) -> U", 1)),
    ("signatureHelp", "(ou|ter", {}, no_view, None),
    ("documentSymbol", "|#!", {}, symbols, [("twice", "3:0-6:9", []), ("outer", "9:0-9:72", [("inner", "9:20-9:44", [])])]),
    ("foldingRange", "|#!", {}, lambda all: [(one["startLine"], one["endLine"]) for one in all], [(3, 6), (4, 6)]),
    ("formatting", "|#!", {}, lambda all: [(one["range"], one["newText"]) for one in spelled(all)],
     [("10:0-12:0", '(outf "%ld \U0001d4b3(é" (twice sum))\n(outer sum 2)\n(setq n (next sum))\n(lost n)\n')]),
]

# Messages of one run, what is said to them (codes of errors, else results), and the status at the end.
INITIALIZE = {"id": 1, "method": "initialize", "params": {"capabilities": {}}}
SHUTDOWN, EXIT = {"id": 9, "method": "shutdown"}, {"method": "exit"}
RUNS = [
    ([EXIT], [], 1),
    ([], [], 1),
    ([INITIALIZE, EXIT], ["ok"], 1),
    ([INITIALIZE, SHUTDOWN], ["ok", None], 1),
    ([INITIALIZE, SHUTDOWN, EXIT], ["ok", None], 0),
    ([INITIALIZE, INITIALIZE, SHUTDOWN, INITIALIZE, EXIT], ["ok", -32600, None, -32600], 0),
    ([{"id": 1, "method": "textDocument/hover"}, {"method": "textDocument/didOpen"}, SHUTDOWN, EXIT], [-32002, -32002], 1),
    ([INITIALIZE, {"id": "a", "method": "no/such"}, {"method": "no/such"}, {"method": "$/no"}, SHUTDOWN, EXIT],
     ["ok", -32601, None], 0),
    ([INITIALIZE, {"id": 2, "method": "textDocument/hover", "params": 7}, {"id": 3, "method": "completionItem/resolve"},
      {"id": [1], "method": "x"}, {"id": 4}, {"id": 5, "result": 1}, SHUTDOWN, EXIT], ["ok", -32602, None, -32600, -32600, None], 0),
    ([INITIALIZE, b"{", b"[]", b"[" * 100000, b'{"id":\xff}', SHUTDOWN, EXIT], ["ok", -32700, -32600, -32700, -32700, None], 0),
    ([INITIALIZE, {"id": 2, "method": "textDocument/hover"}, {"method": "$/cancelRequest", "params": {"id": 2}},
      {"method": "$/cancelRequest", "params": {"id": 7}}, SHUTDOWN, EXIT], [-32800, "ok", None], 0),
]
# Bytes that are no frames; the server ends.
BROKEN = [b"\r\n\r\n", b"Content-Length: x\r\n\r\n{}", b"Content-Length: -1\r\n\r\n", b"Content-Type: a\r\n\r\n{}",
          b"Content-Length: 99999999999999999999999\r\n\r\n", b"Content-Length: 67108865\r\n\r\n", b"x" * 5000]


def framed(message):
    body = message if isinstance(message, bytes) else json.dumps(message).encode()
    return b"Content-Length: %d\r\n\r\n%s" % (len(body), body)


def answers(output):
    """The answers in what a server has written."""
    found = []
    while output:
        head, output = output.split(b"\r\n\r\n", 1)
        size = int(head.split(b":")[1])
        message, output = json.loads(output[:size]), output[size:]
        if "error" in message:
            found.append(message["error"]["code"])
        elif "result" in message:
            found.append("ok" if message["result"] else message["result"])
    return found


def run(data):
    return subprocess.run([OPTIONS.kst, "lsp"], input=data, capture_output=True, timeout=60, check=False)


def checked(text):
    """What kst check tells: severity, text, line and column."""
    done = subprocess.run([OPTIONS.kst, "check", "--json", "-"], input=text.encode(), capture_output=True, check=False)
    assert done.returncode in (0, 1) and not done.stderr, done
    return [({"error": 1, "warning": 2}[one["severity"]], one["text"], one["line"], one["column"])
            for one in json.loads(done.stdout)]


class Protocol(Folder):
    def start(self, capabilities=None, words=(), **options):
        client = Client(OPTIONS.kst, *words, capabilities={} if capabilities is None else capabilities, **options)
        self.addCleanup(client.server.wait)
        self.addCleanup(client.server.stdout.close)
        self.addCleanup(client.server.stdin.close)
        return client

    def test_questions(self):
        client = self.start(RICH, ["--cfg", self.write("a b.cfg", PROFILE)])
        client.open(TEXT)
        self.assertEqual([one["message"] for one in client.diagnostics(1)], ["undefined function name `LOST'"])
        for method, spot, more, view, wanted in QUESTIONS:
            with self.subTest(method, spot=spot, **more):
                told = client.ask_at(method, *text_at(spot), **more)
                self.assertEqual(view(told.get("result", told.get("error", {}).get("message"))), wanted)
        item = client.ask("completionItem/resolve", label="setq")["result"]
        self.assertIn("(setq v x) evaluates x", item["documentation"]["value"])
        self.assertEqual(client.end(), 0)

    def test_runs(self):
        for messages, wanted, status in RUNS:
            with self.subTest(messages=messages):
                done = run(b"".join(framed(one) for one in messages))
                self.assertEqual((answers(done.stdout), done.returncode, done.stderr), (wanted, status, b""))

    def test_broken_frames(self):
        for data in BROKEN:
            with self.subTest(data=data[:60]):
                done = run(framed(INITIALIZE) + data + framed(SHUTDOWN))
                self.assertEqual((answers(done.stdout), done.returncode), (["ok", -32700], 1))

    def test_what_is_no_text(self):
        client = self.start()
        client.open("?")
        sent = {"method": "textDocument/didChange", "params": {
            "textDocument": {"uri": URI, "version": 2}, "contentChanges": [{"text": "? (nosuch '* 😀é)"}]}}
        client.send(json.dumps(sent).encode().replace(b"?", b"\\udc00").replace(b"'", b"\\ud83d").replace(b"*", b"\xff"))
        self.assertEqual([one["message"] for one in client.diagnostics(2)],
                         [one[1] for one in checked("\ufffd (nosuch \ufffd\ufffd 😀é)")])
        self.assertEqual(client.end(), 0)

    def test_places_are_clamped(self):
        for change, wanted in [(((0, 99), (0, 99)), "aX\r\nb\rc"), (((9, 9), (9, 9)), "a\r\nb\rcX"),
                               (((1, 1), (0, 0)), "a\r\nbX\rc"), (((0, 1), (1, 0)), "aXb\rc"),
                               (((2, 0), (2, 2 ** 64)), "a\r\nb\rX"), (((-1, -1), (0, 1)), "X\r\nb\rc")]:
            with self.subTest(change=change):
                client = self.start()
                client.open("(" + "a\r\nb\rc")
                ends = [{"line": line, "character": character} for line, character in change]
                client.change(2, {"text": "a\r\nb\rc"}, {"range": {"start": ends[0], "end": ends[1]}, "text": "X"})
                client.change(3, {"range": {"start": {"line": 99, "character": 0}, "end": {"line": 99, "character": 0}},
                                  "text": ' (nosuch "")'})
                told = [one[1] for one in checked(wanted + ' (nosuch "")')]
                self.assertEqual([one["message"] for one in client.diagnostics(3)], told)
                self.assertEqual(client.end(), 0)

    def test_changes_that_wait_are_taken_together(self):
        client = self.start()
        changes = [{"method": "textDocument/didChange", "params": {
            "textDocument": {"uri": URI, "version": version}, "contentChanges": [{"text": "(nosuch %d)" % version}]}}
            for version in range(2, 200)]
        os.kill(client.server.pid, signal.SIGSTOP)
        client.open("(")
        client.send(*changes)
        os.kill(client.server.pid, signal.SIGCONT)
        told = client.receive()["params"]
        self.assertEqual((told["version"], len(told["diagnostics"])), (199, 1))
        client.tell("textDocument/didClose", textDocument={"uri": URI})
        self.assertEqual(client.receive()["params"], {"uri": URI, "diagnostics": []})
        self.assertEqual(client.end(), 0)

    def test_random_edits(self):
        """Diagnostics are those of kst check on the text that an independent model holds."""
        dice = random.Random(OPTIONS.seed)
        pieces = ["(", ")", "(setq a ", "é", "\U0001f600", '"', "#", "\n", "\r\n", "\r", " b", "(nosuch a)", "", "(defun f (+ $1 1))", "(f 1)"]
        for encoding, width in (("utf-8", 1), ("utf-16", 2)):
            client = self.start({"general": {"positionEncodings": [encoding]}})
            self.assertEqual(client.can["positionEncoding"], encoding)
            text, codec = TEXT[dice.randrange(300):], encoding.replace("16", "16-le")
            client.open(text)
            for version in range(2, 120):
                changes = []
                for _ in range(dice.randrange(1, 4)):
                    ends = sorted((dice.randrange(len(text) + 1), dice.randrange(len(text) + 1)))
                    ends[1] = min(ends[1], ends[0] + 12)
                    # The middle of "\r\n" is no place.
                    ends = [end - (text[end - 1:end + 1] == "\r\n") for end in ends]
                    piece = dice.choice(pieces)
                    lines = [re.split("\r\n|\r|\n", text[:end]) for end in ends]
                    places = [{"line": len(ahead) - 1, "character": len(ahead[-1].encode(codec)) // width} for ahead in lines]
                    changes.append({"range": {"start": places[0], "end": places[1]}, "text": piece})
                    text = text[:ends[0]] + piece + text[ends[1]:]
                client.change(version, *changes)
                told = client.diagnostics(version)
                self.assertEqual([(one["severity"], one["message"]) for one in told], [one[:2] for one in checked(text)], text)
                self.assertTrue(all(re.match(r"(\d+):\d+-\1:", one) for one in ranges(told)), text)
            self.assertEqual(client.end(), 0)

    def test_ranges_of_faults(self):
        for text, wanted in [("(setq \U0001f600 1)", ["0:6-0:8"]), ("(progn\n  (nosuch 1\n 2))", ["1:2-1:11"]),
                             ("(+ 1 2", ["0:5-0:6"]), ('(outf "\U0001f600', ["0:6-0:9"]), ("", ["0:0-0:0"]),
                             ("# only", ["0:0-0:6"]), ("(progn\n (+ 1) nosuch)", ["1:1-1:6"]), ("(+ 1 é", ["0:5-0:6", "0:5-0:6"]),
                             ("(progn\r(nosuch\r1) 2x)", ["1:0-1:7", "2:3-2:5"]), ("\r\n\r# only\n", ["0:0-0:0"]),
                             ("1 \r(+ 1 2\r\r", ["1:5-1:6"]), ('\r\n\r(outf\r"a\rb', ["3:0-3:2"])]:
            with self.subTest(text=text):
                client = self.start()
                client.open(text)
                self.assertEqual(ranges(client.diagnostics(1)), wanted)
                self.assertEqual(client.end(), 0)

    def test_huge_documents(self):
        deep = 1000000
        for text in ["(" * deep, ")" * deep, "(" * deep + ")" * deep, "(+ 1 " * 200000 + "1" + ")" * 200000,
                     "(defun f " * 20000, "(nosuch 1) " * 20000, "\r" * deep, '"' * deep, "# é\n" * 300000,
                     "(setq a 1)\n" * 100000]:
            with self.subTest(text=text[:20]):
                client = self.start(RICH)
                client.open(text)
                for method in ("hover", "completion", "documentSymbol", "foldingRange", "references", "signatureHelp", "formatting"):
                    self.assertIn("result", client.ask_at(method, 0, 12))
                self.assertEqual(client.end(), 0)

    def test_closed_pipes(self):
        client = self.start()
        client.server.stdout.close()
        client.open("(")
        self.assertEqual(client.server.wait(20), 1)
        client = self.start()
        client.open("(")
        client.server.stdin.close()
        self.assertEqual(client.server.wait(20), 1)


if __name__ == "__main__":
    main(__doc__, "kst", seed={"type": int, "default": 1})

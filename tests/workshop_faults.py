"""Random single faults in programs, for the test of what kst check tells of them."""
import random
import re

TOKEN = re.compile(r'#[^\n]*|"(?:\\.|[^"\\])*"|[()]|[^\s()"#]+')
VARIADIC = {"progn"}


class Source:
    """A program taken apart: its code tokens with their places."""

    def __init__(self, text):
        self.text = text
        self.tokens = [m for m in TOKEN.finditer(text) if not m[0].startswith("#")]

    def line(self, offset):
        return self.text.count("\n", 0, offset) + 1

    def of(self, pattern):
        return [m for m in self.tokens if re.fullmatch(pattern, m[0])]

    def cut(self, start, end):
        return self.text[:start] + self.text[end:], self.line(start)

    def insert(self, offset, piece):
        return self.text[:offset] + piece + self.text[offset:], self.line(offset)

    def calls(self):
        """Calls that take a fixed number of arguments: the parenthesis, and where the last argument
        begins and ends."""
        found, open_calls = [], []
        for i, t in enumerate(self.tokens):
            if t[0] == "(":
                open_calls.append((i, t, []))
                continue
            if t[0] == ")":
                word, opening, arguments = open_calls.pop()
                if arguments and self.tokens[word + 1][0].lower() not in VARIADIC:
                    found.append((opening, *arguments[-1]))
                argument = (opening.start(), t.end())
            else:
                argument = t.span()
            if open_calls and open_calls[-1][0] + 1 != i:
                open_calls[-1][2].append(argument)
        return found


def lose_parenthesis(s, r):
    m = r.choice(s.of(r"[()]"))
    return s.cut(m.start(), m.end())


def add_parenthesis(s, r):
    m = r.choice(s.tokens)
    return s.insert(r.choice((m.start(), m.end())), r.choice("()"))


def lose_quote(s, r):
    m = r.choice(s.of(r'".*"'))
    at = r.choice((m.start(), m.end() - 1))
    return s.cut(at, at + 1)


def add_quote(s, r):
    m = r.choice(s.tokens)
    return s.insert(r.choice((m.start(), m.end())), '"')


def miss_argument(s, r):
    """The line is that of the call: which of its arguments is missing nobody can know."""
    opening, start, end = r.choice(s.calls())
    return s.cut(start, end)[0], s.line(opening.start())


def misname(s, r):
    words = [m for m in s.of(r"[a-z_]{3,}") if s.text[m.start() - 1] == "("]
    m = r.choice(words)
    return s.insert(m.end(), "q")


FAULTS = [lose_parenthesis, add_parenthesis, lose_quote, add_quote, miss_argument, misname]


def random_faults(programs, count, seed):
    """Yields (name of the fault, faulty text, its line) for texts of programs."""
    r = random.Random(seed)
    sources = [Source(text) for text in programs]
    made = 0
    while made < count:
        fault = FAULTS[made % len(FAULTS)]
        s = r.choice(sources)
        try:
            text, line = fault(s, r)
        except IndexError:  # nothing of that kind in this program
            continue
        made += 1
        yield fault.__name__, text, line

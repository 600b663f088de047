"""How the forms of random programs may look: rules for native_programs.py.

A number in front is the weight of a line. `{a b}` is one of its members. A word with a % stands
for what is made anew: a form by the rules of that name, or what the program's method of that name
makes. %I %F %S %U are values: Integer, Float, String, or Unknown, of any type; %i %f %s %x variables
of those kinds; %a is any array, p and u are arrays of integers, q of floats, t of texts, r of mixed
members; %k counts the rounds of the innermost loop, %n is how many there are."""
import re

RULES = {
    "I": """
        5 ({+ - * & | ^ << >> IADD ISUB IMUL IAND IOR IXOR ISHL ISHR} %I %I)
        2 ({++ -- 0- IABS ~ ! IINCR INEG} %I)
        1 ({*+ IMA} %I %I %I)
        2 ({/ % IDIV IMOD} %I %divisor)
        2 ({== != < > <= >= EQUAL LESS GREATEROREQUAL} %I {%I %I %U})
        1 ({== != < > <= >= NOTEQUAL GREATER LESSOREQUAL} %F {%F %F %U})
        1 ({== != < > <= >=} {%S %U} {%S %U})
        1 ({== !=} (TYPE {%x %i %a}) {"I" "F" "S"})
        2 ({&& || AND OR} %I %I)
        1 ({IVAL LEN ASC INDICES NOT} %U)
        1 (+ %U {%U %I})
        1 (IRND 100)
        2 (INDEX {p u} %at)
        1 (ARSETQ {p u} %at (+ 0 %I))""",
    "F": """
        6 ({+. -. *. FADD FSUB FMUL} %F %F)
        2 ({FABS INT ROUND COS SIN ATN EXP CAS} %F)
        1 ({*+. FMA} %F %F %F)
        1 ({/. FDIV} %F (+. 0.5 (FABS %F)))
        1 ({SQRT FSQRT} (FABS %F))
        1 (LN (+. 0.25 (*. 1. (& %I 255))))
        1 (** (FABS %F) %F)
        1 (FVAL %U)
        1 ({+. -. *.} %U %I)
        1 (FRND 1.)
        2 (INDEX q %at)
        1 (ARSETQ q %at (+. 0. %F))""",
    "S": """
        1 (TYPE %U)
        1 (SUBSTR %S 1 (& %I 15))
        1 (LEFT (CAT %U %S) 30)
        2 (LEFT (STR {%I %F %U}) 30)
        1 (INDEX t %at)
        1 (ARSETQ t %at (LEFT %S 30))""",
    "U": """
        2 (IF %I %U {%I %F %S})
        1 %a
        1 (ALINDEX %a {1 2 4})
        5 {%I %I %F %S}
        1 (INDEX r %at)
        1 (INDEX %a %at)
        1 (ARSETQ r (+ 1 (& %I 1)) %U)""",
    "statement": """
        2 ({SETQ ALSETQ} %i %I)
        2 ({SETQ ALSETQ} %f %F)
        3 ({SETQ ALSETQ} %x %U)
        1 (SETQ %s %S)
        2 %sum
        2 (ARSETQ {p u} %at (+ 0 %I))
        1 (SETQ {p u} {p u})
        1 (PROGN (ARSETQ p (& %k 511) (+ 0 %I)) (SETQ i (+ %i (INDEX p (& %k 511)))))
        1 (PROGN (ARSETQ q (& %k 511) (+. 0. %F)) (SETQ f (+. %f (INDEX q (& %k 511)))))
        1 (PROGN (ARSETQ r (++ (& %k 255)) %U) (SETQ x (INDEX r (++ (& %k 255)))))
        2 (ARSETQ q %at (+. 0. %F))
        1 (ARSETQ t %at (LEFT %S 30))
        2 (ARSETQ r (+ 1 (& %I 1)) %U)
        1 (PROGN (SETQ i (INDEX p %at)) (ARSETQ p %at (+ 0 (INDEX p %at))) (ARSETQ p %at (+ 0 i)))
        1 (SETQ %x %a)
        1 (SETQ r %made_array)
        1 (OUTF "%s," (STR %U))
        1 (OUTF "%ld," (+ 0 %I))
        1 (OUTF "%g," (+. 0. %F))
        2 (IF %sometime %change %small)
        2 %leave
        2 (IF %I %block %block)
        1 (IF (== 0 (& %I 7)) (SET_ERROR_INFO %I %S) %small)
        2 %called
        3 %looping
        1 %tiny_text""",
    "small": """
        1 %sum
        1 (SETQ %x %U)""",
    "sum": """
        2 (SETQ i ({+ - * ^ << IADD} i %I))
        2 (SETQ f ({+. -. *. FADD} f %F))
        1 (SETQ x ({+ * +. -. ISUB FMUL} x {%I %F %U}))""",
    "at": """
        1 {0 1 2 3}
        1 ({& IAND} %I 3)""",
    "divisor": """
        1 {1 2 3 8 -2 -7 1000000007}
        2 (| (& %I {7 63 1048575}) 1)""",
    "loop": """
        4 (FOR %k 1 1 %n %body)
        1 (FOR %k {0 1 -5 0.} {1 1. "1"} (- %n 1) %body)
        1 (FOR %k %n -1 1 %body)
        1 (FOR %k -7 {7 7.} (* 7 (- %n 2)) %body)
        1 (FOR %k 100 {-3 -3.5} (- 103.9 (* 3 %n)) %body)
        2 (PROGN (SETQ %k 0) (WHILE (< %k %n) (PROGN %body (SETQ %k (++ %k)))))
        1 (PROGN (SETQ %k 0) (WHILE (&& (< %k %n) %I) (PROGN (SETQ %k (++ %k)) %body)))
        1 (PROGN (SETQ %k 0) (WHILE (PROGN %inside (< %k %n)) (PROGN (SETQ %k (++ %k)) %body)))
        1 (PROGN (SETQ %k (++ %n)) (WHILE (SETQ %k (-- %k)) %body))
        1 (PROGN (SETQ %k 0) (WHILE (<= (SETQ %k (++ %k)) %n) %body))
        1 (PROGN (SETQ %k 0) (FOR {i x %x j} {%I %U 0} %by %to (PROGN %bound %body)))
        1 (PROGN (SETQ %k 0) (FOR {i x} %I %by %to (PROGN %bound %body (SETQ {i x} {%I %U}))))""",
    "by": """
        1 {1 -1 2 %i 0 %I}""",
    "to": """
        1 {%U %x %n (0- %n)}""",
    "bound": """
        1 (IF (> (SETQ %k (++ %k)) %n) (BREAK) 0)""",
    "leave": """
        8 (IF %sometime {(BREAK) (PROGN %small (BREAK))} 0)
        8 (IF (! %sometime) %small (BREAK))
        4 (IF (> %k %I) (BREAK) %small)
        1 (IF %sometime (EXIT) 0)""",
    "tiny": """
        1 (PROGN (SETQ a %constant) (FOR k 1 1 {1 49 50 51 120} (SETQ a %tinier)) %tiniest)""",
    "tinier": """
        1 ({+ * - << +. *.} a {k 2.5 3 a})""",
    "tiniest": """
        1 {a k (/ k 0) (/. a 0.) (SQRT -1) (INDEX a 1)}""",
    "change": """
        1 (SETQ %x %constant)
        1 (SETQ %x %a)
        1 (ALSETQ %x %U)
        1 (ARSETQ %x 0 %constant)""",
    "step": """
        1 (+ %again %U)
        1 (+. %U %again)
        1 (*+ %again 3 %I)
        1 (IF (< %again %I) $1 %x)
        1 (PROGN (SETQ %x %again) %U)
        1 (SUBSTR %again 1 %U)
        2 %again""",
    "fault": """
        2 ({/ % IDIV} {1 %i} 0)
        2 ({/. FDIV} {1. %f} {0. -0.})
        1 (SQRT -1.)
        1 (LN {0. -2.})
        1 (** -2. 0.5)
        2 {unset (++ unset) (INDEX unset 0) (-- (INDEX r 100))}
        2 (INDEX %a {500 -1 4 127 128 1.9 "3" NIL %x %i})
        1 (ARSETQ {p q x} {-1 (& %i 200) 8 128} %U)
        1 (ARSETQ r 0 p)
        2 (SETQ {p u q r} {p q r t %U})
        1 (ALINDEX %a {0 100})
        1 (RISE_ERROR)
        2 ({RISE_ERROR_INFO RISE_ERROR_INFO_DBG} {20 %i} {"raised" "" %S})""",
}
COMMON = """
        1 (IF %I %K %K)
        1 (PROGN %inside %K)
        1 ({SETQ ALSETQ} %k %K)
        1 (INDEX %x 0)
        2 %called"""
ARRAYS = {"p": "I", "q": "F", "r": "U", "t": "S", "u": "I"}
VARIABLES = {"I": "i", "F": "f", "S": "s", "U": "x"}
CONSTANTS = {
    "I": "0 1 2 3 4 5 7 10 63 64 65 100 127 128 -1 -2 -3 -64".split(),
    "F": "0. 1. -1. 0.5 2.5 -0.5 3. 0.1 10. 100. -7.25".split(),
    "S": ['""', '"x"', '"12"', '"3.5 and"', '"-1"', '"a longer text"', '" 7"'],
    "Z": ["NIL"],
}
INFINITE = ["*.", "1e300", "1e300"]
FAR = {
    "I": ("2147483647 2147483648 -2147483649 4294967296 4503599627370497 4611686018427387904 "
          "9007199254740993 9223372036854775807 -9223372036854775808").split(),
    "F": [*"-0. 1e10 1e300 -1e300 1e-310 9.2233720368547758e18 4503599627370497.5 1e19".split(),
          INFINITE, ["-.", INFINITE, INFINITE], ["FSUB", "0.", INFINITE], ["PI"]],
}


def parse(text):
    """The forms of a line: lists, sets of which one is taken, and words."""
    open_forms = [[]]
    for token in re.findall(r'"[^"]*"|[(){}]|[^\s(){}]+', text):
        if token in "({":
            open_forms.append([] if token == "(" else [("one of",)])
        elif token in ")}":
            form = open_forms.pop()
            open_forms[-1].append(form if token == ")" else tuple(form[1:]))
        else:
            open_forms[-1].append(token)
    return open_forms[0]


def words(form):
    return {form} if isinstance(form, str) else set().union(*map(words, form))


class Rule:
    def __init__(self, line):
        weight, self.form = parse(line)
        self.weight = int(weight)
        self.needs_variables = not words(self.form).isdisjoint(
            ("SETQ", "ALSETQ", "%inside", *("%" + name for name in VARIABLES.values())))
        self.needs_arrays = not words(self.form).isdisjoint((*ARRAYS, "%a"))
        self.needs_leave = not words(self.form).isdisjoint(("%bound", "%leave"))
        self.needs_loop = not words(self.form).isdisjoint(("%k", "%leave"))


def rules_of(name, text):
    if name in VARIABLES:
        text += COMMON.replace("%K", "%" + name).replace("%k", "%" + VARIABLES[name])
    rules = [Rule(line) for line in text.strip().splitlines()]
    return rules, [rule.weight for rule in rules]


TABLE = {name: rules_of(name, text) for name, text in RULES.items()}

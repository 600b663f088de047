import marshal
import sys

n = int(sys.argv[1])
code = marshal.dumps(compile("12 * 3 + 7", "code", "eval"))
s = 0
for i in range(n):
    s += eval(marshal.loads(code))
print(s)

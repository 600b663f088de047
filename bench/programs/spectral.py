import sys
from math import sqrt
def a(i, j): return 1.0 / ((i + j) * (i + j + 1) // 2 + (i + 1))
def times(v, n):
    r = []
    for i in range(n):
        s = 0.0
        for j in range(n): s += a(i, j) * v[j]
        r.append(s)
    return r
def transposed(v, n):
    r = []
    for i in range(n):
        s = 0.0
        for j in range(n): s += a(j, i) * v[j]
        r.append(s)
    return r
n = int(sys.argv[1])
u = [1.0] * n
for _ in range(3):
    v = transposed(times(u, n), n)
    u = transposed(times(v, n), n)
uv = sum(p * q for p, q in zip(u, v)); vv = sum(q * q for q in v)
print("%.9f" % sqrt(uv / vv))

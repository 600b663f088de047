import sys
n, s, a = int(sys.argv[1]), [], [[]]
for _ in range(n):
    s.append("x")
    a[0].append("yz")
print(len("".join(s)), len("".join(a[0])))

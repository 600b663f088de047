import sys
def divided(a, b): return [a // b, str(a % b)]
total = 0
for i in range(1, int(sys.argv[1]) + 1):
    p = divided(i, 10)
    total += p[0] + len(p[1])
print(total)

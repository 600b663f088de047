import sys
def sequence(seed, n):
    s = []
    for _ in range(n):
        seed = seed * 16807 % 2147483647
        s.append(seed % 20)
    return s
def common(a, b):
    above = [0] * (len(b) + 1)
    for x in a:
        left = corner = 0
        for j in range(1, len(b) + 1):
            up = above[j]
            if x == b[j - 1]: best = corner + 1
            elif up > left: best = up
            else: best = left
            above[j] = best
            corner, left = up, best
    return above[len(b)]
n = int(sys.argv[1])
print(common(sequence(1, n), sequence(2, n)))

import sys
def tak(x, y, z):
    if y < x: return tak(tak(x - 1, y, z), tak(y - 1, z, x), tak(z - 1, x, y))
    return z
total = 0
for _ in range(int(sys.argv[1])): total += tak(18, 12, 6)
print(total)

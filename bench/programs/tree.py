import sys
def grow(depth):
    if depth == 0: return "leaf"
    return [depth, grow(depth - 1), grow(depth - 1)]
def count(t):
    if type(t) is str: return 1
    return 1 + count(t[1]) + count(t[2])
nodes = 0
for _ in range(int(sys.argv[1])):
    t = grow(7)
    nodes += count(t)
print(nodes)

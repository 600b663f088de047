import sys
def generation(g, w):
    next, last = [0] * (w * w), w - 1
    for y in range(w):
        above, here, below = w * ((y + last) % w), w * y, w * ((y + 1) % w)
        for x in range(w):
            left, right = (x + last) % w, (x + 1) % w
            n = (g[above + left] + g[above + x] + g[above + right] + g[here + left]
                 + g[here + right] + g[below + left] + g[below + x] + g[below + right])
            next[here + x] = 1 if n == 3 else g[here + x] if n == 2 else 0
    return next
def main(w):
    grid, seed = [], 42
    for _ in range(w * w):
        seed = seed * 16807 % 2147483647
        grid.append(1 if seed % 10 < 3 else 0)
    for _ in range(100): grid = generation(grid, w)
    total = 0
    for cell in grid: total = (total * 31 + cell) % 1000003
    print(sum(grid), total)
main(int(sys.argv[1]))

import sys
def turns(p):
    q, rounds = p[:], 0
    first = q[1]
    while first > 1:
        low, high = 1, first
        while low < high:
            q[low], q[high] = q[high], q[low]
            low += 1
            high -= 1
        rounds, first = rounds + 1, q[1]
    return rounds
def main(n):
    p = list(range(n + 1))
    count = most = total = 0
    while True:
        r = turns(p)
        if r > most: most = r
        total += r * p[n]
        count += 1
        i = n - 1
        while i > 0 and p[i] > p[i + 1]: i -= 1
        if i == 0: break
        x, j = p[i], n
        while p[j] < x: j -= 1
        p[i], p[j] = p[j], x
        low, high = i + 1, n
        while low < high:
            p[low], p[high] = p[high], p[low]
            low += 1
            high -= 1
    print(count, most, total)
main(int(sys.argv[1]))

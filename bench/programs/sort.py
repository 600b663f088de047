import sys
def main(n):
    seed, a = 42, [0]
    for _ in range(n):
        seed = (seed * 1103515245 + 12345) % 2147483648
        a.append(seed % 1000000)
    first, last = n // 2 + 1, n
    while last > 1:
        if first > 1:
            first -= 1
            v = a[first]
        else:
            v = a[last]
            a[last] = a[1]
            last -= 1
        hole = first
        child = hole * 2
        while child <= last:
            if child < last and a[child] < a[child + 1]: child += 1
            if v < a[child]:
                a[hole] = a[child]
                hole = child
                child *= 2
            else:
                child = last + 1
        a[hole] = v
    total = 0
    for i in range(1, n + 1): total = (total * 31 + a[i]) % 1000003
    print(total)
main(int(sys.argv[1]))

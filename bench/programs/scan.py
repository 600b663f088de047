import sys
def main(n):
    known = ["name%d" % (i * 7) for i in range(1, 41)]
    line = "".join("name%d " % ((41 - i) * 7) for i in range(1, 41))
    total = 0
    for _ in range(n):
        for w in line.split():
            k = 0
            while known[k] != w: k += 1
            total += k + 1
    print(total)
main(int(sys.argv[1]))

import sys

n = int(sys.argv[1]) // 4
chars = 0
for i in range(1, n + 1):
    chars += len("%08d" % i)
    chars += len("%.6f" % (i / 3))
    chars += len("%-20s|" % "name")
    chars += len("%x" % (i * 255))
print(chars)

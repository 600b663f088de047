import sys

n = int(sys.argv[1])
line = "".join("word%d  " % (i * 7) for i in range(1, 61))
words = chars = 0
for r in range(n):
    t = line
    while t.strip():
        parts = t.split(None, 1)
        t = parts[1] if len(parts) > 1 else ""
        words += 1
        chars += len(parts[0])
print(words, chars)

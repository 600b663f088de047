import sys
def times(a, factor):
    carry = 0
    for i in range(len(a)):
        carry += a[i] * factor
        a[i] = carry % 1000000000
        carry //= 1000000000
    if carry: a.append(carry)
def plus(a, b):
    carry = 0
    for i in range(len(b)):
        s = b[i] + carry
        if i < len(a): s += a[i]
        else: a.append(0)
        carry = 0
        if s >= 1000000000: carry, s = 1, s - 1000000000
        a[i] = s
    if carry: a.append(1)
def digits(a):
    total = 0
    for place in a:
        while place > 0:
            total += place % 10
            place //= 10
    return total
factorial, total = [1], [1]
for k in range(2, int(sys.argv[1]) + 1):
    times(factorial, k)
    plus(total, factorial)
print(len(total), digits(factorial), digits(total))

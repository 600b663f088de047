import sys, threading
sys.setrecursionlimit(1000000)
threading.stack_size(512 << 20)
def ack(m, n):
    if m == 0: return n + 1
    if n == 0: return ack(m - 1, 1)
    return ack(m - 1, ack(m, n - 1))
t = threading.Thread(target=lambda: print(ack(3, int(sys.argv[1]))))
t.start(); t.join()

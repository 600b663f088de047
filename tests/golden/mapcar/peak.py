"""Whether a program's memory grows with its argument: peak.py PROGRAM FEW MANY."""
import os
import subprocess
import sys


def peak(count):
    words = [os.environ["KESTRIN"], "-q", sys.argv[1], count]
    with subprocess.Popen(words, stdout=subprocess.DEVNULL) as process:
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = status
    if status != 0:
        sys.exit("status %d" % status)
    return usage.ru_maxrss


few, many = peak(sys.argv[2]), peak(sys.argv[3])
print("steady" if many < few + 1024 else "grows from %d kB to %d kB" % (few, many))

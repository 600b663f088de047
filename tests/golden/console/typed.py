"""Runs a program at a terminal of its own: typed.py KEYS PROGRAM.

The keys, with Python's escapes, are typed ahead. The terminal itself echoes nothing, so all that
shows is what the program prints.
"""
import fcntl
import os
import pty
import subprocess
import sys
import termios

screen, keyboard = pty.openpty()
mode = termios.tcgetattr(keyboard)
mode[3] &= ~(termios.ICANON | termios.ECHO)
termios.tcsetattr(keyboard, termios.TCSANOW, mode)
mode = termios.tcgetattr(keyboard)
os.write(screen, sys.argv[1].encode().decode("unicode_escape").encode("latin-1"))


def take_terminal():
    os.setsid()
    fcntl.ioctl(keyboard, termios.TIOCSCTTY, 0)


done = subprocess.run([os.environ["KESTRIN"], "-q", sys.argv[2]], stdin=keyboard, preexec_fn=take_terminal)
changed = termios.tcgetattr(keyboard) != mode
sys.exit("the terminal is not as it was" if changed else done.returncode)

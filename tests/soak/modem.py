"""A modem whose every word can be accounted for.

Each answer repeats the command's own tag, and each report carries the next number, which is put down in
a file before it is written. SIGUSR1 unplugs the device; it comes back as another one behind the link.
"""

import mmap
import os
import pathlib
import random
import select
import signal
import struct
import sys
import termios
import time
import tty

CHANNEL = pathlib.Path("/dev/smd6")
NUMBERS_A_LIFE = 10_000_000
REPORTS_A_SECOND = 40


class Modem:
    def __init__(self, ledger, life, seed):
        self.dice = random.Random(seed)
        self.ledger, self.life, self.made = ledger, life, 0
        self.master = self.slave = -1
        self.output = b""
        self.unplugged = False
        signal.signal(signal.SIGUSR1, self.unplug)
        self.plug()

    def unplug(self, *_):
        self.unplugged = True

    def plug(self):
        for end in (self.master, self.slave):
            if end >= 0:
                os.close(end)
        self.master, self.slave = os.openpty()
        tty.setraw(self.slave, termios.TCSANOW)
        os.set_blocking(self.master, False)
        CHANNEL.unlink(missing_ok=True)
        CHANNEL.symlink_to(os.ttyname(self.slave))
        self.heard, self.output = b"", b""
        self.life += 1
        self.made = 0

    def report(self):
        number = self.life * NUMBERS_A_LIFE + self.made
        self.made += 1
        struct.pack_into("q", self.ledger, 8 * self.life, self.made)
        self.output += b"\r\n^WAKEUPIN: %d\r\n" % number

    def hear(self):
        *lines, self.heard = (self.heard + os.read(self.master, 4096)).split(b"\r")
        for line in lines:
            echo, tag = line + b"\r", line.partition(b"=")[2]
            self.output += echo + b"\r\n+TAG: " + tag + b"\r\n\r\nOK\r\n"

    def speak(self):
        """A piece of any length, or all of it: the other side must not mind."""
        piece = self.output[:self.dice.choice((1, 7, 40, 4096))]
        try:
            self.output = self.output[os.write(self.master, piece):]
        except BlockingIOError:
            pass

    def run(self):
        next_report = time.monotonic()
        while True:
            if self.unplugged:
                self.unplugged = False
                self.plug()
            if time.monotonic() >= next_report and len(self.output) < 65536:
                next_report = time.monotonic() + self.dice.expovariate(REPORTS_A_SECOND)
                self.report()
            wanted = [self.master] if self.output else []
            readable, writable, _ = select.select([self.master], wanted, [], 0.02)
            if readable:
                self.hear()
            if writable:
                self.speak()


if __name__ == "__main__":
    with open(sys.argv[1], "r+b") as file:
        Modem(mmap.mmap(file.fileno(), 0), int(sys.argv[2]), int(sys.argv[3])).run()

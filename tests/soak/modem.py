# SPDX-License-Identifier: Apache-2.0
"""A modem whose every word can be accounted for: modem.py LIFE SEED LEDGER NOTES

Each answer repeats the command's own tag or, for a message, a number made of its text; each report carries the
next number of this life. How many that are stands in the file LEDGER, eight bytes a life. NOTES says when a tag
was heard, when it was answered, and what a message has swallowed.

It works on one thing after the other and takes its time. Some answers and prompts come late, though never more
than LATEST_S behind their command, and some never. Half of its lives echo.
"""

import fcntl
import os
import pathlib
import random
import re
import select
import struct
import sys
import termios
import time
import tty
import zlib

CHANNEL = pathlib.Path("/dev/smd6")
NUMBERS_A_LIFE = 10_000_000
REPORTS_A_SECOND = 40
LATEST_S = 4.5
TAG = re.compile(rb"\+TAG=([\w.]+)")
CTRL_Z, ESC = b"\x1a", b"\x1b"


def reference(pdu):
    return zlib.crc32(pdu) % 60000


class Modem:
    def __init__(self, life, dice, ledger, notes):
        self.dice, self.ledger, self.notes = dice, ledger, notes
        self.life, self.number = life, life * NUMBERS_A_LIFE
        self.echoes = dice.random() < 0.5
        self.input, self.typed, self.output = [], b"", b""
        self.plan = []  # what to do next, and when
        self.prompts = False
        self.next_report = time.monotonic()
        self.plug()

    def plug(self):
        self.master, self.slave = os.openpty()
        tty.setraw(self.slave, termios.TCSANOW)
        os.set_blocking(self.master, False)
        CHANNEL.unlink(missing_ok=True)
        CHANNEL.symlink_to(os.ttyname(self.slave))

    def note(self, what, tag):
        os.write(self.notes, b"%.3f %s %s\n" % (time.monotonic(), what, tag))

    def run(self):
        heard = b""
        while True:
            # A killed server has left it exclusive; a real device forgets that when it is closed.
            fcntl.ioctl(self.slave, termios.TIOCNXCL)
            self.report()
            readable, writable, _ = select.select([self.master], [self.master] if self.output else [], [], 0.005)
            if readable:
                said = os.read(self.master, 4096)
                self.input += [(byte, time.monotonic()) for byte in said]
                *lines, heard = re.split(rb"[\r\x1a\x1b]", heard + said)
                for tag in TAG.findall(b"\n".join(lines)):
                    self.note(b"heard", tag)
            self.work()
            if writable:
                self.write()

    def write(self):
        """A piece of any length, or all of it: the other side must not mind."""
        try:
            self.output = self.output[os.write(self.master, self.output[:self.dice.choice((1, 7, 40, 4096))]):]
        except BlockingIOError:
            pass

    def report(self):
        if self.prompts or time.monotonic() < self.next_report or len(self.output) > 65536:
            return
        self.next_report = time.monotonic() + self.dice.expovariate(REPORTS_A_SECOND)
        self.output += b"\r\n^WAKEUPIN: %d\r\n" % self.number
        self.number += 1
        os.pwrite(self.ledger, struct.pack("q", self.number % NUMBERS_A_LIFE), 8 * self.life)

    def work(self):
        while self.plan and self.plan[0][0] <= time.monotonic():
            self.plan.pop(0)[1]()
        while self.input and not self.plan:
            byte, came = self.input.pop(0)
            self.take(bytes([byte]), came)

    def take(self, byte, came):
        if byte == b"\b" and not self.prompts:
            return self.erase()
        if self.echoes:
            self.output += byte
        self.typed += byte
        if self.prompts and byte in (CTRL_Z, ESC):
            self.end_message(self.typed, came)
        elif byte == b"\r" and not self.prompts:
            self.obey(self.typed.strip(b"\r\x1b"), came)
        else:
            return
        self.typed = b""

    def erase(self):
        if self.echoes and self.typed:
            self.output += b"\b \b"
        self.typed = self.typed[:-1]

    def later(self, came, *steps):
        """Mostly at once; else in a while."""
        delay = self.dice.choices((0.02, 1.5, LATEST_S), (97, 2, 1))[0] * self.dice.random()
        at = min(time.monotonic() + delay, came + LATEST_S)
        pause = self.dice.choice((0, 0, 0, 0.2)) * self.dice.random()
        self.plan += [(min(at + pause * n, came + LATEST_S), step) for n, step in enumerate(steps)]

    def say(self, text, tag=b""):
        def step():
            self.output += text
            if tag:
                self.note(b"answered", tag)
        return step

    def obey(self, line, came):
        if not line.upper().startswith(b"AT"):
            return
        tag = line.partition(b"=")[2]
        fate = self.dice.random()
        if fate < 0.003:
            self.later(came, lambda: None)  # never
        elif b"+CMGS" not in line:
            text = b"\r\n+TAG: " + tag + b"\r\n" if tag else b""
            self.later(came, self.say(text), self.say(b"\r\nOK\r\n", tag))
        elif fate < 0.05:
            self.later(came, self.say(b"\r\n+CMS ERROR: 500\r\n"))
        else:
            self.later(came, self.prompt)

    def prompt(self):
        self.prompts = True
        self.output += b"\r\n> "

    def end_message(self, text, came):
        self.prompts = False
        if b"AT+" in text:
            self.note(b"swallowed", repr(text).encode())
        if text.endswith(ESC):
            return self.later(came, self.say(b"\r\nOK\r\n"))
        # What was typed before the prompt may be in front of it.
        pdu = text.strip(b"\r" + CTRL_Z)
        self.later(came, self.say(b"\r\n+CMGS: %d\r\n" % reference(pdu)), self.say(b"\r\nOK\r\n"))


if __name__ == "__main__":
    ledger = os.open(sys.argv[3], os.O_WRONLY | os.O_CREAT)
    notes = os.open(sys.argv[4], os.O_WRONLY | os.O_CREAT | os.O_APPEND)
    Modem(int(sys.argv[1]), random.Random(int(sys.argv[2])), ledger, notes).run()

# SPDX-License-Identifier: Apache-2.0
"""A modem whose every word can be accounted for: modem.py LIFE SEED LEDGER

Each answer repeats the command's own tag, and each report carries the next number of this life. How many
that are stands in the file LEDGER, eight bytes a life.
"""

import os
import pathlib
import random
import select
import struct
import sys
import termios
import time
import tty

CHANNEL = pathlib.Path("/dev/smd6")
NUMBERS_A_LIFE = 10_000_000
REPORTS_A_SECOND = 40


def plug():
    master, slave = os.openpty()
    tty.setraw(slave, termios.TCSANOW)
    os.set_blocking(master, False)
    CHANNEL.unlink(missing_ok=True)
    CHANNEL.symlink_to(os.ttyname(slave))
    return master


def answer(line):
    return line + b"\r\r\n+TAG: " + line.partition(b"=")[2] + b"\r\n\r\nOK\r\n"


def run(life, dice, ledger):
    master = plug()
    number = life * NUMBERS_A_LIFE
    heard, output = b"", b""
    next_report = time.monotonic()
    while True:
        if time.monotonic() >= next_report and len(output) < 65536:
            next_report = time.monotonic() + dice.expovariate(REPORTS_A_SECOND)
            output += b"\r\n^WAKEUPIN: %d\r\n" % number
            number += 1
            os.pwrite(ledger, struct.pack("q", number % NUMBERS_A_LIFE), 8 * life)
        readable, writable, _ = select.select([master], [master] if output else [], [], 0.02)
        if readable:
            *lines, heard = (heard + os.read(master, 4096)).split(b"\r")
            output += b"".join(map(answer, lines))
        if writable:
            # A piece of any length, or all of it: the other side must not mind.
            try:
                output = output[os.write(master, output[:dice.choice((1, 7, 40, 4096))]):]
            except BlockingIOError:
                pass


if __name__ == "__main__":
    run(int(sys.argv[1]), random.Random(int(sys.argv[2])), os.open(sys.argv[3], os.O_WRONLY | os.O_CREAT))

# SPDX-License-Identifier: Apache-2.0
"""mdxtap between a modem and its host: nobody notices it, and what passed is in the file."""

import errno
import fcntl
import os
import pathlib
import random
import re
import resource
import select
import signal
import socket
import subprocess
import termios
import time
import tty
import unittest

from device import CHANNEL, SHORT, DeviceTest, wait_until

MODEM = pathlib.Path("/dev/modem")
RECORD = pathlib.Path("/tmp/record.txt")
SECOND_READER = 3
BYTES_ARE_MISSING = 4


def passed(path=RECORD):
    """What a recording has of each direction: {">": bytes, "<": bytes}."""
    sides = {">": b"", "<": b""}
    for line in path.read_text().splitlines():
        if line[:2] in ("> ", "< "):
            sides[line[0]] += re.sub(
                rb"\\(?:([rn\\])|x(..))",
                lambda m: {b"r": b"\r", b"n": b"\n", b"\\": b"\\"}.get(m[1]) or bytes([int(m[2], 16)]),
                line[2:].encode())
    return sides


def connect_as_soon_as_it_is_there(path):
    """A socket that is there and refuses has been shown too early."""
    host = socket.socket(socket.AF_UNIX)
    while (result := host.connect_ex(path)) == errno.ENOENT:
        time.sleep(0)
    assert result == 0, os.strerror(result)
    return host


class Tap(DeviceTest):
    def start_tap(self, *options, to=("--link", str(CHANNEL)), limit=None):
        self.tap = self.start("mdxtap", str(MODEM), *to, "--record", str(RECORD), *options)
        if limit is not None:
            self.limit_files(limit)
        end = pathlib.Path(to[1])
        wait_until(lambda: end.is_char_device() or end.is_socket(), 10, "the host's end is there")

    def make_line(self):
        """A modem that is the test itself; returns its end."""
        modem, slave = os.openpty()
        tty.setraw(slave, termios.TCSANOW)
        self.slave = slave
        MODEM.unlink(missing_ok=True)
        MODEM.symlink_to(os.ttyname(slave))
        return modem

    def start_reader(self, terminal):
        reader = self.start("sh", "-c", f"exec sleep 100 <{terminal}")
        comm = pathlib.Path(f"/proc/{reader.pid}/comm")
        wait_until(lambda: comm.read_text() == "sleep\n", 10, "it is open")
        return reader

    def open_host(self):
        host = os.open(CHANNEL, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
        tty.setraw(host, termios.TCSANOW)
        wait_until(lambda: "the host opened" in RECORD.read_text(), 10, "the tap sees its host")
        return host

    def end_tap(self, code=0):
        self.stop(self.tap)
        self.assertEqual(self.tap.returncode, code, self.log_of(self.tap))

    def limit_files(self, size):
        resource.prlimit(self.tap.pid, resource.RLIMIT_FSIZE, (size, resource.RLIM_INFINITY))

    def say(self, host, text):
        os.write(host, text.encode() + b"\r")
        wait_until(lambda: RECORD.exists() and text in RECORD.read_text(), 10, f"{text} is written")

    def exchange(self, streams):
        """Writes to each descriptor its bytes and reads what comes, until all has come.

        `streams` is {descriptor: (bytes to write, number of bytes to read)}.
        """
        got = {fd: b"" for fd in streams}
        left = {fd: out for fd, (out, _) in streams.items()}
        while any(len(got[fd]) < count for fd, (_, count) in streams.items()):
            readable, writable, _ = select.select(streams, [fd for fd in streams if left[fd]], [], 30)
            self.assertTrue(readable or writable, "nothing moves any more")
            for fd in readable:
                got[fd] += os.read(fd, 65536)
            for fd in writable:
                left[fd] = left[fd][os.write(fd, left[fd][:4096]):]
        return got

    def test_any_bytes_pass_unchanged_both_ways(self):
        seeded = random.Random(5)
        modem = self.make_line()
        os.set_blocking(modem, False)
        self.start_tap("--plain", "--max-size", "0")
        host = self.open_host()
        up, down = (seeded.randbytes(50000 if SHORT else 1000000) for _ in range(2))
        got = self.exchange({host: (up, len(down)), modem: (down, len(up))})
        self.assertTrue(got[modem] == up and got[host] == down)
        self.end_tap()
        self.assertEqual(passed(), {">": up, "<": down})

    def test_the_line_is_set_as_the_host_sets_it(self):
        modem = self.make_line()
        self.start_tap()
        host = self.open_host()
        line = termios.tcgetattr(host)
        line[2] |= termios.CSTOPB
        line[4] = line[5] = termios.B19200
        termios.tcsetattr(host, termios.TCSANOW, line)
        os.write(host, b"AT\r")
        self.assertTrue(select.select([modem], [], [], 10)[0])
        set_line = termios.tcgetattr(self.slave)
        self.assertEqual((set_line[2] & termios.CSTOPB, set_line[4]),
                         (termios.CSTOPB, termios.B19200))

    def test_the_server_does_not_notice(self):
        modem = self.start("mdxsim", "--quiet", "--link", str(MODEM), "--pin", "2718")
        wait_until(MODEM.is_symlink, 5, "mdxsim links its terminal")
        self.start_tap()
        self.start_server()
        self.at('AT+CPIN="2718"')
        self.assertIn("001010123456789", self.at("AT+CIMI")["text"])
        wait_until(lambda: self.ctl("sms", "send", "+4915112345678", "Hello Miller")[0] == 0, 20,
                   "the modem is registered and sends")
        self.stop(modem)
        wait_until(lambda: not CHANNEL.is_symlink(), 10, "the host's end goes with the modem")
        self.start("mdxsim", "--quiet", "--link", str(MODEM))
        wait_until(CHANNEL.is_char_device, 10, "the host's end comes back")
        wait_until(lambda: self.ctl("at", "AT+CGMM")[0] == 0, 30, "the server finds it again")
        self.assertIn("001010123456789", self.at("AT+CIMI")["text"])
        self.end_tap()
        text = RECORD.read_text()
        for remark in ("the modem is there", "the host opened", "the modem is gone"):
            self.assertIn(remark, text)
        for secret in ("2718", "123456789", "5112345678", "1521436587"):
            self.assertNotIn(secret, text)
        played = self.start("mdxsim", "--replay", str(RECORD), "--link", "/tmp/played")
        wait_until(pathlib.Path("/tmp/played").is_symlink, 5, "the recording is a session")
        self.stop(played)

    def test_a_second_reader_is_refused(self):
        self.make_line()
        self.start_tap()
        for to in (("--link", "/tmp/other"), ("--listen", "/tmp/other")):
            second = subprocess.run(["mdxtap", str(MODEM), *to, "--record", "/tmp/other.txt"],
                                    capture_output=True, text=True, timeout=10)
            self.assertEqual(second.returncode, SECOND_READER)
            self.assertIn("another program", second.stderr)
        self.assertFalse(pathlib.Path("/tmp/other.txt").exists())

    def test_who_reads_the_device_already_is_named(self):
        """Without locks, and whoever is root: an open file is enough."""
        self.make_line()
        reader = self.start_reader(MODEM)
        second = subprocess.run(["mdxtap", str(MODEM), "--link", "/tmp/other", "--record", "/tmp/other.txt"],
                                capture_output=True, text=True, timeout=10)
        self.assertEqual(second.returncode, SECOND_READER)
        self.assertIn(f"sleep (process {reader.pid})", second.stderr)

    def test_a_terminal_of_the_same_number_elsewhere_is_another_one(self):
        """Each mounted devpts counts its terminals from nought."""
        self.make_line()
        elsewhere = pathlib.Path("/tmp/pts")
        elsewhere.mkdir()
        subprocess.run(["mount", "-t", "devpts", "-o", "newinstance", "devpts", str(elsewhere)], check=True)
        twin = elsewhere / pathlib.Path(os.ttyname(self.slave)).name
        while not twin.exists():
            maker = os.open(elsewhere / "ptmx", os.O_RDWR | os.O_NOCTTY)
            fcntl.ioctl(maker, 0x40045431, bytes(4))  # TIOCSPTLCK: unlocks the terminal
        self.assertEqual(os.stat(twin).st_rdev, os.stat(MODEM).st_rdev)
        self.start_reader(twin)
        self.start_tap()

    def test_a_connection_ends_with_the_host_that_lets_go(self):
        """As a dialler does, which drops the line and hears nothing more."""
        modem = self.make_line()
        self.start_tap()
        host = self.open_host()
        self.exchange({host: (b"ATD*99#\r", len(b"\r\nCONNECT\r\n")), modem: (b"\r\nCONNECT\r\n", 8)})
        self.exchange({host: (b"~hidden\r of mine", 0), modem: (b"", 16)})
        os.close(host)
        wait_until(lambda: "closed" in RECORD.read_text(), 10, "the tap sees it go")
        host = os.open(CHANNEL, os.O_RDWR | os.O_NOCTTY)
        self.say(host, "AT+CSQ")
        os.close(host)
        self.assertNotIn("of mine", RECORD.read_text())
        self.assertNotIn("hidden", RECORD.read_text())
        self.end_tap()

    def test_a_socket_serves_one_host_after_the_other(self):
        modem = self.make_line()
        self.tap = self.start("mdxtap", str(MODEM), "--listen", "/tmp/socket", "--record", str(RECORD))
        connect_as_soon_as_it_is_there("/tmp/socket").close()
        wait_until(lambda: "closed" in RECORD.read_text(), 10, "the tap sees it go")
        for turn in range(1, 3):
            with socket.socket(socket.AF_UNIX) as host, socket.socket(socket.AF_UNIX) as other:
                host.connect("/tmp/socket")
                host.sendall(b"AT\r")
                self.assertEqual(os.read(modem, 10), b"AT\r")
                other.connect("/tmp/socket")
                other.settimeout(10)
                self.assertEqual(other.recv(10), b"", "the second is hung up")
                os.write(modem, b"\r\nOK\r\n")
                self.assertEqual(host.recv(10), b"\r\nOK\r\n")
            wait_until(lambda: RECORD.read_text().count("closed") > turn, 10, "the tap sees it go")

    def test_a_full_disk_holds_nobody_up_and_is_told(self):
        modem = self.make_line()
        self.start_tap(limit=2000)
        host = self.open_host()
        for number in range(200):
            self.exchange({host: (b"AT+CSQ\r", 0), modem: (b"\r\n^RSSI:%d\r\n" % number, 7)})
        wait_until(lambda: "not recording: File too large" in self.log_of(self.tap), 10, "it is said")
        self.assertLessEqual(RECORD.stat().st_size, 2000)
        self.assertTrue(RECORD.read_text().endswith("\n"), "whole lines")
        self.limit_files(1 << 30)
        self.say(host, "AT+CGMM")
        self.assertRegex(RECORD.read_text(), r"\n# \d+ bytes are missing here\n")
        self.end_tap(BYTES_ARE_MISSING)

    def test_a_disk_that_stays_full_is_told_at_the_end(self):
        self.make_line()
        self.start_tap("--plain", limit=1000)  # room for what it says, which goes to a file, too
        os.write(self.open_host(), b"A" * 1500)
        wait_until(lambda: "not recording" in self.log_of(self.tap), 10, "it is said")
        self.end_tap(BYTES_ARE_MISSING)
        self.assertRegex(self.log_of(self.tap), r"1500 bytes from the host.*\nmdxtap: of these, \d+ are missing")

    def test_a_script_is_of_its_own_run(self):
        """Not of the run before, though its file stands where this run's would; and as plain as it."""
        self.make_line()
        RECORD.write_text("> AT+OTHER\\r\n")
        script = pathlib.Path("/tmp/script")
        self.start_tap("--plain", "--script", str(script))
        host = self.open_host()
        self.say(host, "AT+GONE")
        RECORD.unlink()
        self.say(host, 'AT+CPIN="2718"')
        self.end_tap()
        self.assertIn(f"{script} is the script of it, but of 1", self.log_of(self.tap))
        self.assertRegex(script.read_text(), r'^# plain: .*\n# learnt from .*\n(echo off\n)?on AT\+CPIN="2718"')
        self.assertNotIn("AT+OTHER", script.read_text())
        self.assertEqual(script.stat().st_mode & 0o777, 0o600)
        os.close(host)
        self.start_tap("--script", str(script))
        self.end_tap()
        self.assertIn("nothing passed", self.log_of(self.tap))
        self.assertIn("2718", script.read_text())

    def test_killed_it_leaves_what_passed(self):
        modem = self.make_line()
        self.start_tap()
        host = self.open_host()
        for text in (b"AT+COPS?\r", b"AT+CGM"):
            os.write(host, text)
            wait_until(lambda: text.decode().strip() in RECORD.read_text(), 10, f"{text} is written")
        self.stop(self.tap, signal.SIGKILL)
        self.assertEqual(passed()[">"], b"AT+COPS?\rAT+CGM")
        fcntl.ioctl(self.slave, termios.TIOCNXCL)  # which a device forgets by itself when it is closed
        self.start_tap()
        self.assertEqual(passed(RECORD.with_name("record.txt.1"))[">"], b"AT+COPS?\rAT+CGM")

    def test_wrong_use_is_refused_before_anything_is_touched(self):
        """Of what is there nothing is lost: no modem's name, and no recording by starts that come to nothing."""
        modem = self.make_line()
        RECORD.write_text("# a recording\n> AT\\r\n")
        pathlib.Path("/tmp/file").touch()
        pathlib.Path("/tmp/symlink").symlink_to("file")
        cases = [  # options, exit code, and what is said
            (["--link", str(MODEM)], 2, "is the device"),
            (["--link", "/tmp/port", "--script", str(RECORD)], 2, "is the --record"),
            (["--link", "/tmp/port", "--script", "/tmp/none/script"], 2, "cannot write /tmp/none/script"),
            (["--link", "/tmp/port", "--script", "/tmp/symlink"], 2, "/tmp/symlink is no file"),
            (["--link", "/tmp/port", "--max-size", "-5"], 2, "64K"),
            (["--link", "/tmp/port", "--record", "/tmp"], 3, "/tmp is no file"),
            (["--link", "/tmp/port", "--record", "/tmp/none/file"], 3, "/tmp/none/file"),
        ] + [(["--link", "/tmp/file"], 3, "not touching it")] * 6
        for options, code, said in cases:
            record = [] if "--record" in options else ["--record", str(RECORD)]
            done = subprocess.run(["mdxtap", str(MODEM), *record, *options], timeout=60, capture_output=True,
                                  text=True)
            self.assertEqual(done.returncode, code, options)
            self.assertIn(said, done.stderr)
        self.assertTrue(MODEM.is_symlink())
        self.assertEqual(passed(RECORD.with_name("record.txt.1"))[">"], b"AT\r")
        os.close(modem)

    def test_files_are_turned_and_hold_the_same_stand_ins(self):
        modem = self.make_line()
        self.start_tap("--max-size", "64K", "--keep", "2")
        host = self.open_host()
        third = RECORD.with_name("record.txt.2")
        while not third.exists():
            for _ in range(100):
                self.exchange({host: (b'AT+CMSS=1,"+4930123456"\r', 0), modem: (b"", 24)})
        self.end_tap()
        files = [RECORD, RECORD.with_name("record.txt.1"), third]
        for path in files[1:]:
            self.assertLessEqual(path.stat().st_size, 65536)
        numbers = {number for path in files for number in re.findall(rb'1,"\+(\d+)"', passed(path)[">"])}
        self.assertEqual(len(numbers), 1)
        self.assertEqual(len({path.read_text().splitlines()[1] for path in files}), 1, "each has its head")


if __name__ == "__main__":
    unittest.main()

"""A modem on its bad days: what it says torn, late, endless, or broken off."""

import os
import pathlib
import re
import socket
import struct
import threading
import time
import unittest

from device import CHANNEL, DeviceTest, ScriptedModem, SystemLog, wait_until

WAKE_UP = 55  # ^WAKEUPIN carries any number to this module
PACKET = struct.Struct("=II12sIIiiI")
OK_LINE = b"\r\nOK\r\n"


class BadLine(DeviceTest):
    def start_with(self, answer):
        self.modem = ScriptedModem(lambda line: OK_LINE if line.startswith(b"AT+CMEE") else answer(line))
        self.start_server()

    def test_pauses_at_every_bad_place(self):
        pauses = {}

        def answer(line):
            for piece, pause_ms in pauses[line]:
                self.modem.say(piece)
                time.sleep(pause_ms / 1000)
            return b""
        self.start_with(answer)
        header = b'\r\n+CMGR: 0,"",4\r\n'
        for n, (name, text, pieces) in enumerate((
                ("inside a line", "+A: 1,2", ((b"\r\n+A:", 150), (b" 1,2\r\n", 10), (OK_LINE, 0))),
                ("CR and LF", "+A: 1", ((b"\r", 10), (b"\n+A: 1\r", 150), (b"\n\r", 10), (b"\nOK\r", 10),
                                        (b"\n", 0))),
                ("long behind a line", "+A: 1", ((b"\r\n+A: 1\r\n", 300), (OK_LINE, 0))),
                ("a late body", '+CMGR: 0,"",4\r\n00112233', ((header, 40), (b"00112233\r\n" + OK_LINE, 0))),
                ("NUL and high bytes", None, ((b"\r\n+A: \0\xff\x80\x1b\r\n" + OK_LINE, 0),)),
        )):
            with self.subTest(name):
                command = f"AT+P{n}"
                pauses[command.encode()] = pieces
                got = self.at(command)["text"].strip()
                if text is not None:
                    self.assertEqual(got, text)

    def test_ten_thousand_reports_while_an_exchange_waits(self):
        self.start_with(lambda line: b"" if line == b"AT+HANG" else OK_LINE)
        hub = self.join_hub()
        size = self.resident_kib()
        waiting = self.start_client("at", "--timeout", "3", "AT+HANG")
        wait_until(lambda: b"AT+HANG" in self.modem.heard, 5, "the command is under way")
        burst = b"".join(b"\r\n^WAKEUPIN: %d\r\n" % n for n in range(10000))
        threading.Thread(target=self.modem.say, args=(burst,), daemon=True).start()
        self.hear_all(hub, 10000)
        self.finish(waiting)
        self.at("AT+NEXT")
        self.assertLess(self.resident_kib() - size, 2048)

    def join_hub(self):
        hub = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        hub.connect("/var/run/mdxgate/hub")
        hub.send(PACKET.pack(0, 0, b"", 0, WAKE_UP, 0, 0, 0))
        hub.settimeout(60)
        self.addCleanup(hub.close)
        return hub

    def hear_all(self, hub, count):
        """The numbers from 0 on, in order; each gap is as long as the hub says it is."""
        expected = 0
        while expected < count:
            packet = PACKET.unpack(hub.recv(9000))
            expected += packet[3]
            self.assertEqual(packet[5], expected)
            expected += 1

    def resident_kib(self):
        status = pathlib.Path(f"/proc/{self.server.pid}/status").read_text()
        return int(re.search(r"VmRSS:\s+(\d+)", status)[1])

    def test_a_megabyte_without_line_end(self):
        self.start_with(lambda line: OK_LINE)
        watch = self.start_watch(WAKE_UP, 1)
        for filler in (b"A" * 1024, b"\0" * 1024, b"\r" * 1024, b"\r\n" * 512, bytes(range(128, 256)) * 8):
            for _ in range(1024):
                self.modem.say(filler)
        self.modem.say(b"\r\n^WAKEUPIN: 7\r\n")
        self.assertEqual(self.watched_values(watch), [7])
        self.assertEqual(self.at("AT+NEXT")["text"].strip(), "")

    def test_hang_up_inside_a_line_and_another_device_behind_the_link(self):
        log = SystemLog()
        self.start_with(lambda line: OK_LINE)
        watch = self.start_watch(WAKE_UP, 2)
        old = self.modem
        self.modem.say(b"\r\n^WAKEUPIN: 1\r\n\r\n^WAKE")
        self.modem = ScriptedModem(lambda line: OK_LINE)  # the link leads to another number now
        self.assertNotEqual(os.ttyname(old.slave), os.readlink(CHANNEL))
        old.unplug()
        wait_until(lambda: log.has("is back"), 5, "the channel is back")
        self.modem.say(b"UPIN: 9\r\n\r\n^WAKEUPIN: 2\r\n")
        self.assertEqual(self.watched_values(watch), [1, 2])
        self.at("AT+NEXT")
        self.assertTrue(log.has("is gone"))

    def test_modem_that_stops_reading(self):
        log = SystemLog()
        self.start_with(lambda line: OK_LINE)
        self.modem.reading = False
        start = time.monotonic()
        command = "AT+" + "X" * 600
        while not log.has("takes no bytes: Connection timed out"):
            self.assertLess(time.monotonic() - start, 60)
            self.ctl("at", "--timeout", "0", command)
        self.modem.reading = True
        self.assert_serves_ok()

    def assert_serves_ok(self):
        wait_until(lambda: self.ctl("at", "--timeout", "1", "AT")[0] == 0, 10, "served again")


if __name__ == "__main__":
    unittest.main()

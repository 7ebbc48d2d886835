# SPDX-License-Identifier: Apache-2.0
"""A modem on its bad days: what it says torn, late, endless, or broken off."""

import os
import re
import threading
import time
import unittest

from device import CHANNEL, PATIENCE_S, REFUSED_BY_SERVER, ScriptedModem, SystemLog, wait_until
from watching import WatchTest

WAKE_UP = ("--module", "55")  # ^WAKEUPIN carries any number there
OK_LINE = b"\r\nOK\r\n"


class BadLine(WatchTest):
    def start_with(self, answer):
        self.modem = ScriptedModem(lambda line: OK_LINE if line.startswith(b"AT+CMEE") else answer(line))
        self.start_server()

    def test_ten_thousand_reports_while_an_exchange_waits(self):
        self.start_with(lambda line: b"" if line == b"AT+HANG" else OK_LINE)
        watcher, = self.start_watchers(WAKE_UP)
        made = self.packets_made()
        waiting = self.start_client("at", "--timeout", "3", "AT+HANG")
        wait_until(lambda: b"AT+HANG" in self.modem.heard, PATIENCE_S, "the command is under way")
        burst = b"".join(b"\r\n^WAKEUPIN: %d\r\n" % n for n in range(10000))
        threading.Thread(target=self.modem.say, args=(burst,), daemon=True).start()
        wait_until(lambda: self.packets_made() - made == 10000, PATIENCE_S, "all reports")
        # What a slow watcher has missed it is told with the next for which it has room.
        said = 10000
        while not re.search(rf'"value": ?{said - 1}\b', "".join(watcher.lines()[-1:])):
            self.assertLess(said, 11000, "a watcher that reads must get something")
            self.modem.say(b"\r\n^WAKEUPIN: %d\r\n" % said)
            said += 1
            time.sleep(0.1)
        self.assert_numbered(watcher, "value", said)
        self.finish(waiting)
        self.at("AT+NEXT")

    def packets_made(self):
        stats = self.stats()
        return stats["packets_sent"] + stats["packets_lost"]

    def test_hang_up_inside_a_line_and_another_device_behind_the_link(self):
        log = SystemLog()
        self.start_with(lambda line: OK_LINE)
        watcher, = self.start_watchers(WAKE_UP)
        old = self.modem
        self.modem.say(b"\r\n^WAKEUPIN: 1\r\n\r\n^WAKE")
        self.modem = ScriptedModem(lambda line: OK_LINE)  # the link leads to another number now
        self.assertNotEqual(os.ttyname(old.slave), os.readlink(CHANNEL))
        old.unplug()
        wait_until(lambda: log.has("is back"), PATIENCE_S, "the channel is back")
        self.modem.say(b"UPIN: 9\r\n\r\n^WAKEUPIN: 2\r\n")
        watcher.wait_for(2)
        self.assertEqual(watcher.words(), [f"EVT_AT_WAKEUP_IN value={n}" for n in (1, 2)])
        self.at("AT+NEXT")
        self.assertTrue(log.has("is gone"))

    def test_device_that_comes_and_goes_all_the_time(self):
        """The log is told of the first few times only, and does not end with the wrong word."""
        log = SystemLog()
        self.start_with(lambda line: OK_LINE)
        for times in range(1, 26):
            old, self.modem = self.modem, ScriptedModem(lambda line: OK_LINE)
            old.unplug()
            wait_until(lambda: self.stats()["channel_reopened"] == times, PATIENCE_S, "reopened")
        self.at("AT+NEXT")
        news = [line for line in log.lines if re.search(r"is (gone|back)$", line)]
        self.assertLess(len(news), 30)
        self.assertIn("is back", news[-1])

    def test_modem_that_stops_reading(self):
        log = SystemLog()
        self.start_with(lambda line: OK_LINE)
        self.modem.stop_reading()
        self.at("AT+X", "--timeout", "20", expect=REFUSED_BY_SERVER)
        self.assertTrue(log.has("takes no bytes: Connection timed out"))
        self.modem.reading = True
        self.assert_serves_ok()

    def assert_serves_ok(self):
        wait_until(lambda: self.ctl("at", "--timeout", "1", "AT")[0] == 0, PATIENCE_S,
                   "served again")


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: Apache-2.0
"""Watchers of a living device: each sees every report, in order and once, and none holds up others."""

import contextlib
import os
import signal
import socket
import struct
import termios
import unittest

from device import NO_SERVER, OK, PATIENCE_S, REFUSED_BY_SERVER, ScriptedModem, wait_until
from watching import Watcher, WatchTest

OK_LINE = b"\r\nOK\r\n"


def fill(output):
    """Returns the descriptor as somebody finds it who knows nothing of its being full."""
    os.set_blocking(output, False)
    with contextlib.suppress(BlockingIOError):
        while True:
            os.write(output, b"x" * 4096)
    os.set_blocking(output, True)
    return output


def full_pipe():
    return fill(os.pipe()[1])


def full_socket():
    full_socket.ends = socket.socketpair()
    return fill(full_socket.ends[0].fileno())


def stopped_terminal():
    terminal = os.openpty()[1]
    termios.tcflow(terminal, termios.TCOOFF)
    return terminal


def targets_of(directory):
    """Of the symbolic links that stay there while they are read."""
    targets = []
    for name in os.listdir(directory):
        with contextlib.suppress(FileNotFoundError):
            targets.append(os.readlink(f"{directory}/{name}"))
    return targets


class Watch(WatchTest):
    def start_counting_device(self, *watchers, report=b"^SIMREFRESH"):
        """A modem that says this report, with a number, for all numbers from one to another that it is told."""
        def answer(line):
            first, _, last = line.partition(b"=")[2].partition(b",")
            reports = b"".join(b"\r\n%s:%d\r\n" % (report, n)
                               for n in range(int(first or 0), int(last or 0)))
            return reports + b"\r\nOK\r\n"

        self.start_server(ready=False)
        watchers = self.start_watchers(*watchers)
        self.modem = ScriptedModem(answer)
        return watchers

    def test_watchers_see_all_in_order_but_for_what_they_never_read(self):
        """What one missed is told in front of what it gets next, once it reads again."""
        deaf, *awake = self.start_counting_device(*[("--module", "1")] * 5, report=b"^HCMGSS")  # large packets
        deaf.client.send_signal(signal.SIGSTOP)
        said = 0
        while self.stats()["packets_lost"] < 50:
            self.at(f"AT+SAY={said},{said + 200}", "--timeout", "60")
            said += 200
            self.assertLess(said, 100000, "a receiver that never reads must miss something")
        deaf.client.send_signal(signal.SIGCONT)
        missed = self.stats()["packets_lost"]
        deaf.wait_for(said - missed)
        self.at(f"AT+SAY={said},{said + 3}")
        deaf.wait_for(said + 3 - missed)
        for watcher in awake:
            watcher.wait_for(said + 3)
        for watcher in (deaf, *awake):
            self.assert_numbered(watcher, "mr", said + 3)
            self.assertEqual(watcher.end(), (0, ""))

    def test_services_modules_and_counts(self):
        cms, sim, two = self.start_counting_device(
            ("--service", "cms"), ("--module", "7"), ("--module", "7", "--count", "2"))
        self.at("AT+SAY=5,8")
        sim.wait_for(3)
        seen = [f"EVT_AT_SIM_REFRESH file_type={n}" for n in (5, 6, 7)]
        self.assertEqual((cms.words(), sim.words()), (["CMS_MSG_DATACARD_INSERTED"], seen))
        self.assertEqual((two.client.wait(PATIENCE_S), two.words()), (OK, seen[:2]))

    def test_server_that_is_lost(self):
        self.start_device()
        ends, follows = self.start_watchers((), ("--follow", "--service", "cms"))
        self.stop(self.server, signal.SIGKILL)
        code, _, err = self.finish(ends.client)
        self.assertEqual(code, NO_SERVER)
        self.assertIn("the server is gone", err)
        code, _, err = self.ctl("watch")
        self.assertEqual(code, NO_SERVER)
        self.assertTrue(err)

        self.start_server(ready=False)
        wait_until(lambda: self.stats()["receivers"] == 1, PATIENCE_S, "the watcher is there again")
        self.assertIsNone(follows.client.poll())
        self.assertEqual(follows.end()[0], OK)

    def test_ctrl_c_while_the_server_says_nothing(self):
        self.start_device()
        self.server.send_signal(signal.SIGSTOP)
        watch = self.start_client("watch", "--follow")
        wait_until(lambda: any("socket" in target for target in targets_of(f"/proc/{watch.pid}/fd")), PATIENCE_S, "it asks")
        watch.send_signal(signal.SIGINT)
        self.assertEqual(self.finish(watch)[0], -signal.SIGINT)
        self.server.send_signal(signal.SIGCONT)

    def test_standard_output_that_takes_nothing(self):
        """^NORSTFACT is also written there; nobody waits for that, and no report is lost by it."""
        self.modem = ScriptedModem(lambda line: OK_LINE)
        for name, output in (("a full pipe", full_pipe()), ("a stopped terminal", stopped_terminal()),
                             ("a full socket", full_socket())):
            with self.subTest(name):
                self.start_server(stdout=output)
                watcher, = self.start_watchers(("--module", "74"))
                self.modem.say(b"\r\n^NORSTFACT: 1\r\n" * 50)
                watcher.wait_for(50)
                self.at("AT")
                self.stop(self.server)

    def test_hub_without_a_place(self):
        """It is told from a server that died, and waited for if so wished."""
        self.start_device()
        crowd = [self.subscribe_to_all() for _ in range(128)]
        wait_until(lambda: self.stats()["receivers"] == 128, PATIENCE_S, "the hub is full")
        code, _, err = self.ctl("watch")
        self.assertEqual(code, REFUSED_BY_SERVER)
        self.assertIn("no place", err)
        follows = Watcher("--follow")
        wait_until(lambda: self.stats()["receivers_refused"] == 4, PATIENCE_S, "it tries again")
        crowd.pop().close()
        wait_until(lambda: self.stats()["receivers"] == 129, PATIENCE_S, "it has a place")
        self.assertEqual(follows.end()[1].count("no place"), 1)

    def subscribe_to_all(self):
        hub = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        hub.connect("/var/run/mdxgate/hub")
        hub.send(struct.pack("II12sIIiiI", 0, 0, b"*", 0, 0, 0, 0, 0))
        self.addCleanup(hub.close)
        return hub


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: Apache-2.0
"""Starting, dying and coming back: the server, its modem and its clients in any order."""

import contextlib
import os
import pathlib
import re
import select
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time
import unittest

from device import (NO_ANSWER, NO_SERVER, OK, PATIENCE_S, READY_FLAG, SERVER_LINK, DeviceTest,
                    ScriptedModem, record, wait_until)

PID_FILE = pathlib.Path("/var/run/pidfile/mdxgate.pid")


class Lifecycle(DeviceTest):
    def test_files_of_a_running_server(self):
        self.start_device()
        self.assertEqual(PID_FILE.read_text(), str(self.server.pid))
        self.assertEqual(READY_FLAG.read_bytes(), b"")
        for path, mode in (("/var/run/pidfile", 0o750), (PID_FILE, 0o640), (READY_FLAG, 0o664),
                           ("/var/run/mdxgate", 0o755), ("/var/run/mdxgate/tasks", 0o3770)):
            self.assertEqual(oct(os.stat(path).st_mode & 0o7777), oct(mode), path)

    def test_modem_that_comes_late(self):
        """A client that gives up takes its request back: no stale command runs later."""
        self.start_server(ready=False)
        self.at("AT+STALE", "--timeout", "1", expect=NO_ANSWER)
        self.assertFalse(READY_FLAG.exists())
        self.modem = ScriptedModem(lambda line: b"\r\nOK\r\n")
        wait_until(READY_FLAG.exists, PATIENCE_S, "ready")
        self.at("AT+FRESH")
        self.assertNotIn(b"AT+STALE", self.modem.heard)
        self.assertIn(b"AT+FRESH", self.modem.heard)

    def test_killed_server_with_requests_queued_and_a_client_waiting(self):
        self.modem = ScriptedModem(
            lambda line: b"" if line in (b"AT+HANG", b"AT+OLD") else b"\r\nOK\r\n")
        self.start_server()
        waiting = self.start_client("at", "--timeout", "1000", "AT+HANG")
        wait_until(lambda: b"AT+HANG" in self.modem.heard, PATIENCE_S, "the command is under way")
        for _ in range(5):
            self.assertTrue(self.queues.send(record(b"AT+OLD", 99)))

        self.stop(self.server, signal.SIGKILL)
        code, _, err = self.finish(waiting)
        self.assertEqual(code, NO_SERVER, err)

        self.start_server()
        self.at("AT+NEW")
        self.assertIn(b"AT+NEW", self.modem.heard)
        self.assertNotIn(b"AT+OLD", self.modem.heard)

    def test_answer_to_a_killed_server_reaches_none_of_the_next(self):
        """The modem has no echo, so an answer too much would shift all that follow."""
        def answer(line):
            time.sleep(1.5 if line == b"AT+SLOW" else 0.3)
            return b"\r\nheard %s\r\n\r\nOK\r\n" % line
        self.modem = ScriptedModem(answer)
        self.start_server()
        waiting = self.start_client("at", "--timeout", "60", "AT+SLOW")
        wait_until(lambda: b"AT+SLOW" in self.modem.heard, PATIENCE_S, "the command is under way")
        self.stop(self.server, signal.SIGKILL)
        self.finish(waiting)
        self.start_server()
        for command in ("AT+ONE", "AT+TWO", "AT+THREE"):
            self.assertEqual(self.at(command)["text"], "heard " + command)

    def test_second_server_refuses_and_the_first_does_not_notice(self):
        self.start_device()

        def what_stands():
            return (self.queues.identifier(1), self.queues.identifier(2), PID_FILE.read_text(),
                    os.readlink(SERVER_LINK))
        before = what_stands()
        second = subprocess.run(["mdxgate"], capture_output=True, text=True, timeout=PATIENCE_S)
        self.assertEqual(second.returncode, 1)
        self.assertIn("another server", second.stderr)
        self.assertEqual(before, what_stands())
        self.assert_serves()

    def test_with_too_few_files_it_says_so(self):
        few = subprocess.run(["prlimit", "--nofile=10", "mdxgate"], capture_output=True, text=True,
                             timeout=PATIENCE_S)
        self.assertEqual(few.returncode, 1)
        self.assertIn("too few files", few.stderr)

    def test_receivers_leave_files_for_clients(self):
        self.start_modem("--quiet")
        self.server = self.start("prlimit", "--nofile=64", "mdxgate")
        wait_until(READY_FLAG.exists, PATIENCE_S, "mdxgate is ready")
        with contextlib.ExitStack() as hubs:
            for _ in range(100):
                hub = hubs.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET))
                hub.connect("/var/run/mdxgate/hub")
                with contextlib.suppress(OSError):  # refused already
                    hub.send(struct.pack("II12sIIiiI", 0, 0, b"*", 0, 0, 0, 0, 0))
            wait_until(lambda: self.counter("receivers_refused") == 84, PATIENCE_S, "the rest is refused")
            self.assert_serves()

    def counter(self, name):
        shown = re.search(rf"{name} (\d+)", self.console("platform", "stats"))
        return int(shown[1]) if shown else None

    def test_client_in_another_pid_namespace_is_refused(self):
        self.start_device()
        other = subprocess.run(["unshare", "--pid", "--fork", "--mount-proc", "mdxctl", "at", "AT"],
                               capture_output=True, text=True, timeout=PATIENCE_S)
        self.assertIn("another PID namespace", other.stderr)
        self.assertEqual(other.returncode, 5)
        self.assert_serves()

    def test_client_that_waits_outlives_the_servers_fifo(self):
        go_on = threading.Event()

        def answer(line):
            if line == b"AT+SLOW":
                go_on.wait(PATIENCE_S)
            return b"\r\nOK\r\n"
        self.modem = ScriptedModem(answer)
        self.start_server()
        waiting = self.start_client("at", "--timeout", "100", "AT+SLOW")
        wait_until(lambda: b"AT+SLOW" in self.modem.heard, PATIENCE_S, "the command is under way")
        for remove in (lambda: os.unlink(os.readlink(SERVER_LINK)),
                       lambda: shutil.rmtree(SERVER_LINK.parent.rename("/var/run/gone"))):  # before it is made anew
            ends = select.poll()
            ends.register(os.open(SERVER_LINK, os.O_WRONLY | os.O_NONBLOCK), 0)
            remove()
            self.assertTrue(ends.poll(1000 * PATIENCE_S), "the FIFO is another one")
            wait_until(self.server_is_reachable, PATIENCE_S, "it is there again")
            time.sleep(0.2)
        go_on.set()
        self.assertEqual(self.finish(waiting)[0], 0)

    def test_client_killed_while_it_waits_hurts_nobody(self):
        self.start_device()
        for _ in range(15):
            client = self.start_client("at", "AT+CSQ")
            time.sleep(0.01)
            client.kill()
            self.finish(client)
        self.assert_serves()
        wait_until(lambda: not os.listdir(SERVER_LINK.parent / "tasks"), PATIENCE_S,
                   "their FIFOs are gone")

    def test_command_of_a_client_killed_behind_another_is_not_sent(self):
        """Its FIFO is removed meanwhile, and a request of a program that never had one is served."""
        first_may_end = threading.Event()
        self.modem = ScriptedModem(
            lambda line: b"\r\nOK\r\n" if line != b"AT+FIRST" or first_may_end.wait(PATIENCE_S) else b"")
        self.start_server()
        first = self.start_client("at", "--timeout", "60", "AT+FIRST")
        wait_until(lambda: b"AT+FIRST" in self.modem.heard, PATIENCE_S, "the command is under way")
        killed = self.start_client("at", "--timeout", "60", "AT+KILLED")
        wait_until(lambda: self.queues.depth(2) == 1, PATIENCE_S, "the second command waits")
        killed.kill()
        self.finish(killed)
        wait_until(lambda: not (SERVER_LINK.parent / "tasks" / str(killed.pid)).exists(), PATIENCE_S,
                   "its FIFO is gone")
        first_may_end.set()
        self.assertEqual(self.finish(first)[0], OK)
        self.at("AT+NEXT")
        self.assertNotIn(b"AT+KILLED", self.modem.heard)


if __name__ == "__main__":
    unittest.main()

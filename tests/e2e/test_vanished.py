# SPDX-License-Identifier: Apache-2.0
"""What clients and server meet by is removed, stolen or filled with rubbish, and comes back."""

import contextlib
import os
import pathlib
import re
import shutil
import subprocess
import time
import unittest

from device import (PATIENCE_S, SERVER_LINK, DeviceTest, SystemLog, over_and_over, record,
                    wait_until)

DIRECTORY = SERVER_LINK.parent
ME = 77


class Vanished(DeviceTest):
    def setUp(self):
        super().setUp()
        self.log = SystemLog()
        self.start_device()

    def remove_queue(self, number):
        self.queues.libc.msgctl(self.queues.identifier(number), 0, None)

    def assert_next_client_is_served(self):
        """A client that came at the very wrong moment may hear that nobody is there."""
        wait_until(lambda: self.ctl("at", "--timeout", "1", "AT+CSQ")[0] == 0, PATIENCE_S, "served")

    def test_whatever_is_removed_comes_back(self):
        """Also while others come and go in the directory."""
        with over_and_over(self.come_and_go):
            self.remove_one_after_the_other()
        shutil.rmtree(DIRECTORY)
        self.assert_next_client_is_served()
        self.assertEqual(oct(DIRECTORY.stat().st_mode & 0o7777), oct(0o755))
        second = subprocess.run(["mdxgate"], capture_output=True, text=True, timeout=PATIENCE_S)
        self.assertEqual(second.returncode, 1, "the directory is locked again")

    @staticmethod
    def come_and_go():
        with contextlib.suppress(OSError):
            (DIRECTORY / "tasks" / "4000001").touch()
            (DIRECTORY / "tasks" / "4000001").unlink()
        time.sleep(0.05)

    def remove_one_after_the_other(self):
        fifo = pathlib.Path(os.readlink(SERVER_LINK))
        for name, remove, trace in (
                ("answers", lambda: self.remove_queue(1), "queue 1 was removed"),
                ("requests", lambda: self.remove_queue(2), "queue 2 was removed"),
                ("link", SERVER_LINK.unlink, None),
                ("FIFO", fifo.unlink, "event.* was removed"),
                ("hub", (DIRECTORY / "hub").unlink, "hub was removed"),
                ("console", (DIRECTORY / "console").unlink, "console was removed"),
                ("tasks", lambda: shutil.rmtree(DIRECTORY / "tasks"), "tasks was removed"),
                ("directory", lambda: DIRECTORY.rename("/run/gone"), "mdxgate was removed"),
        ):
            with self.subTest(name):
                remove()
                self.assert_next_client_is_served()
                wait_until((DIRECTORY / "hub").exists, PATIENCE_S, "the hub is back")
                wait_until(lambda: "channel_open 1" in self.console("platform", "stats"), PATIENCE_S,
                           "the console is back")
                if trace:
                    wait_until(lambda: self.log.has(trace), PATIENCE_S, trace)

    def tried(self):
        return int(re.search(r"names_missing (\d+)", self.console("platform", "stats"))[1])

    def test_what_cannot_be_made_again_is_told_once(self):
        hub = DIRECTORY / "hub"
        hub.unlink()
        hub.symlink_to("/nowhere")
        wait_until(lambda: self.tried() > 3, PATIENCE_S, "it is tried again and again")
        self.assertEqual(sum("nobody can connect" in line for line in self.log.lines), 1)
        hub.unlink()
        wait_until(lambda: self.log.has("hub was removed: made again"), PATIENCE_S, "it is made in the end")

    def test_queue_put_in_the_place_of_a_removed_one(self):
        self.remove_queue(2)
        self.assertGreaterEqual(self.queues.libc.msgget(self.queues.KEY + 2, 0o1666), 0)
        self.assert_next_client_is_served()

    def test_requests_of_clients_that_died_before_they_woke_the_server(self):
        self.queues.wake = lambda: None
        while self.queues.send(record(b"AT", ME), ME):
            pass
        self.assert_serves()

    def test_rubbish_without_pause_in_the_event_fifo(self):
        fifo = os.open(SERVER_LINK, os.O_WRONLY)
        with over_and_over(lambda: os.write(fifo, os.urandom(65535))):
            for _ in range(3):
                self.assert_serves()


if __name__ == "__main__":
    unittest.main()

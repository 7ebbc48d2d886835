# SPDX-License-Identifier: Apache-2.0
"""The terminal of mdxsim, as a host finds it that opens it like any device."""

import os
import pathlib
import select
import unittest

from device import CHANNEL, PATIENCE_S, DeviceTest, wait_until

ANSWER = b"\r\n+CSQ: 20,99\r\n\r\nOK\r\n"


class Simulator(DeviceTest):
    def open(self):
        host = os.open(CHANNEL, os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, host)
        return host

    def ask(self, host, command, end=b"OK\r\n"):
        """The reads that the answer came in."""
        os.write(host, command)
        reads = []
        while not b"".join(reads).endswith(end):
            self.assertTrue(select.select([host], [], [], PATIENCE_S)[0], reads)
            reads.append(os.read(host, 4096))
        return reads

    def test_link_is_its_own(self):
        CHANNEL.write_text("precious")
        self.assertEqual(self.start("mdxsim").wait(PATIENCE_S), 3)
        self.assertEqual(CHANNEL.read_text(), "precious")
        CHANNEL.unlink()
        CHANNEL.symlink_to("/nowhere")
        self.start_modem()
        wait_until(CHANNEL.is_char_device, PATIENCE_S, "a link that leads nowhere is replaced")
        self.assertEqual(oct(CHANNEL.stat().st_mode & 0o777), oct(0o666))
        self.stop(self.modem)
        self.assertFalse(CHANNEL.is_symlink())
        self.start_modem()
        CHANNEL.unlink()
        CHANNEL.symlink_to("/nowhere")
        self.stop(self.modem)
        self.assertTrue(CHANNEL.is_symlink(), "another's link in its place")

    def test_each_piece_is_a_read(self):
        for cut, count in (("whole", 1), ("byte", len(ANSWER))):
            self.start_modem("--quiet", "--cut", cut)
            host = self.open()
            self.ask(host, b"ATE0\r")
            for _ in range(20):
                reads = self.ask(host, b"AT+CSQ\r")
                self.assertEqual((b"".join(reads), len(reads)), (ANSWER, count), cut)
            self.stop(self.modem)

    def test_session_of_a_host_that_leaves_early_is_not_played(self):
        session = pathlib.Path("/tmp/session.txt")
        session.write_text("> AT\\r\n< OK\n> ATZ\\r\n")
        self.start_modem("--replay", str(session), "--no-prelude")
        host = os.open(CHANNEL, os.O_RDWR | os.O_NOCTTY)
        self.ask(host, b"AT\r", b"OK")
        os.close(host)
        self.stop(self.modem)
        self.assertEqual(self.modem.returncode, 1)


if __name__ == "__main__":
    unittest.main()

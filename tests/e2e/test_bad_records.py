"""Whatever lies on the request queue, the server goes on serving."""

import os
import struct
import time
import unittest

from device import DeviceTest, record, scaled

ME = 4000000  # the id of no task
INT_MAX, INT_MIN = 2**31 - 1, -2**31


class BadRecords(DeviceTest):
    def test_texts_without_end_and_numbers_without_measure(self):
        self.start_device()
        no_end = b"AT" + b"A" * 638
        for name, request in (
                ("text without NUL", record(no_end, ME)),
                ("union without NUL", struct.pack("=iIiIIii", ME, 0, 0, 0, 0, 0, 1) + b"A" * 1572),
                ("cmd_len 2^31-1", record(b"AT", ME, cmd_len=INT_MAX)),
                ("cmd_len -2^31", record(b"AT", ME, cmd_len=INT_MIN)),
                ("line ends only", record(b"AT\r\n\r\n", ME, cmd_len=6)),
                ("timeout -1", record(b"AT", ME, timeout=-1)),
                ("timeout 2^31-1, answered", record(b"AT", ME, timeout=INT_MAX)),
                ("multi_line -1, transparent", record(b"AT+CSQ", ME, 5, multi_line=-1)),
                ("two steps, no CR", record(b"AT+CMGS=1", ME)),
                ("two steps, head of 640", record(b"AT+CMGS=" + b"1" * 632, ME)),
                ("sender -1", record(b"AT", -1)),
        ):
            with self.subTest(name):
                self.assertTrue(self.queues.send(request, ME))
                self.assert_serves_again()

    def flood(self, alive):
        """Others are served while a process fills the request queue without pause and takes no answer."""
        self.start_device()
        child = os.fork()
        if child == 0:
            task = os.getpid() if alive else ME
            if alive:
                os.mkfifo(f"/var/run/mdxgate/event.{task}")
                os.open(f"/var/run/mdxgate/event.{task}", os.O_RDWR)
            while True:
                if not self.queues.send(record(b"AT", task), task):
                    time.sleep(0.0002)
        try:
            for _ in range(scaled(100, 20)):
                self.assert_serves()
        finally:
            os.kill(child, 9)
            os.waitpid(child, 0)

    def test_flood_of_one_who_takes_no_answer(self):
        self.flood(alive=True)

    def test_flood_of_one_who_cannot_be_woken(self):
        self.flood(alive=False)


if __name__ == "__main__":
    unittest.main()

"""Whatever lies on the request queue, the server goes on serving."""

import os
import random
import struct
import time
import unittest

from device import DeviceTest, record, scaled

ME = 4000000  # the id of no task
INT_MAX, INT_MIN = 2**31 - 1, -2**31


class BadRecords(DeviceTest):
    def serve(self, name, request, message_type=ME):
        with self.subTest(name):
            self.assertTrue(self.queues.send(request, message_type))
            self.assert_serves_again()

    def test_texts_without_end_and_numbers_without_measure(self):
        self.start_device()
        no_end = b"AT" + b"A" * 638
        for name, request in (
                ("text without NUL", record(no_end, ME)),
                ("text without NUL, long", record(no_end, ME, cmd_len=INT_MAX)),
                ("union without NUL", struct.pack("=iIiIIii", ME, 0, 0, 0, 0, 0, 1) + b"A" * 1572),
                ("no AT, no NUL", record(b"Z" * 640, ME, cmd_len=640)),
                ("cmd_len 2^31-1", record(b"AT", ME, cmd_len=INT_MAX)),
                ("cmd_len -2^31", record(b"AT", ME, cmd_len=INT_MIN)),
                ("cmd_len -1", record(b"AT", ME, cmd_len=-1)),
                ("empty text", record(b"", ME)),
                ("line ends only", record(b"AT\r\n\r\n", ME, cmd_len=6)),
                ("timeout -1", record(b"AT", ME, timeout=-1)),
                ("timeout -2^31", record(b"AT", ME, timeout=INT_MIN)),
                ("timeout 2^31-1, answered", record(b"AT", ME, timeout=INT_MAX)),
                ("multi_line 7", record(b"AT+CSQ", ME, multi_line=7)),
                ("multi_line -1, transparent", record(b"AT+CSQ", ME, 5, multi_line=-1)),
                ("match without NUL", record(b"AT", ME, match=b"M" * 64)),
                ("two steps, no CR", record(b"AT+CMGS=1", ME)),
                ("two steps, no end mark", record(b"AT+CMGS=1\r" + b"0" * 630, ME)),
                ("two steps, head of 640", record(b"AT+CMGS=" + b"1" * 632, ME)),
                ("report unknown", record(b"", ME, req_type=2, rep_type=INT_MIN)),
                ("sender 0", record(b"AT", 0)),
                ("sender -1", record(b"AT", -1)),
        ):
            self.serve(name, request)

    def test_unknown_requests_get_what_was_promised(self):
        self.start_device()
        for request_type, answered in ((3, False), (4, True), (6, True), (0xFFFFFFFF, True)):
            with self.subTest(request_type=request_type):
                self.queues.send(record(b"AT", ME, request_type, seq=request_type))
                self.assert_serves_again()
                answer = self.queues.take(ME)
                self.assertEqual(answer is not None, answered)
                if answered:
                    self.assertEqual(struct.unpack_from("iII", answer, 0)[:2], (ME, request_type))
                    self.assertEqual(struct.unpack_from("I", answer, 16)[0], request_type)
                    self.assertEqual(struct.unpack_from("i", answer, 1592)[0], 8)

    def test_messages_of_another_size(self):
        self.start_device()
        for size in (0, 1, 4, 1599, 1601, 3200):
            self.serve(f"{size} bytes", b"A" * size)

    def test_arbitrary_bytes(self):
        seed = int.from_bytes(os.urandom(4), "little")
        dice = random.Random(seed)
        self.start_device()
        for turn in range(scaled(100, 15)):
            request = bytearray(dice.randbytes(1600))
            struct.pack_into("=iI", request, 0, ME, dice.choice((0, 2, 3, 4, 5, 9)))
            struct.pack_into("=ii", request, 20, dice.choice((0, 1, 2)), dice.choice((-5, 0, 0, 1)))
            if dice.random() < 0.7:
                request[92:94] = b"AT"
            while not self.queues.send(bytes(request), ME):
                self.assertIsNone(self.server.poll(), f"seed {seed}, turn {turn}")
                time.sleep(0.01)
        self.assert_serves_again(30)

    def flood(self, alive):
        """A process that fills the request queue without pause and never takes an answer."""
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

    def test_flood_of_one_who_takes_no_answer_hurts_nobody_else(self):
        self.flood(alive=True)

    def test_flood_of_one_who_cannot_be_woken_hurts_nobody_else(self):
        self.flood(alive=False)


if __name__ == "__main__":
    unittest.main()

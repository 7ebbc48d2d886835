# SPDX-License-Identifier: Apache-2.0
"""A command and its answer through client, queues, server, terminal device and modem, and back."""

import json
import os
import time
import unittest

from device import (NO_ANSWER, OK, PATIENCE_S, REFUSED_BY_MODEM, REFUSED_BY_SERVER, DeviceTest,
                    ScriptedModem, over_and_over, record, scaled, wait_until)


class Commands(DeviceTest):
    def test_eight_clients_get_their_own_answers_in_order(self):
        """The modem repeats what it is told, so every answer names the client and the number."""
        self.modem = ScriptedModem(
            lambda line: b"\r\n+TAG: " + line.partition(b"=")[2] + b"\r\n\r\nOK\r\n")
        self.start_server()
        tags = [[f"{client},{n}" for n in range(scaled(200, 30))] for client in range(8)]
        clients = [self.start_client("at", "--json", "--timeout", "60", "-",
                                     stdin="".join(f"AT+TAG={tag}\n" for tag in own))
                   for own in tags]
        for client, own in zip(clients, tags):
            code, out, err = self.finish(client, 200)
            self.assertEqual(code, OK, err)
            self.assertEqual([json.loads(line)["text"].strip() for line in out.splitlines()],
                             [f"+TAG: {tag}" for tag in own])

    def test_verdicts_of_a_modem_that_refuses_is_silent_or_unplugged(self):
        self.start_device()
        self.at("AT+NOSUCH", expect=REFUSED_BY_MODEM)
        self.at("AT+COPS=?", "--timeout", "1", expect=NO_ANSWER)
        self.stop(self.modem)
        self.wait_for_stat("channel_open 0")
        self.at("AT", expect=REFUSED_BY_SERVER)
        self.start_modem("--quiet")
        self.wait_for_stat("channel_open 1")
        self.assert_serves()

    def wait_for_stat(self, line):
        wait_until(lambda: line in self.console("platform", "stats"), PATIENCE_S, line)

    def test_message_to_a_silent_modem(self):
        """Its PDU is sent after the prompt's time, and its client told after the answer's."""
        head, pdu = "AT+CMGS=20", "0001000B914497381100000000A054747A0E4ACF41"
        both = [head.encode(), pdu.encode() + b"\x1a"]
        self.modem = ScriptedModem(lambda line: b"" if line in both else b"\r\nOK\r\n")
        self.start_server()
        code, _, err = self.ctl("sms-pdu", "--timeout", "1", head, pdu)
        self.assertEqual(code, NO_ANSWER, err)
        self.assertEqual(self.modem.heard[-2:], both)
        self.assertEqual(self.at("AT")["text"].strip(), "")

    def test_flood_of_one_who_takes_no_answer_hurts_nobody_else(self):
        """Whether it lives or cannot be woken."""
        self.start_device()
        task = os.getpid()
        for alive in (False, True):
            if alive:
                os.mkfifo(f"/var/run/mdxgate/tasks/{task}")
                os.open(f"/var/run/mdxgate/tasks/{task}", os.O_RDWR)

            def flood():
                if not self.queues.send(record(b"AT", task), task):
                    time.sleep(0.0002)

            with over_and_over(flood):
                for _ in range(scaled(100, 20)):
                    self.assert_serves()


if __name__ == "__main__":
    unittest.main()

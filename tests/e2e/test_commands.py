"""A command and its answer through client, queues, server, terminal device and modem, and back."""

import json
import re
import time
import unittest

from device import (CUTS, NO_ANSWER, NO_SERVER, OK, REFUSED_BY_MODEM, REFUSED_BY_SERVER, USAGE,
                    DeviceTest, ScriptedModem, scaled)


class Commands(DeviceTest):
    def run_many(self, cut):
        """Neighbouring commands have different answers: one lost or late answer shifts all others."""
        expected = {"AT+CSQ": r"^\+CSQ: \d+,\d+$", "AT+COPS?": r"^\+COPS: ", "AT+CGSN": r"^\d{15}$"}
        self.start_device("--cut", cut)
        commands = list(expected) * scaled(334, 34)
        code, out, err = self.ctl("at", "--json", "-", stdin="\n".join(commands) + "\n",
                                  seconds=200)
        self.assertEqual(code, OK, err)
        answers = [json.loads(line) for line in out.splitlines()]
        self.assertEqual([answer["command"] for answer in answers], commands)
        for answer in answers:
            self.assertRegex(answer["text"].strip(), expected[answer["command"]])

    def test_a_thousand_whole(self):
        self.run_many(CUTS[0])

    def test_a_thousand_byte_by_byte(self):
        self.run_many(CUTS[1])

    def test_a_thousand_cut_at_random(self):
        self.run_many(CUTS[2])

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

    def test_plain_output_is_text_on_stdout_and_result_on_stderr(self):
        self.start_device()
        for _ in range(3):
            code, out, err = self.ctl("at", "AT+CSQ")
            self.assertRegex(out, r"^\+CSQ: \d+,\d+\n$")
            self.assertRegex(err, r"\bOK\b")
            self.assertEqual(code, OK)

    def test_exit_codes(self):
        self.start_device()
        for expected, arguments in (
                (OK,               ("at", "AT")),
                (REFUSED_BY_MODEM, ("at", "AT+NOSUCH")),
                (USAGE,            ("at",)),
                (USAGE,            ("at", "AT", "--timeout", "soon")),
                (USAGE,            ("nonsense",)),
                (NO_ANSWER,        ("at", "--timeout", "1", "AT+COPS=?")),
        ):
            with self.subTest(arguments=arguments):
                code, _, err = self.ctl(*arguments)
                self.assertEqual(code, expected, err)
                self.assertNotEqual(err, "")

    def test_answers_that_look_like_reports(self):
        self.start_device()
        for options in ((), ("--match", "+CREG")):
            self.assertRegex(self.at("AT+CREG?", *options)["text"], r"^\+CREG: \d,\d")

    def test_transparent_keeps_every_line(self):
        self.start_device()
        self.assertRegex(self.at("AT+CSQ", "--transparent")["text"],
                         r"^\+CSQ: \d+,\d+\r\nOK\r\n$")

    def test_stored_report_is_the_last_one(self):
        self.start_device("--reports", "100")
        deadline = time.monotonic() + 20
        report = "^RSSI: 0"
        while report == "^RSSI: 0" and time.monotonic() < deadline:
            code, out, _ = self.ctl("report", "rssi")
            self.assertEqual(code, OK)
            report = out.strip()
        self.assertTrue(re.fullmatch(r"\^RSSI: ?[1-9]\d?", report), report)

    def test_no_server(self):
        start = time.monotonic()
        code, _, err = self.ctl("at", "AT")
        self.assertEqual(code, NO_SERVER)
        self.assertIn("mdxgate", err)
        self.assertLess(time.monotonic() - start, 2)

    def test_unplugged_modem_is_a_failed_write_until_it_is_back(self):
        self.start_device()
        self.stop(self.modem)
        time.sleep(0.5)
        self.at("AT", expect=REFUSED_BY_SERVER)
        self.start_modem("--quiet")
        time.sleep(2)
        self.assert_serves()


if __name__ == "__main__":
    unittest.main()

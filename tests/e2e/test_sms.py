"""The two-step dialogue with a modem that refuses, and with one that says nothing."""

import time
import unittest

from device import NO_ANSWER, REFUSED_BY_MODEM, DeviceTest, ScriptedModem

HEAD, PDU = "AT+CMGS=20", "0001000B914497381100000000A054747A0E4ACF41"
BOTH_HEARD = [HEAD.encode(), PDU.encode() + b"\x1a"]


class Sms(DeviceTest):
    def start_scripted(self, head_answer):
        answers = {BOTH_HEARD[0]: head_answer, BOTH_HEARD[1]: b""}
        self.modem = ScriptedModem(lambda line: answers.get(line, b"\r\nOK\r\n"))
        self.start_server()
        self.modem.heard.clear()

    def test_refused_head_keeps_the_pdu_back(self):
        self.start_scripted(b"\r\n+CMS ERROR: 304\r\n")
        code, _, err = self.ctl("sms-pdu", HEAD, PDU)
        self.assertEqual((code, self.modem.heard), (REFUSED_BY_MODEM, BOTH_HEARD[:1]), err)

    def test_silent_modem(self):
        """Both waits get the whole budget: two seconds each, and no more."""
        self.start_scripted(b"")
        start = time.monotonic()
        code, _, err = self.ctl("sms-pdu", "--timeout", "2", HEAD, PDU)
        self.assertEqual(code, NO_ANSWER, err)
        self.assertLess(time.monotonic() - start, 6)
        self.assertEqual(self.modem.heard, BOTH_HEARD)
        self.assertEqual(self.at("AT")["text"].strip(), "")


if __name__ == "__main__":
    unittest.main()

"""The two-step dialogue: command line, prompt, PDU, result."""

import time
import unittest

from device import NO_ANSWER, OK, REFUSED_BY_MODEM, DeviceTest, ScriptedModem

PDU = "0001000B914497381100000000A054747A0E4ACF41"


class Sms(DeviceTest):
    def test_sent(self):
        self.start_device("--cut", "byte")
        code, out, err = self.ctl("sms-pdu", "AT+CMGS=20", PDU)
        self.assertEqual(code, OK, err)
        self.assertRegex(out, r"\+CMGS: \d+")
        self.assert_serves()

    def start_scripted(self, head_answer, pdu_answer=b""):
        def answer(line):
            if line.startswith(b"AT+CMGS"):
                return head_answer
            return pdu_answer if line.startswith(PDU.encode()) else b"\r\nOK\r\n"

        self.modem = ScriptedModem(answer)
        self.start_server()
        self.modem.heard.clear()

    def test_refused_head_keeps_the_pdu_back(self):
        self.start_scripted(b"\r\n+CMS ERROR: 304\r\n")
        code, _, err = self.ctl("sms-pdu", "AT+CMGS=20", PDU)
        self.assertEqual((code, self.modem.heard), (REFUSED_BY_MODEM, [b"AT+CMGS=20"]), err)
        self.assertIn("CMS", err)

    def test_refused_pdu(self):
        self.start_scripted(b"\r\n> ", b"\r\n+CMS ERROR: 500\r\n")
        code, out, err = self.ctl("sms-pdu", "AT+CMGS=20", PDU)
        self.assertEqual(code, REFUSED_BY_MODEM, err)
        self.assertIn("+CMS ERROR: 500", out + err)
        self.assertEqual(self.modem.heard, [b"AT+CMGS=20", PDU.encode() + b"\x1a"])

    def test_silent_modem(self):
        """Both waits get the whole budget: two seconds each, and no more."""
        self.start_scripted(b"")
        start = time.monotonic()
        code, _, err = self.ctl("sms-pdu", "--timeout", "2", "AT+CMGS=20", PDU)
        self.assertEqual(code, NO_ANSWER, err)
        self.assertLess(time.monotonic() - start, 6)
        self.assertEqual(self.modem.heard, [b"AT+CMGS=20", PDU.encode() + b"\x1a"])
        self.assertEqual(self.at("AT")["text"].strip(), "")


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: Apache-2.0
"""No trace shows what commands and modem say, but the few whose purpose it is."""

import re
import time
import unittest

from device import PATIENCE_S, DeviceTest, ScriptedModem, SystemLog, wait_until

PIN, IMSI, PDU = "47110815", "262011234509876", "0001000B914497381100000000A054747A0E4ACF41"
INCOMING, USSD, UNKNOWN = "07913366003051F5040B913366634081F9", "Your secret balance", "+WORDS: plain"
# They show what was refused; nothing of it went to the modem.
MAY_SHOW = r"Send at command|is not AT start!"


class Secrets(DeviceTest):
    ANSWERS = {
        b"AT+CIMI": IMSI.encode() + b"\r\n",
        b"AT+CUSD=1,\"*100#\"": f'+CUSD: 0,"{USSD}",15\r\n'.encode(),
        b"AT+CMGR=1": b'+CMGR: 0,"",25\r\n' + INCOMING.encode() + b"\r\n",
        b"AT+CMGL=4": b'+CMGL: 0,0,,25\r\n' + INCOMING.encode() + b"\r\n",
        b"AT+WORDS": UNKNOWN.encode() + b"\r\n",
    }

    def answer(self, line):
        if line.startswith(b"AT+CMGS"):
            return b"\r\n> "
        return b"\r\n" + self.ANSWERS.get(line, b"") + b"\r\nOK\r\n"

    def test_at_text_is_in_no_trace(self):
        log = SystemLog()
        self.modem = ScriptedModem(self.answer)
        self.start_server()
        self.assertIn("trace 30", self.console("platform", "trace", "30"))
        for command in (f'AT+CPIN="{PIN}"', *(line.decode() for line in self.ANSWERS)):
            self.at(command)
            self.at(command, "--transparent")
        self.ctl("sms-pdu", "AT+CMGS=20", PDU)
        for report in (f'+CUSD: 1,"{USSD}",15', f"+CMT: ,25\r\n{INCOMING}", "^STIN: 1,0,0", UNKNOWN):
            self.modem.say(b"\r\n" + report.encode() + b"\r\n")
            time.sleep(0.2)
        self.at("AT+LAST")
        wait_until(lambda: log.has(r"AT cmd= \*\*\*"), PATIENCE_S, "the levels are on")
        shown = [line for line in log.lines if not re.search(MAY_SHOW, line)
                 and any(secret in line for secret in (PIN, IMSI, PDU, INCOMING, USSD, UNKNOWN))]
        self.assertEqual(shown, [])
        self.assertGreater(len(log.lines), 200)


if __name__ == "__main__":
    unittest.main()

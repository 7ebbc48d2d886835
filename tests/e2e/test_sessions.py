# SPDX-License-Identifier: Apache-2.0
"""Recorded modem sessions, replayed strictly through the real server, torn in three ways."""

import json
import pathlib
import re
import unittest

from device import CUTS, OK, REFUSED_BY_MODEM, DeviceTest

FOLDER = pathlib.Path(__file__).parent.parent / "sessions"
PDU = "0001000B914497381100000000A054747A0E4ACF41"

# What the clients do in each session, and what each of them must get.
SESSIONS = {
    "probe-under-reports": (
        (("at", "AT+GCAP"), REFUSED_BY_MODEM, "+CME ERROR: SIM busy"),
        (("at", "AT+GCAP"), OK, "+GCAP: +CGSM,+DS,+ES"),
        (("at", "ATZ E0 V1 +CMEE=1"), OK, ""),
        (("at", "AT+CPIN?"), OK, "+CPIN: READY"),
        (("at", "AT+CREG?"), OK, "+CREG: 0,1"),
        (("at", "AT+COPS=3,2;+COPS?"), OK, '+COPS: 0,2,"26203",2'),
        (("at", "AT+CSQ"), OK, "+CSQ: 13,99"),
        (("at", "ATD*99***1#"), OK, ""),
    ),
    "sms-under-reports": (
        (("at", "AT+CMGD=0"), OK, ""),
        (("sms-pdu", "AT+CMGS=22", PDU), OK, "+CMGS: 31"),
    ),
    "glued-report": (
        (("at", 'AT+CPMS="SM","SM"'), OK, "+CPMS: 0,50,0,50,0,50"),
        (("at", "AT+CMGL=4"), OK, "+CMGL: 0,0,,23\r\n"
         "07913366003051F5040B913366634081F900005180719120348004D4F29C0E"),
    ),
    "idle-roaming": (),
}
# No row of the server's report table, so text to whoever asks for every line.
UNKNOWN_REPORT = re.compile(r"\^BOOT:.*")
LAST_RSSI = {"idle-roaming": "^RSSI:25"}


class Sessions(DeviceTest):
    def replay(self, name):
        for cut in CUTS:
            with self.subTest(cut=cut):
                self.start_modem("--replay", str(FOLDER / f"{name}.txt"), "--cut", cut)
                self.start_server()
                try:
                    self.play(name)
                finally:
                    self.stop(self.server)
                    self.stop(self.modem)

    def play(self, name):
        for arguments, expected, text in SESSIONS[name]:
            code, out, err = self.ctl(*arguments, "--json", "--timeout", "15")
            self.assertEqual(code, expected, f"{arguments}: {out}{err}")
            self.assertEqual(UNKNOWN_REPORT.sub("", json.loads(out)["text"]).strip(), text,
                             arguments)
        self.assertEqual(self.modem.wait(20), 0, "the session was not played to its end")
        if name in LAST_RSSI:
            self.assertEqual(self.ctl("report", "rssi")[1].strip(), LAST_RSSI[name])

    def test_probe_under_reports(self):
        self.replay("probe-under-reports")

    def test_sms_under_reports(self):
        self.replay("sms-under-reports")

    def test_glued_report(self):
        self.replay("glued-report")

    def test_idle_roaming(self):
        self.replay("idle-roaming")

    def test_every_session_is_replayed(self):
        self.assertEqual({path.stem for path in FOLDER.glob("*.txt")}, set(SESSIONS))


if __name__ == "__main__":
    unittest.main()

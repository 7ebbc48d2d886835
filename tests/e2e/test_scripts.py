# SPDX-License-Identifier: Apache-2.0
"""The example scripts of mdxsim, played to the real server."""

import os
import pathlib
import subprocess
import unittest
import xml.etree.ElementTree

from device import CHANNEL, NO_ANSWER, OK, PATIENCE_S, REFUSED_BY_MODEM, USAGE, DeviceTest, wait_until

EXAMPLES = pathlib.Path(__file__).parent.parent.parent / "examples" / "mdxsim"
PDU = "0001000B914497381100000000A054747A0E4ACF41"


class Scripts(DeviceTest):
    def start_script(self, name):
        self.start_modem("--script", str(EXAMPLES / f"{name}.script"), "--log")
        self.start_server()

    def test_junit(self):
        """One test for each expectation; what did not come has failed, in words that XML can hold."""
        script = pathlib.Path("/tmp/a.script")
        script.write_text('on AT+A="<&" -> OK\nexpect AT+A="<&"\nexpect 2 AT+B\nend after 1s\n')
        over = subprocess.run(["mdxsim", "--script", script, "--junit", script], capture_output=True, timeout=60)
        self.assertEqual((over.returncode, script.read_text()[:2]), (USAGE, "on"), "a script is not written over")
        self.start_modem("--script", str(script), "--junit", "/tmp/junit.xml")
        host = os.open(CHANNEL, os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, host)
        os.write(host, b'AT+A="<&"\r')
        self.assertEqual(self.modem.wait(30), 1)
        suite = xml.etree.ElementTree.parse("/tmp/junit.xml").getroot()
        self.assertEqual(suite.attrib["failures"], "2")
        told = {case.attrib["name"]: [fault.attrib["message"] for fault in case] for case in suite}
        self.assertEqual(told['expect 1 AT+A="<&"'], [])
        self.assertIn("AT+B is expected 2 times, it did not come", told["expect 2 AT+B"][0])
        self.assertEqual(len(told["played to the end"]), 1)

    def wait_for_log(self, text):
        wait_until(lambda: text in self.log_of(self.modem), PATIENCE_S, f"the modem says {text}")

    def assert_played(self):
        self.assertEqual(self.modem.wait(70), 0, self.log_of(self.modem))

    def test_signal(self):
        self.start_script("signal")
        wait_until(lambda: "^RSSI:" in self.ctl("report", "rssi")[1], PATIENCE_S, "a report is stored")
        for _ in range(2):
            self.assertRegex(self.at("AT+CSQ")["text"], r"^\+CSQ: (1[0-9]|2[0-9]|3[01]),99\b")
        self.assertEqual(self.at("AT+CSQ")["text"].strip(), "+CSQ: 99,99")
        self.assert_played()

    def test_sms(self):
        self.start_script("sms")
        for code, text in ((REFUSED_BY_MODEM, "+CMS ERROR: 500"), (OK, "+CMGS: ")):
            got, out, err = self.ctl("sms-pdu", "AT+CMGS=20", PDU)
            self.assertEqual(got, code, err)
            self.assertIn(text, out + err)
        self.wait_for_log("+CMTI:")
        self.assertTrue(self.at("AT+CMGR=1")["text"].strip().endswith("9C0E"))
        self.at("AT+CMGD=1")
        self.assert_played()

    def test_unplugged(self):
        self.start_script("unplugged")
        node = os.readlink(CHANNEL)
        self.assertEqual(self.ctl("at", "--timeout", "2", "AT+COPS=?")[0], NO_ANSWER)
        self.wait_for_log("HOME")
        self.ctl("at", "--timeout", "1", "AT+CFUN=1,1")
        wait_until(lambda: not CHANNEL.is_symlink(), PATIENCE_S, "the device goes")
        wait_until(CHANNEL.is_symlink, PATIENCE_S, "the device comes back")
        self.assertNotEqual(os.readlink(CHANNEL), node)
        wait_until(lambda: "11.1.2" in self.ctl("at", "AT+CGMR")[1]
                   or self.modem.poll() is not None, PATIENCE_S, "a command is served again")
        self.assert_played()


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: Apache-2.0
"""The examples, as a reader runs them."""

import json
import pathlib
import re
import shutil
import subprocess
import unittest

from device import DeviceTest, OK, NO_SERVER

EXAMPLES = pathlib.Path(__file__).parent.parent.parent / "examples"


class Examples(DeviceTest):
    def example(self, *command, code=0):
        done = subprocess.run(command, capture_output=True, text=True, timeout=60)
        self.assertEqual(done.returncode, code, done.stdout + done.stderr)
        return done

    def test_c_command(self):
        self.assertIn("mdxgate", self.example("example_command", "AT", code=2).stderr)
        self.start_device()
        done = self.example("example_command", "AT+CSQ")
        self.assertRegex(done.stdout, r"^\+CSQ: \d+,\d+\s+OK\s*$")
        self.example("example_command", "AT+NOSUCH", code=1)

    def test_cpp_event_loop(self):
        self.start_device("--reports", "100")
        done = self.example("example_event_loop", "3")
        self.assertEqual(done.stdout.count("answer: +CSQ: "), 3, done.stdout)
        self.assertRegex(done.stdout, r"report: EVT_AT_SYS_MODE sys_mode=\d+ sys_submode=\d+\n")

    def test_shell_signal(self):
        if shutil.which("jq") is None:
            self.skipTest("jq is missing: scripts/install-packages check")
        self.example(EXAMPLES / "signal.sh", code=NO_SERVER)
        self.start_device()
        signal = json.loads(self.example(EXAMPLES / "signal.sh", code=OK).stdout)
        self.assertTrue(-113 <= signal["dbm"] <= -51, signal)
        self.assertEqual((signal["registered"], type(signal["operator"])), (True, str))

    def set_up(self, name, script, goes_on=()):
        """Runs an example for a kind of modem on one that behaves so, and does what it expects."""
        path = pathlib.Path("/tmp/modem.script")
        path.write_text(script)
        self.start_device("--quiet", "--script", str(path))
        code, _, err = self.ctl("init", str(EXAMPLES / "init" / f"{name}.init"))
        self.assertEqual(code, OK, err)
        self.assertEqual(tuple(re.findall(r"init:\d+: (\S+): .*; going on", err)), goes_on)

    def test_set_up_by_the_book(self):
        self.set_up("generic", "on AT+CFUN=1 -> living\nexpect AT+COPS=0\n")
        self.assertRegex(self.at("AT+CREG?")["text"], r"\+CREG: 2,1,")
        self.assertIn("+CNMI: 2,1,0,0,0", self.at("AT+CNMI?")["text"])
        self.stop(self.modem)
        self.assertEqual(self.modem.returncode, 0, self.log_of(self.modem))

    def test_set_up_of_a_modem_with_signs_of_its_own(self):
        self.set_up("caret", """
on AT^CURC=1 -> OK
on AT^SYSCFGEX="00",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF,, -> OK
on AT^HCSQ=1 -> COMMAND NOT SUPPORT
expect AT^SYSCFGEX=*
expect AT+CGREG=2
""", goes_on=("AT^HCSQ=...",))
        self.stop(self.modem)
        self.assertEqual(self.modem.returncode, 0, self.log_of(self.modem))

    def test_set_up_of_a_modem_that_sleeps(self):
        self.set_up("narrowband", """
on AT -> OK
on AT+CMEE=1 -> OK
on AT+CEREG=2 -> OK
on AT+CGDCONT=1,"IP","iot.example" -> OK
on AT+CPSMS=1,,,"00111000","00011110" -> OK
on AT+CEDRXS=1,4,"0101" -> OK
on AT+CFUN=1 after 2s -> OK
on AT+COPS=0 after 2s -> OK
expect AT+COPS=0
else ERROR
""", goes_on=("AT+CMGF=...",))
        self.stop(self.modem)
        self.assertEqual(self.modem.returncode, 0, self.log_of(self.modem))

    def test_python_reports(self):
        self.start_device("--reports", "100")
        lines = self.example(EXAMPLES / "reports.py", "5").stdout.splitlines()
        self.assertEqual(len(lines), 5)
        self.assertTrue(any("notification to module " in line for line in lines), lines)


if __name__ == "__main__":
    unittest.main()

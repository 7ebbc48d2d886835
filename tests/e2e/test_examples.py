# SPDX-License-Identifier: Apache-2.0
"""The examples, as a reader runs them."""

import json
import pathlib
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

    def test_python_reports(self):
        self.start_device("--reports", "100")
        lines = self.example(EXAMPLES / "reports.py", "5").stdout.splitlines()
        self.assertEqual(len(lines), 5)
        self.assertTrue(any("notification to module " in line for line in lines), lines)


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: Apache-2.0
"""What the documents tell people to paste works as told, and so does the demo's tour."""

import os
import pathlib
import re
import signal
import subprocess
import sys
import unittest

from device import PATIENCE_S, SERVER_LINK, DeviceTest, ScriptedModem, wait_until

ROOT = pathlib.Path(__file__).parent.parent.parent


def code_block(file, heading, language):
    """The first block of a language below a heading."""
    section = (ROOT / file).read_text().partition(f"\n## {heading}\n")[2]
    return re.search(rf"```{language}\n(.*?)```", section, re.S).group(1)


class Docs(DeviceTest):
    def test_readme_tour(self):
        """Line by line, as pasted. A remark tells what the line prints, or its exit code."""
        opening, *lines = code_block("README.md", "Try it in five minutes", "sh").splitlines()
        self.assertEqual(opening, "scripts/box bash")
        # The marks tell where a line's output ends and how it ended.
        script = "".join(f"{line}\necho \"::mark $?\"\n" for line in lines)
        script += "kill $(jobs -p)\n"
        tour = subprocess.run(["bash"], input=script, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, timeout=120)
        outputs = re.split(r"::mark (\d+)\n", tour.stdout)[:2 * len(lines)]
        results = list(zip(outputs[::2], map(int, outputs[1::2])))
        for line, (output, code) in zip(lines, results, strict=True):
            remark = line.partition("# ")[2]
            told_code = re.search(r"exit code (\d)", remark)
            told_text = re.search(r"prints (\S+)", remark)
            self.assertEqual(code, int(told_code[1]) if told_code else 0, f"{line}\n{output}")
            if told_text:
                self.assertIn(told_text[1].rstrip(","), output, line)

    def test_python_client_of_the_wire_formats(self):
        self.start_device()
        pathlib.Path("/tmp/client.py").write_text(
            code_block("docs/wire-formats.md", "A client in Python", "python"))
        for command, code, text in (("AT+CSQ", 0, "+CSQ:"), ("AT+NOSUCH", 1, "")):
            # Something that an earlier task of its number has left.
            left = 'mkfifo "/var/run/mdxgate/tasks/$$"; exec "$@"'
            client = subprocess.run(["sh", "-c", left, "sh", sys.executable, "/tmp/client.py", command],
                                    capture_output=True, text=True, timeout=30)
            self.assertEqual(client.returncode, code, client.stderr)
            self.assertIn(text, client.stdout)

    def test_python_client_goes_on_without_the_fifo(self):
        """Its server makes another one; but a dead server makes none."""
        self.modem = ScriptedModem(lambda line: b"" if line == b"AT+SLOW" else b"\r\nOK\r\n")
        self.start_server()
        program = code_block("docs/wire-formats.md", "A client in Python", "python")
        for result, end in ((b"\r\nOK\r\n", lambda: None), (b"", lambda: self.stop(self.server, signal.SIGKILL))):
            heard = self.modem.heard.count(b"AT+SLOW")
            client = subprocess.Popen((sys.executable, "-c", program, "AT+SLOW"), stderr=subprocess.PIPE, text=True)
            wait_until(lambda: self.modem.heard.count(b"AT+SLOW") > heard, PATIENCE_S, "the modem has the command")
            fifo = pathlib.Path(os.readlink(SERVER_LINK))
            inode = fifo.stat().st_ino
            fifo.unlink()
            wait_until(lambda: fifo.exists() and fifo.stat().st_ino != inode, PATIENCE_S, "another FIFO")
            end()
            self.modem.say(result)
            _, error = client.communicate(timeout=PATIENCE_S)
            self.assertEqual(client.returncode, 0 if result else 1, error)
        self.assertIn("the server is gone", error)

    def test_a_modem_in_ci(self):
        """With the modem gone before it is told to go; and with a program that fails."""
        place = pathlib.Path("/tmp/ci")
        place.mkdir()
        (place / "test-with-modem").write_text(code_block("docs/ci.md", "In each run", "sh"))
        (place / "modem.script").write_text("on AT -> OK\nexpect AT\nend when expected\n")
        program = place / "program-under-test"
        talks = "exec 3<>$1; printf 'AT\\r' >&3; while [ -e $1 ]; do sleep 0.1; done"
        for work, code in ((talks, 0), ("exit 7", 7)):
            program.write_text(f"#!/bin/sh\n{work}\n")
            program.chmod(0o755)
            run = subprocess.run(["bash", "-e", "test-with-modem", "--cut", "byte"], cwd=place, timeout=60,
                                 capture_output=True, text=True)
            self.assertEqual(run.returncode, code, run.stderr)
            self.assertIn("<testcase", (place / "result.xml").read_text())
            (place / "result.xml").unlink()
            self.assertFalse(pathlib.Path("/tmp/modem").is_symlink(), "mdxsim has ended")

    def test_tour_of_the_demo(self):
        tour = subprocess.run([ROOT / "scripts" / "tour"], stdin=subprocess.DEVNULL, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)
        self.assertEqual(tour.returncode, 0, tour.stdout)


if __name__ == "__main__":
    unittest.main()

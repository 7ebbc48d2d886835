# SPDX-License-Identifier: Apache-2.0
"""mdxctl shell and top on a terminal: keys go in through tmux, its screen is what is looked at."""

import os
import pathlib
import pty
import re
import select
import shutil
import signal
import subprocess
import time
import unittest

from device import PATIENCE_S, DeviceTest, ScriptedModem, wait_until


@unittest.skipIf(shutil.which("tmux") is None, "tmux is missing: scripts/install-packages check")
class Terminal(DeviceTest):
    def setUp(self):
        super().setUp()
        os.environ.update(TERM="xterm-256color", LANG="C.UTF-8", HOME="/tmp", PS1="$ ")
        os.environ.pop("XDG_STATE_HOME", None)
        self.tmux("-f", "/dev/null", "new-session", "-d", "-x", "80", "-y", "24", "sh")

    def tearDown(self):
        self.tmux("kill-server")
        super().tearDown()

    @staticmethod
    def tmux(*arguments):
        return subprocess.run(("tmux", *arguments), capture_output=True, text=True, timeout=PATIENCE_S).stdout

    def screen(self):
        return self.tmux("capture-pane", "-p")

    def type(self, text, *keys):
        self.tmux("send-keys", "-l", text)
        for key in keys or ("Enter",):
            self.tmux("send-keys", key)

    def see(self, *texts):
        try:
            wait_until(lambda: all(text in self.screen() for text in texts), PATIENCE_S, "")
        except AssertionError:
            self.fail(f"{texts} not on the screen:\n{self.screen()}")

    def see_a_report(self):
        """A new one, with nothing typed meanwhile."""
        def reports():
            return re.findall(r"^\d\d:\d\d:\d\d\.\d{3} ", self.screen(), re.M)[-1:]
        before = reports()
        wait_until(lambda: reports() != before, PATIENCE_S, "a report")

    def assert_terminal_is_as_before(self):
        wait_until(lambda: self.tmux("display-message", "-p", "#{pane_current_command}") == "sh\n",
                   PATIENCE_S, "back in the shell")
        self.type("clear; stty -a | grep -o ' icanon' && stty -a | grep -o ' echo ' && echo so''und")
        self.see("sound")

    def test_shell(self):
        self.start_device("--reports", "700")
        self.type("mdxctl shell")
        self.see("at>")
        self.type("at+gc", "Tab", "Enter")
        self.see("at> AT+GCAP", "+GCAP: ", "OK")
        self.type("half a line", "Left", "Escape")
        self.see_a_report()
        wait_until(lambda: self.screen().rstrip().endswith("\nat> half a line"), PATIENCE_S, "the line")
        self.tmux("send-keys", "C-c", "C-r")
        self.tmux("send-keys", "-l", "GC")
        self.see("bck:GC")
        self.see_a_report()
        self.tmux("send-keys", "C-c")
        self.type("reports off")
        self.type('AT+CPIN="1234"')
        self.see("CME ERROR")
        self.type("AT+COPS=?")
        time.sleep(0.3)
        self.tmux("send-keys", "C-c")
        self.see("given up")
        self.type("", "Up")
        self.see("at> AT+COPS=?")
        self.tmux("send-keys", "C-u")
        self.type("nonsense")
        self.see("help shows")
        self.type("reports on")
        self.see_a_report()
        self.stop(self.modem)
        self.see("link MDX_LINK_GONE the modem is gone")
        self.type("", "C-d")
        self.assert_terminal_is_as_before()
        history = pathlib.Path("/tmp/.local/state/mdxctl/history").read_text().splitlines()
        self.assertEqual(history, ["AT+GCAP", "reports off", "AT+COPS=?", "nonsense", "reports on"])

    def test_interrupt_at_the_prompt_of_the_demo_ends_nothing(self):
        """Above the tour stands a program that a Ctrl-C ends, as the one that makes its world."""
        tour = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "tour"
        self.type(f"python3 -c 'import subprocess; subprocess.run(\"{tour}\")'")
        self.see("at>")
        self.type("half a line", "C-c")
        self.type("AT+GCAP")
        self.see("+GCAP: ")
        self.type("", "C-d")
        self.see("Everything that ran here ends now")

    def test_top(self):
        self.start_device("--reports", "200")
        self.type("mdxctl top")
        self.see("modem open", "latency", "requests 0/10", "dBm", "EVT_AT_HCSQ", "q ends")
        busy = self.start_client("at", "-", stdin="AT+CSQ\n" * 100000)
        wait_until(lambda: re.search(r"commands +\d+ +[1-9]\d*\.\d/s", self.screen()), PATIENCE_S, "a rate")
        busy.kill()
        self.finish(busy)
        self.see("RECEIVER", "  *   ")
        for columns, lines in ((120, 40), (44, 12), (10, 2), (80, 24)):
            self.tmux("resize-window", "-x", str(columns), "-y", str(lines))
            end = "q ends" if lines >= 10 else "mdxctl top"
            wait_until(lambda: end in self.screen().splitlines()[0 if lines < 10 else -1], PATIENCE_S,
                       f"drawn in {columns}x{lines}")
        self.stop(self.modem)
        self.see("modem gone for", "SIGNAL  the modem is gone; -", "MDX_LINK_GONE")
        self.start_modem("--quiet")
        self.see("modem open", "MDX_LINK_UP")
        self.stop(self.server)
        self.server = None
        self.see("no server is running")
        self.start_server()
        self.see("modem open")
        self.type("q", "C-l")
        self.assert_terminal_is_as_before()


class Interrupted(DeviceTest):
    """The shell on a bare terminal, where nobody but the test stops and continues it."""

    def start_shell(self):
        self.shell, self.keys = pty.fork()
        if self.shell == 0:
            os.execlp("mdxctl", "mdxctl", "shell")
        self.shown = ""
        self.see("at>")

    def see(self, text):
        """Reads what the shell shows, up to the text, which is new since the last call."""
        deadline = time.monotonic() + PATIENCE_S
        while text not in self.shown:
            if not select.select([self.keys], [], [], max(0, deadline - time.monotonic()))[0]:
                self.fail(f"{text} is not in {self.shown!r}")
            self.shown += os.read(self.keys, 4096).decode()
        before, _, self.shown = self.shown.partition(text)
        return before

    def test_interrupt_while_the_command_has_news(self):
        """Both are there when the shell looks: it is stopped until they are."""
        self.modem = ScriptedModem(lambda line: b"" if line == b"AT+HANG" else b"\r\nOK\r\n")
        self.start_server()
        self.start_shell()
        os.write(self.keys, b"AT+HANG\r")
        wait_until(lambda: b"AT+HANG" in self.modem.heard, PATIENCE_S, "the command is under way")
        os.kill(self.shell, signal.SIGSTOP)
        os.waitpid(self.shell, os.WUNTRACED)
        time.sleep(0.7)  # twice a second it looks for the answer without being told
        os.kill(self.shell, signal.SIGINT)
        os.kill(self.shell, signal.SIGCONT)
        self.see("given up; the modem may still be at it")
        self.assertNotIn("can never be served", self.see("at>"))

        self.modem.say(b"\r\nOK\r\n")
        os.write(self.keys, b"AT+HANG\r")
        wait_until(lambda: self.modem.heard.count(b"AT+HANG") == 2, PATIENCE_S, "and another one")
        os.kill(self.shell, signal.SIGTERM)
        self.see("given up")
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(self.shell, 0)[1]), -signal.SIGTERM)


if __name__ == "__main__":
    unittest.main()

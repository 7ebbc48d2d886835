# SPDX-License-Identifier: Apache-2.0
"""What people do with a modem without knowing AT: signal, network, sim, modem, ussd, wait, init, watch --exec."""

import json
import os
import pathlib
import re
import signal
import subprocess
import termios
import time
import unittest

from device import NO_ANSWER, OK, PATIENCE_S, REFUSED_BY_MODEM, USAGE, DeviceTest, wait_until

# Four modems that answer as makers do: by the book, with signs of their own, packed USSD, asleep.
SCRIPT = {
    "standard": """
on AT^* -> ERROR
on AT+CESQ -> +CESQ: 99,99,255,255,20,60 | OK
on AT+CEREG? -> +CEREG: 0,5 | OK
on AT+CEREG=2;+CEREG?;+CEREG=0 -> +CEREG: 2,5,"1A2B","01C3D4E5",7 | OK
on AT+CPINR -> +CPINR: SIM PIN,3 | +CPINR: SIM PUK,10 | OK
on AT+CCID -> +CCID: 8949000000000000001F | OK
on AT+CUSD=1,"*100#",15 -> OK
also after 100ms -> +CUSD: 0,"Balance 5",15
""",
    "caret": """
on AT+CESQ -> ERROR
on AT^HCSQ? -> ^HCSQ:"LTE",40,52,121,28 | OK
on AT+CPINR -> ERROR
on AT^CPIN? -> ^CPIN: READY,,10,1,10,3 | OK
on AT^ICCID? -> ^ICCID: "8949000000000000002F" | OK
on AT+CUSD=1,"*100#",15 -> +CME ERROR: 100
on AT+CUSD=1,"AA180C3602",15 -> OK
also after 100ms -> +CUSD: 0,"C8329BFD06DDDF723619",15
""",
    "ucs2": """
on AT+CSCS? -> +CSCS: "UCS2" | OK
on AT+CUSD=1,"002A0031003000300023",15 -> +CUSD: 0,"00420061006C0020007A0142",72 | OK
""",
    "silent": """
on AT+CUSD=1* -> OK
on AT+CSQ -> nothing
""",
}


class Daily(DeviceTest):
    def scripted(self, name):
        script = pathlib.Path("/tmp/modem.script")
        script.write_text(SCRIPT[name])
        self.start_device("--script", str(script))

    def json(self, *arguments, expect=OK):
        code, out, err = self.ctl(*arguments, "--json")
        self.assertEqual(code, expect, f"{arguments}: {out}{err}")
        return json.loads(out)

    def test_modem_by_the_book(self):
        self.scripted("standard")
        levels = self.json("signal")
        self.assertEqual((levels["rsrp_dbm"], levels["rsrq_db"]), (-81, -10))
        network = self.json("network")["registration"]["evolved"]
        self.assertEqual(network, {"status": "roaming", "registered": True, "roaming": True, "area": "1A2B",
                                   "cell": "01C3D4E5", "technology": "LTE"})
        sim = self.json("sim")
        self.assertEqual((sim["iccid"], sim["pin_tries_left"]), ("8949000000000000001F", 3))
        self.assertEqual(self.json("ussd", "*100#")["steps"], [{"text": "Balance 5", "state": "done"}])
        self.assertEqual(self.json("modem")["model"], "mdxsim")

    def test_modem_with_signs_of_its_own(self):
        self.scripted("caret")
        levels = self.json("signal")
        self.assertEqual((levels["technology"], levels["rsrp_dbm"]), ("LTE", -89))
        sim = self.json("sim")
        self.assertEqual((sim["iccid"], sim["pin_tries_left"]), ("8949000000000000002F", 1))
        self.assertEqual(self.json("ussd", "*100#")["steps"][0]["text"], "Hello world")

    def test_modem_that_speaks_ucs2(self):
        self.scripted("ucs2")
        self.assertEqual(self.ctl("ussd", "*100#")[:2], (OK, "Bal z\u0142\n"))

    def test_modem_that_keeps_quiet(self):
        self.scripted("silent")
        code, _, err = self.ctl("ussd", "*100#", "--timeout", "1")
        self.assertEqual(code, NO_ANSWER)
        self.assertIn("did not answer within 1 s", err)
        code, _, err = self.ctl("signal", "--timeout", "1")
        self.assertEqual(code, NO_ANSWER)
        self.assertIn("--timeout SECONDS allows more", err)

    def test_dialogue_by_ussd(self):
        self.start_device("--quiet")
        code, out, _ = self.ctl("ussd", "*101#", "--reply", "1")
        self.assertEqual(code, OK)
        self.assertIn("1 Balance", out)
        self.assertIn("12.50 EUR", out)
        self.assertEqual(self.ctl("ussd", "*101#")[0], REFUSED_BY_MODEM, "it wants a reply")
        self.assertEqual(self.ctl("ussd", "--cancel")[0], OK)

    def test_pin(self):
        self.start_device("--quiet", "--pin", "4713")
        self.assertIn("asks for its PIN", self.ctl("status")[1])
        for arguments in (("sms", "list"), ("ussd", "*100#")):
            code, _, err = self.ctl(*arguments)
            self.assertEqual((code, "the SIM wants its PIN" in err), (REFUSED_BY_MODEM, True), err)
        self.assertEqual(self.ctl("wait", "sim", "--timeout", "1")[0], NO_ANSWER)
        pin = pathlib.Path("/tmp/pin")
        pin.write_text("4713\n")
        self.assertEqual(self.ctl("sim", "unlock")[0], USAGE, "no terminal")
        for left in (2, 1):
            code, _, err = self.ctl("sim", "unlock", "--pin-file", "-", stdin="1111\n")
            self.assertEqual(code, REFUSED_BY_MODEM)
            self.assertIn(f"tries left: {left}", err)
            self.assertNotIn("1111", err)
        code, _, err = self.ctl("sim", "unlock", "--pin-file", str(pin))
        self.assertEqual(code, USAGE, err)
        self.assertIn("one try is left", err)
        self.assertEqual(self.ctl("sim", "unlock", "--pin-file", str(pin), "--last-try")[0], OK)
        self.assertEqual(self.ctl("wait", "sim", "--timeout", "30")[0], OK)

    def test_interrupt_leaves_nothing_behind(self):
        """Neither a terminal that shows nothing nor a dialogue that nobody ends."""
        script = pathlib.Path("/tmp/modem.script")
        script.write_text("on AT+CPIN? -> +CPIN: SIM PIN | OK\non AT+CUSD=1* -> OK\non AT+CUSD=2 -> OK\n"
                          "on AT+CPINR -> +CPINR: SIM PIN,-1 | OK\nexpect AT+CUSD=2\n")
        self.start_device("--quiet", "--script", str(script))
        code, _, err = self.ctl("sim", "unlock", "--pin-file", "-", stdin="1111\n")
        self.assertEqual(code, USAGE, err)
        self.assertIn("does not tell how many tries are left", err)
        master, slave = os.openpty()
        asking = subprocess.Popen(("mdxctl", "sim", "unlock", "--last-try"), stdin=slave, stderr=subprocess.DEVNULL)
        shows = lambda: bool(termios.tcgetattr(slave)[3] & termios.ECHO)
        wait_until(lambda: not shows(), PATIENCE_S, "it asks for the PIN")
        asking.send_signal(signal.SIGINT)
        self.assertEqual(asking.wait(PATIENCE_S), -signal.SIGINT)
        self.assertTrue(shows())
        os.close(master)
        os.close(slave)
        sent = lambda: int(re.search(r"^commands (\d+)", self.console("platform", "stats"), re.M)[1])
        before = sent()
        waiting = self.start_client("ussd", "*1#", "--timeout", "600")
        wait_until(lambda: sent() >= before + 2, PATIENCE_S, "the modem took the code")
        waiting.send_signal(signal.SIGINT)
        self.assertEqual(self.finish(waiting)[0], -signal.SIGINT)
        self.stop(self.modem)
        self.assertEqual(self.modem.returncode, 0, "the dialogue was ended: " + self.log_of(self.modem))

    def test_wait(self):
        self.assertEqual(self.ctl("wait", "modem", "--timeout", "0")[0], NO_ANSWER)
        waiting = self.start_client("wait", "modem", "--timeout", "60")
        self.start_device("--quiet")
        self.assertEqual(self.finish(waiting)[0], OK)
        self.assertEqual(self.ctl("wait", "registered", "--timeout", "60")[0], OK)
        self.assertIn("AT+CNMI=2,1", self.ctl("wait", "sms", "--timeout", "1")[2])
        self.at("AT+CNMI=2,1")
        waiting = self.start_client("wait", "sms", "--timeout", "60")
        wait_until(lambda: "module" in self.console("platform", "receivers")
                   or "*" in self.console("platform", "receivers"), PATIENCE_S, "it hears")
        self.assertEqual(self.ctl("sms", "send", "+15550100", "hello")[0], OK)
        self.assertEqual(self.finish(waiting)[0], OK)

    def test_init_runs_again_when_the_modem_comes_back(self):
        script = pathlib.Path("/tmp/modem.script")
        script.write_text("on AT+CFUN=1,1 -> hang-up 1s\n")
        init = pathlib.Path("/tmp/modem.init")
        init.write_text("# ours\nAT+CMEE=1\n? AT+NOSUCH=\"secret\"\nAT+CMGF=0\n")
        self.start_modem("--script", str(script), "--log")
        self.start_server()
        code, _, err = self.ctl("init", str(init))
        self.assertEqual(code, OK, err)
        self.assertRegex(err, r"modem\.init:3: AT\+NOSUCH=\.\.\.: \+CME ERROR: 4, not supported; going on")
        follower = self.start("mdxctl", "init", "--follow", str(init))
        wait_until(lambda: self.log_of(follower).count("done") == 1, PATIENCE_S, "the first run")
        self.ctl("modem", "reset", "--yes")
        wait_until(lambda: self.log_of(follower).count("done") == 2, PATIENCE_S, "the second run")
        self.assertNotIn("secret", self.log_of(follower))
        init.write_text("AT+CPIN=\"1\"\nAT+CMGF=0\n")
        self.assertEqual(self.ctl("init", str(init))[0], REFUSED_BY_MODEM)
        init.write_text("AT+CMGF=1\nnonsense\n")
        code, _, err = self.ctl("init", str(init))
        self.assertEqual(code, USAGE)
        self.assertIn("line 2", err)
        self.assertIn("+CMGF: 0", self.at("AT+CMGF?")["text"], "nothing of a file with a mistake is run")

    def test_program_for_each_packet(self):
        self.start_device("--reports", "100")
        program = pathlib.Path("/tmp/note")
        program.write_text("#!/bin/sh\nprintf '%s ' \"$MDX_REPORT\"; cat; exit 3\n")
        program.chmod(0o755)
        code, out, err = self.ctl("watch", "--exec", str(program), "--only", "EVT_AT_HCSQ", "--count", "2")
        self.assertEqual(code, OK, err)
        lines = out.splitlines()
        self.assertEqual(len(lines), 2)
        for line in lines:
            name, text = line.split(" ", 1)
            self.assertEqual((name, json.loads(text)["event"]), ("EVT_AT_HCSQ", "EVT_AT_HCSQ"))
        self.assertIn("ended with 3", err)
        self.assertEqual(self.ctl("watch", "--exec", "/tmp/none", "--count", "1")[0], USAGE)
        self.assertEqual(self.ctl("watch", "--only", "SIGNALS")[0], USAGE)
        program.write_text("#!/bin/sh\necho begun; exec sleep 600\n")
        watching = self.start("mdxctl", "watch", "--exec", str(program))
        wait_until(lambda: "begun" in self.log_of(watching), PATIENCE_S, "the program")
        watching.send_signal(signal.SIGTERM)
        self.assertEqual(watching.wait(PATIENCE_S), OK, "the program is told to end")

    def test_what_went_wrong_is_told_in_words(self):
        """Also where the modem's own words would move a terminal's cursor."""
        script = pathlib.Path("/tmp/modem.script")
        script.write_text("on AT+CPIN? -> +CPIN: \\x1b[31mred | OK\non AT+SILENT -> nothing\n")
        self.start_device("--script", str(script))
        cases = (
            (("sim", "unlock"),                   REFUSED_BY_MODEM, "asks for ?[31mred, not"),
            (("wait", "sim", "--timeout", "0"),   NO_ANSWER,        "asks for ?[31mred"),
            (("ussd",),                           USAGE,            "which code?"),
            (("init", "-"),                       USAGE,            "standard input holds no command"),
            (("init", "/tmp"),                    USAGE,            "/tmp cannot be read: Is a directory"),
            (("sms", "read", "-1"),               USAGE,            "'-1' is no message's number"),
            (("sms", "delete", "99999999999"),    USAGE,            "is no message's number"),
        )
        for arguments, expected, told in cases:
            code, _, err = self.ctl(*arguments)
            self.assertEqual((code, told in err), (expected, True), f"{arguments}: {err}")
            self.assertNotIn("\x1b", err, arguments)
        slow = self.start_client("at", "--timeout", "600", "AT+SILENT")
        wait_until(lambda: "AT_IDLE_S" not in self.console("display", "state"), PATIENCE_S, "the modem works")
        for arguments, waits_longer in ((("signal", "--timeout", "1"), False), (("at", "--timeout", "1", "AT"), True)):
            code, _, err = self.ctl(*arguments)
            self.assertEqual((code, "did not get its turn" in err), (NO_ANSWER, True), err)
            self.assertEqual("--wait SECONDS waits longer" in err, waits_longer, arguments)
        slow.send_signal(signal.SIGINT)
        self.finish(slow)

    def test_nothing_is_asked_while_nothing_happens(self):
        self.start_device("--quiet")
        watching = self.start_client("signal", "--watch")
        commands = lambda: int(re.search(r"^commands (\d+)", self.console("platform", "stats"), re.M)[1])
        wait_until(lambda: commands() >= 3, PATIENCE_S, "the first look")
        time.sleep(0.5)
        before = commands()
        time.sleep(3)
        self.assertEqual(commands(), before)
        watching.send_signal(signal.SIGINT)
        self.finish(watching)

    def test_metrics_are_well_formed(self):
        """What promtool would look for: help and type in front of each metric, and each in one piece."""
        self.start_device("--reports", "100")
        self.assertEqual(self.ctl("watch", "--only", "signal", "--count", "1")[0], OK)
        path = pathlib.Path("/tmp/mdxgate.prom")
        self.assertEqual(self.ctl("stats", "--prometheus", "--output", str(path))[0], OK)
        self.assertFalse(path.with_suffix(".prom.new").exists())
        types, current, series = {}, None, set()
        for line in path.read_text().splitlines():
            if match := re.fullmatch(r"# (HELP|TYPE) ([a-z_]+) (.+)", line):
                kind, name, text = match.groups()
                if kind == "TYPE":
                    self.assertNotIn(name, types, "a metric in two pieces")
                    self.assertIn(text, ("counter", "gauge"))
                    types[name] = text
                current = name
                continue
            match = re.fullmatch(r'([a-z_]+)(\{([a-z_]+="(\\.|[^"\\])*",?)+\})? -?[0-9.]+', line)
            self.assertTrue(match, line)
            self.assertEqual(match[1], current, line)
            self.assertEqual(types[current] == "counter", current.endswith("_total"), line)
            self.assertNotIn(line.rsplit(" ", 1)[0], series, "twice")
            series.add(line.rsplit(" ", 1)[0])
        self.assertIn("mdxgate_modem_up", types)
        self.assertIn("mdxgate_state_value", types)
        self.assertIn("mdxgate_signal_rssi_dbm", types)


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: Apache-2.0
"""What the modem told is remembered, and whether it is there: to be known without asking the modem."""

import json
import re
import unittest

from device import NO_SERVER, OK, PATIENCE_S, REFUSED_BY_MODEM, USAGE, ScriptedModem, wait_until
from watching import WatchTest

PERSONAL = ("SECRET", "5551234")


def say_all(line):
    """To AT+SAY: states, and between them what is about persons."""
    reports = (b"^HCSQ:\"LTE\",42,34,52,10", b"+CMTI: \"SECRET\",1", b"^SIMST: 1,0",
               b"+CMT: ,20\r\nSECRET", b"+CLIP: \"5551234\",129", b"+CUSD: 0,\"SECRET\",15",
               b"^DCONN:1,\"IPV4\"", b"+CCWA: \"5551234\",129,1,,0", b"^HCSQ:\"LTE\",43,34,52,10",
               b"^RSSI:21")
    said = b"".join(b"\r\n%b\r\n" % report for report in reports) if line == b"AT+SAY" else b""
    return said + b"\r\nOK\r\n"


class State(WatchTest):
    def state(self, *options, expect=OK):
        code, out, err = self.ctl("state", *options)
        self.assertEqual(code, expect, err)
        return out, err

    def states(self):
        """(modem, states) as a program gets them."""
        told = json.loads(self.state("--json")[0])
        return told["modem"], told["states"]

    def start_told_device(self):
        self.modem = ScriptedModem(say_all)
        self.start_server()
        self.at("AT+SAY")
        wait_until(lambda: "EVT_AT_HCSQ" in self.states()[1], PATIENCE_S, "the last report was told")

    def test_what_was_told_is_shown_and_the_modem_is_not_asked(self):
        self.start_told_device()
        wait_until(lambda: self.states()[1]["EVT_AT_HCSQ"]["fields"]["value1"] == 43, PATIENCE_S, "all was told")
        heard = list(self.modem.heard)
        out, err = self.state()
        self.assertEqual(err, "")
        lines = {line.split()[0]: line for line in out.splitlines()}
        self.assertRegex(lines["link"], r"^link +the modem is there since \d\d:\d\d:\d\d, .* ago$")
        self.assertRegex(lines["signal"], r"^signal +EVT_AT_HCSQ sysmode=2 value1=43 value2=34 .*, .* ago$")
        self.assertRegex(lines["data"], r"^data +DIALUP_MSG_V4_UP .*, .* ago$")
        modem, states = self.states()
        self.assertTrue(modem["up"])
        self.assertEqual(set(states), {"EVT_AT_HCSQ", "DIALUP_MSG_V4_UP", *(
            f"EVT_AT_SIM_STATE_{module}" for module in (4, 6, 9, 19, 27))})
        self.assertTrue(all(state["current"] for state in states.values()))

        self.assertEqual([line.split()[1] for line in self.state("signal")[0].splitlines()], ["EVT_AT_HCSQ"])
        by_name, by_kind = (re.sub(r"\d+ \S+ ago", "", self.state(name)[0]) for name in ("EVT_AT_HCSQ", "signal"))
        self.assertEqual(by_name, by_kind)
        self.assertIn("told nothing", self.state("temperature", expect=REFUSED_BY_MODEM)[1])
        err = self.state("weather", expect=USAGE)[1]
        for word in ("'weather'", "link", "signal", "network", "sim", "data", "traffic", "time", "temperature"):
            self.assertIn(word, err)

        code, shown, _ = self.ctl("watch", "--last", "--count", str(len(states) + 1))
        self.assertEqual(code, OK)
        self.assertTrue(all(re.search(r" \(told .* ago\)$", line) for line in shown.splitlines()), shown)
        self.assertIn("link MDX_LINK_UP", shown.splitlines()[-1])
        for text in (out, shown, json.dumps(states)):
            self.assertFalse([word for word in PERSONAL if word in text], text)
        self.assertEqual(self.modem.heard, heard, "the modem is asked nothing")

    def test_modem_that_goes_and_comes_back(self):
        """Old values are not passed off as new ones; the news stands behind all that the modem said."""
        self.start_told_device()
        self.assertNotIn("modem", self.ctl("report", "rssi")[2])
        watcher, link = self.start_watchers((), ("--service", "link"))
        self.modem.say(b"\r\n^SIMREFRESH:7\r\n")
        watcher.wait_for(1)  # the kernel drops what nobody has read when a terminal goes
        self.modem.unplug()
        link.wait_for(1)
        watcher.wait_for(2)
        self.assertEqual(watcher.words(), ["EVT_AT_SIM_REFRESH file_type=7", "MDX_LINK_GONE"])
        self.assertRegex(self.state()[0], r"^link +the modem is gone since ")
        modem, states = self.states()
        self.assertFalse(modem["up"] or any(state["current"] for state in states.values()))
        out, err = self.state("signal")
        self.assertRegex(out, " value1=43 .* ago\n$")
        self.assertIn("the modem is gone since ", err)
        code, out, err = self.ctl("report", "--json", "rssi")
        self.assertEqual((code, json.loads(out)["modem"]["up"]), (OK, False))
        self.assertIn("the modem is gone since ", err)

        self.modem = ScriptedModem(say_all)
        link.wait_for(2)
        self.assertEqual(link.words(), ["MDX_LINK_GONE", "MDX_LINK_UP"])
        self.assertTrue(self.states()[0]["up"])

    def test_stored_report_before_any_has_come(self):
        self.modem = ScriptedModem(say_all)
        self.start_server()
        code, out, err = self.ctl("report", "rssi")
        self.assertEqual((code, out), (OK, "^RSSI: 0\n"))
        self.assertIn("until the first ^RSSI report", err)
        self.at("AT+SAY")
        wait_until(lambda: self.ctl("report", "rssi")[1] == "^RSSI:21\n", PATIENCE_S, "a report is stored")
        self.assertNotIn("until", self.ctl("report", "rssi")[2])

    def test_without_a_server(self):
        code, out, err = self.ctl("state", "--json")
        self.assertEqual((code, json.loads(out)["modem"]), (NO_SERVER, None))
        self.assertIn("no server is running", err)


if __name__ == "__main__":
    unittest.main()

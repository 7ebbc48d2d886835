"""Watchers of a living device: each sees every report, in order and once, and none holds up others."""

import re
import signal
import unittest

from device import NO_SERVER, OK, ScriptedModem, scaled, wait_until
from watching import WatchTest

EVERYTHING = ()


class Told:
    """What the device must be told for what a simulator wrote."""

    def __init__(self):
        self.flow_reports = 0

    def by(self, line):
        name, _, parameters = line.partition(":")
        values = [value.strip(' "') for value in parameters.split(",")]
        if name == "^HCSQ":
            measured = (values[1:] + ["0"] * 5)[:5]
            return [f"EVT_AT_HCSQ sysmode={('GSM', 'WCDMA', 'LTE').index(values[0])} " +
                    " ".join(f"value{n}={int(v)}" for n, v in enumerate(measured, 1))]
        if name == "^DSFLOWRPT":
            return self.by_flow([int(value, 16) for value in values])
        if name == "^SRVST":
            lost = ["EVT_AT_NO_SERVICE"] if values == ["2"] else []
            return [f"DIALUP_MSG_NET_CHANGE status={values[0]}"] + lost
        if name == "^MODE":
            return [f"DIALUP_MSG_NET_CHANGE status={values[0]}",
                    f"EVT_AT_SYS_MODE sys_mode={values[0]} sys_submode={values[1]}"]
        if name == "+CREG":
            return ["DIALUP_MSG_NET_CHANGE", "EVT_AT_REG_CHANGE"]
        return []

    def by_flow(self, values):
        names = ("curr_ds_time", "tx_rate", "rx_rate", "curr_tx_flow", "curr_rx_flow",
                 "qos_tx_rate", "qos_rx_rate")
        fields = [f"{name}={value}" for name, value in zip(names, values)]
        self.flow_reports += 1
        every_tenth = [" ".join(["CMS_MSG_FLOW_REPORT"] + fields[1:5])]
        return [" ".join(["EVT_AT_FLOW_REPORT"] + fields)] + every_tenth * (
            self.flow_reports % 10 == 0)


class Watch(WatchTest):
    def expected_from_log(self):
        """The simulator's own log of what it wrote, as packets."""
        written = "".join(re.findall(r"^< (.*)$", self.log_of(self.modem), re.M))
        told = Told()
        return [packet for line in written.replace("\\r", "\n").replace("\\n", "\n").split("\n")
                for packet in told.by(line)]

    def test_ten_watchers_see_every_report_in_order_and_once(self):
        self.start_server(ready=False)
        watchers = self.start_watchers(*[EVERYTHING] * 10)
        self.start_modem("--log", "--cut", "random:3", "--reports", "10")
        self.at("AT+CREG=1")
        commands = ["AT+CSQ", "AT+CGSN"] * scaled(100, 10)
        asking = self.start_client("at", "--json", "-", stdin="\n".join(commands))
        watchers[0].wait_for(scaled(3000, 300))
        self.assertEqual(self.finish(asking)[0], OK)
        for command in ("AT^CURC=0", "AT^SRVST=0", "AT^MODE=0", "AT+CREG=0"):
            self.at(command)

        # The modem reports while the server sets it up, so "cms" is told somewhere among the reports.
        told_once = "CMS_MSG_DATACARD_INSERTED"
        expected = self.expected_from_log()
        for watcher in watchers:
            watcher.wait_for(len(expected) + 1)
            words = watcher.words()
            self.assertEqual(words.count(told_once), 1)
            self.assertEqual([word for word in words if word != told_once], expected)
            self.assertEqual(watcher.end(), (0, ""))

    def start_counting_device(self, *watchers):
        """A modem that says ^SIMREFRESH:n for n up to the number it is told, one after the other."""
        def answer(line):
            first, _, last = line.partition(b"=")[2].partition(b",")
            reports = b"".join(b"\r\n^SIMREFRESH:%d\r\n" % n
                               for n in range(int(first or 0), int(last or 0)))
            return reports + b"\r\nOK\r\n"

        self.start_server(ready=False)
        watchers = self.start_watchers(*watchers)
        self.modem = ScriptedModem(answer)
        return watchers

    def test_watcher_that_never_reads_harms_only_itself(self):
        """What it missed is told in front of what it gets next, once it reads again."""
        deaf, awake = self.start_counting_device(("--module", "7"), ("--module", "7"))
        deaf.client.send_signal(signal.SIGSTOP)
        said = 0
        while self.stats()["packets_lost"] < 50:
            self.at(f"AT+SAY={said},{said + 50}", "--timeout", "5")
            said += 50
            self.assertLess(said, 100000, "a receiver that never reads must miss something")
        deaf.client.send_signal(signal.SIGCONT)
        missed = self.stats()["packets_lost"]
        deaf.wait_for(said - missed)
        self.at(f"AT+SAY={said},{said + 3}")
        deaf.wait_for(said + 3 - missed)
        awake.wait_for(said + 3)

        self.assertEqual(awake.words(),
                         [f"EVT_AT_SIM_REFRESH file_type={n}" for n in range(said + 3)])
        following = 0
        for packet in deaf.packets():
            following += packet["lost"]
            self.assertEqual(packet["fields"]["file_type"], following)
            following += 1
        self.assertEqual(following, said + 3)
        self.assertEqual((deaf.end(), awake.end()), ((0, ""), (0, "")))

    def test_services_modules_and_counts(self):
        cms, sim, two = self.start_counting_device(
            ("--service", "cms"), ("--module", "7"), ("--module", "7", "--count", "2"))
        self.at("AT+SAY=5,8")
        sim.wait_for(3)
        seen = [f"EVT_AT_SIM_REFRESH file_type={n}" for n in (5, 6, 7)]
        self.assertEqual((cms.words(), sim.words()), (["CMS_MSG_DATACARD_INSERTED"], seen))
        self.assertEqual((two.client.wait(10), two.words()), (OK, seen[:2]))

    def test_server_that_is_lost(self):
        self.start_device()
        ends, follows = self.start_watchers((), ("--follow", "--service", "cms"))
        self.stop(self.server, signal.SIGKILL)
        code, _, err = self.finish(ends.client, 10)
        self.assertEqual(code, NO_SERVER)
        self.assertIn("the server is gone", err)
        code, _, err = self.ctl("watch")
        self.assertEqual(code, NO_SERVER)
        self.assertTrue(err)

        self.start_server(ready=False)
        wait_until(lambda: self.stats()["receivers"] == 1, 10, "the watcher is there again")
        self.assertIsNone(follows.client.poll())
        self.assertEqual(follows.end()[0], OK)


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: Apache-2.0
"""The bridge between a device and a real broker: reports and states out, commands in, what stays."""

import contextlib
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import time
import unittest

from device import PATIENCE_S, ScriptedModem, wait_until
from fleet import OK_LINE, TOPIC, FleetTest, Subscriber

COMMAND = TOPIC + "command"


def without(thing, *keys):
    return {key: value for key, value in thing.items() if key not in keys}


def hold_as_outsider(name, backlog, full):
    """@return what must be kept to hold it"""
    os.setgroups([])
    os.setgid(65534)
    os.setuid(65534)
    holder, caller = socket.socket(socket.AF_UNIX), socket.socket(socket.AF_UNIX)
    holder.bind(name)
    if backlog is not None:
        holder.listen(backlog)
    if full:
        caller.connect(name)
    return holder, caller


class Bridge(FleetTest):
    def start_scripted_device(self, answers=()):
        table = dict(answers)
        self.modem = ScriptedModem(lambda line: table.get(line, OK_LINE))
        self.start_server()

    def test_reports_and_states_out(self):
        """A bridge that is there before its broker; a subscriber that comes after the reports."""
        self.start_scripted_device()
        bridge = self.start_bridge()
        self.wait_for_log(bridge, "Connection refused")
        watcher, = self.start_watchers(())
        self.modem.say(b'\r\n^HCSQ:"LTE",50,48,140,20\r\n\r\n^SIMREFRESH:7\r\n\r\n^RFSWITCH:1\r\n')
        watcher.wait_for(2)
        self.start_open_broker()
        live = Subscriber(self)
        shown = live.wait_for("report/EVT_AT_HCSQ")
        live.wait_for("report/EVT_AT_SIM_REFRESH")
        theirs = {packet["event"]: packet for packet in watcher.packets()}
        watcher.end()
        own = ("time", "bridge", "number", "remembered")
        self.assertEqual(without(shown, *own), without(theirs["EVT_AT_HCSQ"], "time"))
        state = live.wait_for("dev1/state")
        self.assertTrue(state["online"] and state["server"]["up"] and state["modem"]["up"], state)

        late = Subscriber(self)
        retained = late.wait_for("report/EVT_AT_HCSQ")
        late.wait_for("dev1/state")
        self.assertEqual(retained["fields"], shown["fields"])
        self.assertEqual([topic for kept, topic, _ in late.all() if "SIM_REFRESH" in topic], [])
        self.assertEqual({kept for kept, _, _ in late.all()}, {True})

    def test_states_that_end_each_other(self):
        """Of two reports only one is true, and only one is kept."""
        self.start_scripted_device()
        self.start_open_broker()
        self.start_bridge()
        live = Subscriber(self)
        live.wait_for("dev1/state")
        for status, name in ((1, "V4_UP"), (0, "V4_DOWN"), (1, "V4_UP")):
            before = len(live.of(name))
            self.modem.say(b'\r\n^NDISSTAT:%d,,,"IPV4"\r\n' % status)
            wait_until(lambda: len([x for x in live.of(name) if x]) > before // 2, PATIENCE_S, name)
        late = Subscriber(self)
        late.wait_for("V4_UP")
        late.wait_for("dev1/state")
        self.assertEqual(late.of("V4_DOWN"), [])

    def test_server_and_bridge_that_go(self):
        self.start_scripted_device()
        self.start_open_broker()
        bridge = self.start_bridge("--allow-command", "AT")
        live = Subscriber(self)
        live.wait_for("dev1/state", lambda state: state["online"] and state["modem"])
        self.stop(self.server, signal.SIGKILL)
        gone = live.wait_for("dev1/state", lambda state: not state["server"]["up"])
        self.assertTrue(gone["online"] and gone["modem"] is None, gone)
        self.start_server(ready=False)
        count = len(live.of("dev1/state"))
        wait_until(lambda: live.of("dev1/state")[-1].get("server", {}).get("up"), PATIENCE_S, "the server is back")
        self.modem.unplug()
        live.wait_for("dev1/state", lambda state: state.get("modem") and not state["modem"]["up"])
        self.assertIn("is away", self.ask({"command": "AT"})["error"])

        self.stop(bridge, signal.SIGKILL)
        wait_until(lambda: not live.of("dev1/state")[-1]["online"], PATIENCE_S, "the last will")
        self.assertEqual(live.of("dev1/state")[-1]["reason"], "the connection was lost")
        bridge = self.start_bridge()
        wait_until(lambda: live.of("dev1/state")[-1]["online"], PATIENCE_S, "it is back")
        self.stop(bridge)
        self.assertEqual(bridge.returncode, 0)
        wait_until(lambda: not live.of("dev1/state")[-1]["online"], PATIENCE_S, "it says that it ends")
        self.assertEqual(live.of("dev1/state")[-1]["reason"], "it was stopped")
        self.assertGreater(len(live.of("dev1/state")), count)

    def test_another_with_the_same_id(self):
        """On this machine it does not start; another machine's is told apart, and not fought."""
        self.start_scripted_device()
        self.start_open_broker()
        bridge = self.start_bridge()
        self.wait_for_log(bridge, "connected")
        second = self.start_bridge("--once")
        self.assertEqual(second.wait(PATIENCE_S), 1)
        self.assertIn("runs on this machine already", self.log_of(second))
        self.stop(bridge)

        long = "x" * 128
        for device in ("dev1", "dev2"):
            self.wait_for_log(self.start("mdxbridge", "--host", "127.0.0.1", "--prefix", long, "--id", device), "connected")
        self.publish(TOPIC + "state", {"online": True, "machine": "another"}, "-r")
        bridge = self.start_bridge(pause=600)
        self.wait_for_log(bridge, "another machine, another, has the ID dev1, too")
        self.start("mosquitto_sub", "-V", "5", "-i", "dev1", "-t", "x")
        self.wait_for_log(bridge, "the next attempt is in 600 s")

    def test_commands(self):
        """What is asked, what may not be, and what is no request."""
        cells = b"\r\n+CREG: 2,1,\"00FF\",\"0012\"\r\n" + OK_LINE
        self.start_scripted_device({b"AT+CSQ": b"\r\n+CSQ: 21,99\r\n" + OK_LINE, b"AT+CREG?": cells,
                                    b"AT+BAD": b"\r\n+CME ERROR: 100\r\n",
                                    b"ATI": b"\r\nMaker\r\nIMEI: 490154203237518\r\n" + OK_LINE})
        self.start_open_broker()
        bridge = self.start_bridge("--rate", "1000", "--allow-command", "AT*", "--allow-command", "AT+C*",
                                   "--allow-command", "AT+BAD", "--allow-sms", "+4915*")
        self.wait_for_log(bridge, "connected")
        own = self.at("AT+CREG?")
        answer = self.ask({"command": "AT+CREG?", "timeout": 5})
        self.assertEqual(without(answer, "seconds"), without(own, "seconds"))
        answer = self.ask({"command": "AT+BAD"})
        self.assertEqual((answer["result"]["name"], answer["text"]), ("+CME ERROR", "+CME ERROR: 100"))
        self.assertEqual(self.ask({"command": "ATI"})["text"], "Maker\r\nIMEI: ***************")
        for payload, error in (
            ("",                                              "no JSON"),
            ("{",                                             "no JSON"),
            ("[" * 5000,                                      "no JSON"),
            ("[]",                                            "no JSON object"),
            ("{}",                                            "either command or sms"),
            (b"{\"command\":\"AT\xff\"}",                     "no JSON"),
            ({"command": 1},                                  "no text"),
            ({"command": "AT", "sms": {}},                    "either command or sms"),
            ({"command": "AT", "timeout": 0},                 "timeout"),
            ({"command": "AT", "timeout": 1e99},              "timeout"),
            ({"command": "AT", "result": 1},                  "'result' is not known"),
            ({"command": "ls"},                               "begins with AT"),
            ({"command": "AT+CSQ\rAT+CFUN=0"},                "one command at a time"),
            ({"command": "AT+CSQ\0"},                         "NUL"),
            ({"command": "AT+CSQ;+CFUN=0"},                   "not allowed"),
            ({"command": "AT+FUN=0"},                         "not allowed"),
            ({"command": "ATV0"},                             "time out"),
            ({"command": "AT+CMGS=22"},                       "sms"),
            ({"command": "AT+CIMI"},                          "identities"),
            ({"command": "at+cmgr=1"},                        "messages"),
            ({"command": "AT+C" + "x" * 2000},                "too long"),
            ({"command": "AT", "filler": "x" * 65536},        "too long"),
            ({"sms": {"number": "+1900", "text": "x"}},       "not allowed"),
            ({"sms": {"number": "+4915", "text": ""}},        "empty"),
            ({"sms": {"number": "+4915x", "text": "x"}},      "number"),
            ({"sms": {"number": "+4915"}},                    "text is missing"),
        ):
            with self.subTest(str(payload)[:60]):
                answer = self.ask(payload)
                self.assertTrue(answer["refused"])
                self.assertIn(error, answer["error"])
        heard = b" ".join(self.modem.heard)
        for never in (b"CFUN", b"V0", b"CMGS", b"CIMI", b"CMGR"):
            self.assertNotIn(never, heard)

    def test_where_answers_go(self):
        """Also who asked stands in the journal; what was asked with, and what was answered, does not."""
        self.start_scripted_device({b"AT+CSQ": b"\r\n+CSQ: 21,99\r\n" + OK_LINE})
        self.start_open_broker()
        bridge = self.start_bridge("--allow-command", "AT+CSQ", "--allow-command", "AT+CPIN=*", "--rate", "1000")
        self.wait_for_log(bridge, "connected")
        live = Subscriber(self)
        live.wait_for("dev1/state")
        self.publish(COMMAND, {"command": "AT+CSQ"})
        self.assertEqual(live.wait_for("dev1/answer")["text"], "+CSQ: 21,99")
        for topic, where in (("elsewhere/answers", "elsewhere/answers"), ("mdxgate/dev2/command", "dev1/answer"),
                             (COMMAND, "dev1/answer"), (TOPIC + "state", "dev1/answer")):
            count = len(live.of(where))
            self.publish(COMMAND, {"command": "AT+CSQ"}, "-D", "publish", "response-topic", topic)
            wait_until(lambda: len(live.of(where)) > count, PATIENCE_S, f"an answer for {topic}")
            self.assertEqual("error" in live.of(where)[-1], topic != where)
        self.publish("mdxgate/dev2/command", {"command": "AT+CSQ"})

        self.publish(COMMAND, {"command": 'AT+CPIN="4711"'}, "-D", "publish", "user-property", "client-id", "desk 7")
        self.wait_for_log(bridge, "AT+CPIN=... of desk 7: OK")
        self.assertNotIn("4711", self.log_of(bridge))
        self.assertNotIn("21,99", self.log_of(bridge))
        self.assertEqual(self.modem.heard.count(b"AT+CSQ"), 2)

    def test_answers_that_no_broker_takes(self):
        """One that is too large, and topics for which the broker ends the connection: all else goes on."""
        self.start_scripted_device({b"AT+CSQ": b"\r\n+CSQ: " + b"9," * 600 + b"\r\n" + OK_LINE})
        self.start_open_broker("max_packet_size 1000")
        bridge = self.start_bridge("--allow-command", "AT+CSQ", "--allow-command", "AT", "--rate", "1000")
        self.wait_for_log(bridge, "connected")
        live = Subscriber(self)
        live.wait_for("dev1/state")
        self.publish(COMMAND, {"command": "AT"}, "-D", "publish", "response-topic", "a/" * 250 + "b")
        self.assertIn("response topic", live.wait_for("dev1/answer")["error"])
        self.publish(COMMAND, {"command": "AT+CSQ"})
        self.wait_for_log(bridge, "larger than the broker takes")
        self.publish(COMMAND, {"command": "AT"})
        self.assertEqual(live.wait_for("dev1/answer", lambda answer: "dropped" in answer)["command"], "AT")
        self.assertEqual(self.log_of(bridge).count("connected"), 1)

    def test_twice_and_too_many(self):
        self.start_scripted_device({b"AT+CSQ": b"\r\n+CSQ: 21,99\r\n" + OK_LINE})
        self.start_open_broker()
        bridge = self.start_bridge("--allow-command", "AT*", "--allow-command", "AT+CSQ", "--rate", "1")
        self.wait_for_log(bridge, "connected")
        live = Subscriber(self, topic=TOPIC + "answer")
        name = ("-D", "publish", "correlation-data", "one", "-D", "publish", "response-topic", TOPIC + "answer")
        while not live.of("answer"):  # not all came while it subscribed
            self.publish(COMMAND, {"command": "AT+CSQ"}, *name)
            time.sleep(0.1)
        count = len(live.of("answer"))
        for _ in range(3):
            self.publish(COMMAND, {"command": "AT+CSQ"}, *name)
        wait_until(lambda: len(live.of("answer")) >= count + 3, PATIENCE_S, "answers to all")
        self.assertEqual({answer["text"] for answer in live.of("answer")}, {"+CSQ: 21,99"})
        self.assertEqual(self.modem.heard.count(b"AT+CSQ"), 1)
        self.assertEqual(self.log_of(bridge).count("came again"), 1)

        flood = [json.dumps({"command": "ATE0"})] * 500
        path = pathlib.Path("/tmp/flood")
        path.write_text("\n".join(flood) + "\n")
        publisher = self.start("sh", "-c", f"mosquitto_pub -V 5 -q 1 -l -t {COMMAND} <{path}")
        self.assertEqual(self.at("AT+CSQ")["text"], "+CSQ: 21,99")
        publisher.wait(PATIENCE_S)
        wait_until(lambda: any("too many" in answer.get("error", "") for answer in live.of("answer")),
                   PATIENCE_S, "refused as too many")
        self.assertLess(self.modem.heard.count(b"ATE0"), 250)
        # Nor do others fill the journal.
        elsewhere = ("-D", "publish", "response-topic", TOPIC + "state")
        with path.open("rb") as lines:
            subprocess.run(("mosquitto_pub", "-V", "5", "-q", "1", "-l", "-t", COMMAND, *elsewhere), stdin=lines, check=True)
        while "request: refused" not in self.log_of(bridge):
            self.publish(COMMAND, {"command": "ATE0"}, *elsewhere)
            time.sleep(0.1)
        self.assertLess(self.log_of(bridge).count("request: refused"), 250)

    def test_what_stays_at_home(self):
        """Each by itself, and let out by its name."""
        said = (b'\r\n+CUSD: 0,"Your balance is 5",15\r\n\r\n+CLIP: "+491511234",145\r\n'
                b"\r\n+CMT: ,24\r\n07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07\r\n")
        self.start_scripted_device()
        self.start_open_broker()
        closed = self.start_bridge()
        opened = self.start("mdxbridge", "--host", "127.0.0.1", "--id", "dev2", "--open", "ussd",
                            "--open", "numbers", "--open", "messages")
        for bridge in (closed, opened):
            self.wait_for_log(bridge, "connected")
        live = Subscriber(self)
        for device in ("dev1", "dev2"):
            live.wait_for(device + "/state", lambda state: state["modem"])
        self.modem.say(said)
        for event, field, kind in (("EVT_AT_USSD", "cusdStr", "ussd"), ("VOICE_CLIP", "number", "numbers"),
                                   ("EVT_AT_SMS_NEW", "pdu", "messages")):
            kept = live.wait_for("dev1/report/" + event)
            self.assertEqual((kept["fields"][field], kept["withheld"]), (None, [kind]))
            told = live.wait_for("dev2/report/" + event)
            self.assertIsInstance(told["fields"][field], str)
            self.assertNotIn("withheld", told)
        own = [message for message in live.all() if "/dev1/" in message[1]]
        for secret in ("balance", "491511234", "07911326"):
            self.assertNotIn(secret, str(own))

    def test_broker_away_for_long(self):
        """The oldest reports go, and the next one says how many."""
        self.start_scripted_device()
        broker = self.start_open_broker()
        bridge = self.start_bridge("--queue", "5", "--stats", "1")
        live = Subscriber(self)
        live.wait_for("dev1/state", lambda state: state["modem"])
        self.stop(broker, signal.SIGKILL)
        self.wait_for_log(bridge, "Connection refused")
        self.modem.say(b"".join(b"\r\n^SIMREFRESH:%d\r\n" % n for n in range(12)))
        self.at("AT")
        broker = self.start_open_broker()
        late = Subscriber(self, topic=TOPIC + "report/#")
        self.modem.say(b"\r\n^SIMREFRESH:12\r\n")
        late.wait_for("EVT_AT_SIM_REFRESH", lambda report: report["fields"]["file_type"] == 12)
        stats = Subscriber(self, topic=TOPIC + "stats").wait_for(
            "stats", lambda figures: figures["mdxgate_bridge_reports_dropped_total"])
        self.assertGreaterEqual(stats["mdxgate_bridge_reports_dropped_total"], 7)
        self.assertEqual(stats["mdxgate_modem_up"], 1)

    def test_state_that_ended_while_the_broker_was_away(self):
        """Taken back in the end, although too many reports waited behind it."""
        self.start_scripted_device()
        keeps = ("persistence true", "persistence_location /tmp/")
        broker = self.start_open_broker(*keeps)
        bridge = self.start_bridge("--queue", "5")
        live = Subscriber(self)
        live.wait_for("dev1/state", lambda state: state["modem"])
        self.modem.say(b'\r\n^NDISSTAT:1,,,"IPV4"\r\n')
        live.wait_for("V4_UP")
        self.stop(broker)
        self.wait_for_log(bridge, "Connection refused")
        self.modem.say(b'\r\n^NDISSTAT:0,,,"IPV4"\r\n')
        self.modem.say(b"".join(b"\r\n^SIMREFRESH:%d\r\n" % n for n in range(12)))
        self.at("AT")
        self.start_open_broker(*keeps)
        Subscriber(self).wait_for("SIM_REFRESH", lambda report: report["fields"]["file_type"] == 11)
        late = Subscriber(self)
        late.wait_for("V4_DOWN")
        self.assertEqual(late.of("V4_UP"), [])

    def test_check_and_once(self):
        self.start_scripted_device()
        path = pathlib.Path("/tmp/bridge.conf")
        path.write_text("# a remark\nhost = 127.0.0.1\nport = 70000\nid = a/b\nallow-command = CSQ\nhots = x\n"
                        "password-file = /nowhere\ntls\n")
        check = self.start("mdxbridge", "--config", str(path), "--check")
        self.assertEqual(check.wait(PATIENCE_S), 2)
        for line, key in ((3, "port"), (4, "id"), (5, "allow-command"), (6, "hots"), (7, "password-file"), (8, "tls")):
            self.assertIn(f"bridge.conf:{line}: {key}: ", self.log_of(check))
        path.write_text("\x1b[2J = x\n")
        for file, said in (("/tmp", "/tmp: cannot be read: Is a directory\n"), (path, f"{path}:1: ?[2J: ")):
            check = self.start("mdxbridge", "--config", str(file), "--check")
            self.assertEqual(check.wait(PATIENCE_S), 2)
            self.assertTrue(self.log_of(check).startswith(said), self.log_of(check))
        path.write_text("host = 127.0.0.1\nid = dev1\n")
        self.assertEqual(self.start("mdxbridge", "--config", str(path), "--check").wait(PATIENCE_S), 0)
        self.start_open_broker()
        self.modem.say(b'\r\n^HCSQ:"LTE",50,48,140,20\r\n')
        self.at("AT")
        self.assertEqual(self.start("mdxbridge", "--config", str(path), "--once").wait(PATIENCE_S), 0)
        late = Subscriber(self)
        state = late.wait_for("dev1/state")
        self.assertEqual((state["online"], state["modem"]["up"]), (False, True))
        late.wait_for("report/EVT_AT_HCSQ")
        late.wait_for("dev1/stats")
        self.start_open_broker("max_packet_size 300", port=2001, name="narrow")
        lost = self.start("mdxbridge", "--config", str(path), "--port", "2001", "--once")
        self.assertEqual(lost.wait(PATIENCE_S), 1)
        self.assertIn("larger than the broker takes", self.log_of(lost))


class Outsider(FleetTest):
    """What a local user whom the server does not serve can do to a bridge."""

    def start_bridge_of(self, groups):
        bridge = self.start("setpriv", "--reuid", "65534", "--regid", "65534", "--groups", groups,
                            "mdxbridge", "--host", "127.0.0.1", "--id", "dev1")
        self.wait_for_log(bridge, "Connection refused")
        return bridge

    def starts_all_the_same(self):
        bridge = self.start_bridge()
        self.wait_for_log(bridge, "Connection refused")
        self.assertIn("going on without it", self.log_of(bridge))
        self.stop(bridge)

    def test_name_that_keeps_a_second_bridge_away(self):
        """An outsider who has it keeps none away, however he holds it; a member of the group does."""
        outsider = self.start_bridge_of("65534")
        name, = re.findall(r"@(mdxbridge .*)", pathlib.Path("/proc/net/unix").read_text())
        self.starts_all_the_same()
        self.stop(outsider)
        for backlog, full in ((None, False), (0, True)):
            with self.subTest(backlog=backlog), self.held_by_outsider("\0" + name, backlog, full):
                self.starts_all_the_same()
        self.start_bridge_of("mdxgate")
        second = self.start_bridge()
        self.assertEqual(second.wait(PATIENCE_S), 1)
        self.assertIn("runs on this machine already", self.log_of(second))

    @contextlib.contextmanager
    def held_by_outsider(self, name, backlog, full):
        held, told = os.pipe()
        child = os.fork()
        if child == 0:
            try:
                kept = hold_as_outsider(name, backlog, full)
                os.write(told, b"held" if kept else b"")
                signal.pause()
            finally:
                os._exit(1)
        os.close(told)
        try:
            self.assertEqual(os.read(held, 4), b"held")
            yield
        finally:
            os.kill(child, signal.SIGKILL)
            os.waitpid(child, 0)


if __name__ == "__main__":
    unittest.main()

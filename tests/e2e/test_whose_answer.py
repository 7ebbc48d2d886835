# SPDX-License-Identifier: Apache-2.0
"""An answer reaches who asked for it, or nobody, whatever modem, clients and server went through before."""

import contextlib
import itertools
import json
import os
import pathlib
import select
import signal
import time
import unittest

from device import (NO_ANSWER, OK, PATIENCE_S, DeviceTest, ScriptedModem, record, scaled, wait_until)
from watching import Watcher

CTRL_Z, ESC, BACKSPACE = b"\x1a", b"\x1b", 8
RAW = 5
PDU = "0001000B914497381100000000A054747A0E4ACF4%d"


class Modem(ScriptedModem):
    """Takes one line after the other, each for a while, and behind a prompt a message.

    AT+X=1 is answered with +X: 1, unless `script` has other words for X: pairs of seconds and bytes.
    """

    SCRIPT = {
        "LATE": [(0.5, b"\r\n+LATE: 1\r\n\r\nOK\r\n")],
        "TORN": [(0, b"\r\n+TORN: 1\r\n")],
        "LIST": [(0.06, b"\r\n+LIST: %02d\r\n" % n) for n in range(40)] + [(0, b"\r\nOK\r\n")],
        "CMGS": [(0, b"\r\n> ")],
        "CMGW": [(0.5, b"\r\n> ")],
    }

    def __init__(self, echo=False, pace_s=0.015, network_s=0.015, **script):
        self.echo, self.pace_s, self.network_s = echo, pace_s, network_s
        self.script = {**self.SCRIPT, **script}
        self.prompts = False
        self.messages = []
        super().__init__(None)

    def run(self):
        line = b""
        while self.master >= 0:
            if select.select([self.master], [], [], 0.1)[0]:
                for byte in os.read(self.master, 4096):
                    line = line[:-1] if byte == BACKSPACE else line + bytes([byte])
                    if self.takes(line):
                        line = b""

    def takes(self, line):
        """Whether the line is complete, and dealt with."""
        if line[-1:] not in ((CTRL_Z, ESC) if self.prompts else (b"\r",)):
            return False
        if self.echo:
            self.say(line)
        if self.prompts:
            self.end_message(line)
        elif line.lstrip(ESC).upper().startswith(b"AT"):
            self.obey(line.strip(b"\r" + ESC).decode())
        return True

    def obey(self, command):
        self.heard.append(command)
        name, _, value = command[2:].partition("=")
        answer = f"\r\n{name}: {value}\r\n\r\nOK\r\n".encode()
        for seconds, words in self.script.get(name[1:].upper(), [(0, answer)]):
            time.sleep(seconds or self.pace_s)
            self.prompts = words.endswith(b"> ")
            self.say(words)

    def end_message(self, text):
        self.prompts = False
        if text[-1:] == CTRL_Z:
            time.sleep(self.network_s)
            self.messages.append(text[:-1].decode())
            self.say(b"\r\n+CMGS: %d\r\n" % len(self.messages))
        self.say(b"\r\nOK\r\n")


class Client:
    """A program that asks for what nobody else asks for, one command behind the other."""

    number = itertools.count(1)

    def __init__(self, commands=3):
        self.commands = [f"AT+P={next(self.number)}" for _ in range(commands)]
        self.process = DeviceTest.start_client("at", "--json", "--timeout", "40", "-",
                                               stdin="\n".join(self.commands) + "\n")

    def answers(self):
        """The commands that were answered, and by what."""
        out = DeviceTest.finish(self.process)[1]
        for line in out.splitlines():
            answer = json.loads(line)
            if answer["result"]:
                yield answer["command"], answer["text"]


class WhoseAnswer(DeviceTest):
    @contextlib.contextmanager
    def device(self, **modem):
        self.modem = Modem(**modem)
        self.start_server()
        try:
            yield
        finally:
            self.modem.unplug()
            self.stop(self.server, signal.SIGKILL)

    @staticmethod
    def right(command):
        return command, command[2:].replace("=", ": ")

    def assert_all_right(self, clients):
        for client in clients:
            self.assertEqual(list(client.answers()), list(map(self.right, client.commands)))

    def assert_others_are_right(self):
        """The rule: clients that come now get their own answers, and all of them."""
        self.assert_all_right([Client() for _ in range(3)])

    def heard(self, command):
        wait_until(lambda: command in self.modem.heard, PATIENCE_S, f"{command} is under way")

    # What goes wrong before: each leaves an answer, text or a prompt behind.

    def give_up(self, *command):
        self.ctl(*command[:1], "--timeout", "0", *command[1:])

    def put(self, text, req_type=0):
        self.queues.send(record(text.encode(), os.getpid(), req_type))
        self.heard(text.split("\r")[0])

    def message_behind_late_answer(self):
        self.give_up("at", "AT+LATE")
        sent = self.ctl("sms-pdu", "AT+CMGS=20", PDU % 1)[0] == OK
        self.assertEqual(self.modem.messages, [PDU % 1] if sent else [])

    def message_that_the_network_takes_late(self):
        self.modem.network_s = 1.3
        clients = [(n, self.start_client("sms-pdu", "--timeout", "1", "AT+CMGS=20", PDU % n)) for n in range(3)]
        sent = {PDU % n for n, client in clients if self.finish(client)[0] == OK}
        self.assertLessEqual(sent, set(self.modem.messages))
        self.assertLessEqual(set(self.modem.messages), {PDU % n for n in range(3)}, "one message is one PDU")

    def bare_lines(self):
        watcher = Watcher("--module", "55")
        wait_until(lambda: "receivers 1" in self.console("platform", "stats"), PATIENCE_S, "it is subscribed")
        self.modem.say(b"\r\nRDY\r\n\r\n+CPIN: READY\r\n\r\nSMS Ready\r\n\r\n*PSUTTZ: 1\r\n\r\n^WAKEUPIN: 1\r\n")
        watcher.wait_for(1)
        watcher.end()

    def incoming_message(self):
        watcher = Watcher("--module", "1")
        wait_until(lambda: "receivers 1" in self.console("platform", "stats"), PATIENCE_S, "it is subscribed")
        self.modem.say(b"\r\n+CMT: ,20\r\n0791447738\r\n")
        watcher.wait_for(1)
        self.assertEqual(watcher.packets()[0]["fields"]["pdu"], "0791447738")
        watcher.end()

    DISTURBANCES = {
        "late answer": lambda self: self.give_up("at", "AT+LATE"),
        "answer that is never completed": lambda self: self.give_up("at", "AT+TORN"),
        "two commands in one": lambda self: self.put("AT+P\rAT+ECHO=evil"),
        "prompt that nobody answers": lambda self: self.put("AT+CMGS=20", RAW),
        "prompt in other spelling": lambda self: self.put("at+cmgs=20"),
        "late prompt": lambda self: self.give_up("sms-pdu", "AT+CMGW=20", PDU % 1),
        "message": lambda self: self.ctl("sms-pdu", "AT+CMGS=20", PDU % 1),
        "message behind a late answer": message_behind_late_answer,
        "message that the network takes late": message_that_the_network_takes_late,
        "lines between commands": bare_lines,
        "incoming message": incoming_message,
    }

    def run_disturbances(self, echo):
        for name, disturb in self.DISTURBANCES.items():
            with self.subTest(name), self.device(echo=echo):
                disturb(self)
                self.assert_others_are_right()

    def test_whatever_came_before(self):
        self.run_disturbances(echo=False)

    def test_whatever_came_before_on_a_modem_that_echoes(self):
        self.run_disturbances(echo=True)

    def test_clients_that_never_pause(self):
        for echo in (False, True):
            with self.subTest(echo=echo), self.device(echo=echo):
                clients = [Client(25) for _ in range(8)]
                for _ in range(scaled(5, 2)):
                    self.give_up("at", "AT+LATE")
                self.assert_all_right(clients)

    def test_killed_server(self):
        """What the modem says to a server that is gone is there for the next one to read."""
        self.modem = Modem(pace_s=0.02)
        for _ in range(scaled(40, 8)):
            self.start_server()
            clients = [Client(20) for _ in range(4)]
            before = len(self.modem.heard)
            wait_until(lambda: len(self.modem.heard) > before + 5, PATIENCE_S, "they are served")
            self.stop(self.server, signal.SIGKILL)
            for command, text in itertools.chain(*(client.answers() for client in clients)):
                self.assertEqual((command, text), self.right(command))
        self.start_server()
        self.assert_others_are_right()

    def test_clients_that_end(self):
        self.start_server(ready=False)
        self.end_waiting_clients("ATD1;")
        self.modem = Modem()
        self.assert_others_are_right()
        patient = self.start_client("at", "--timeout", "86400", "AT+TORN")
        self.heard("AT+TORN")
        self.end_waiting_clients("AT+CFUN=0")
        patient.kill()
        self.finish(patient)
        self.assert_others_are_right()
        self.assertFalse({"ATD1;", "AT+CFUN=0"} & set(self.modem.heard))

    def end_waiting_clients(self, command):
        how = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGKILL)
        clients = [self.start_client("at", command) for _ in how]
        wait_until(lambda: self.requests_waiting() == len(how), PATIENCE_S, "all of them wait")
        for client, signal_number in zip(clients, how):
            client.send_signal(signal_number)
            self.finish(client)

    def requests_waiting(self):
        for line in pathlib.Path("/proc/sysvipc/msg").read_text().splitlines()[1:]:
            key, _, _, _, count = map(int, line.split()[:5])
            if key == self.queues.KEY + self.queues.REQUESTS:
                return count
        return 0

    def test_listings(self):
        """Forty lines at 30 seconds: only those that stop for long may cost one each. Of 2200 bytes 1499 fit."""
        with self.device(LONG=[(0, b"".join(b"\r\n+LONG: %d\r\n" % n for n in range(200)) + b"\r\nOK\r\n")]):
            answer = self.at("AT+LIST", "--timeout", "30")
            self.assertEqual(answer["text"].count("+LIST"), 40)
            answer = self.at("AT+LONG")
            lines = answer["text"].split("\r\n")
            self.assertEqual(lines, [f"+LONG: {n}" for n in range(len(lines))])
            self.assertEqual((answer["truncated"], len(lines) > 100), (True, True))
            self.assert_others_are_right()


if __name__ == "__main__":
    unittest.main()

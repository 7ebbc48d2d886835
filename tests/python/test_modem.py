# SPDX-License-Identifier: Apache-2.0
"""The Python package against a real server: with the living modem, and with one that does as a test says."""

import asyncio
import doctest
import os
import pathlib
import re
import signal
import subprocess
import sys
import threading
import time
import unittest

import mdxclient
from mdxclient import sms

from device import PATIENCE_S, DeviceTest, ScriptedModem, wait_until
from test_sms import MAKERS, MessageModem, deliver_pdu

ROOT = pathlib.Path(__file__).parent.parent.parent
OWN_NUMBER = "+15550100"  # of the simulated modem, which keeps what is sent to it
OK = b"\r\nOK\r\n"


def all_below(kind):
    return [one for child in kind.__subclasses__() for one in (child, *all_below(child))]


class Interrupted(Exception):
    pass


class ModemTest(DeviceTest):
    def start_scripted(self, answer=lambda line: OK):
        self.modem = ScriptedModem(answer)
        self.start_server()

    def start_slow(self):
        """A modem that takes AT+SLOW and answers it when the test says so, and a client that waits for that."""
        self.start_scripted(lambda line: b"" if line == b"AT+SLOW" else OK)
        other = self.start_client("at", "AT+SLOW", "--timeout", "60")
        wait_until(lambda: b"AT+SLOW" in self.modem.heard, PATIENCE_S, "the modem is busy")
        return other

    def end_slow(self, other):
        self.modem.say(OK)
        self.assertEqual(self.finish(other)[0], 0)

    def wait_for_receivers(self, count):
        """A subscription counts from when the server has seen it."""
        wait_until(lambda: re.search(rf"(?m)^receivers +{count}$", self.console("platform", "stats")), PATIENCE_S,
                   f"{count} receivers")

    def assert_heard_no(self, command):
        with mdxclient.Modem() as modem:
            modem.send("AT+LAST").check()
        self.assertIn(b"AT+LAST", self.modem.heard)
        self.assertNotIn(command, self.modem.heard)

    # Commands

    def test_answers(self):
        self.start_device()
        cases = (
            ("AT", {}, r""),
            ("AT+CSQ", {}, r"\+CSQ: \d+,99"),
            ("ati\r\n", {}, r"Manufacturer: mdxgate\r\n(.*\r\n)+\+GCAP: .*"),
            ("AT+CREG?", {}, r"\+CREG: 0,1"),                                  # looks like a report
            ("AT+CGREG?;+CREG?", {}, r"\+CGREG: 0,1\r\n\+CREG: 0,1"),
            ("AT+COPS?", {}, r'\+COPS: 0,0,"Example Mobile",\d'),              # free words
            ("AT+CPBR=1,2", {}, r'\+CPBR: 1,.*"Alice"\r\n\+CPBR: 2,.*"Bob"'),
            ("AT+CMGL=4", {}, r"\+CMGL: 1,0,,23\r\n0791[0-9A-F]+"),
            ("AT+NOSUCH", {}, r"\+CME ERROR: \d+"),
            ("AT+CREG?", {"transparent": True}, r"OK\r\n"),                    # as asked for
            ("AT+CSQ", {"match": "+CSQ:", "multi_line": True}, r"\+CSQ: \d+,99\r\n"),
        )
        with mdxclient.Modem() as modem:
            for command, options, text in cases:
                self.assertRegex(modem.send(command, **options).text, f"^{text}$", command)
            answer = modem.send("AT+NOSUCH")
            with self.assertRaisesRegex(mdxclient.ModemError, r"\+CME ERROR: \d+") as caught:
                answer.check()
            self.assertEqual((caught.exception.answer, caught.exception.number), (answer, answer.number))
            self.assertEqual(modem.send("ATI").lines[1], "Model: mdxsim")
            self.assertEqual(modem.send("AT+COPS?").values("+COPS")[:3], ["0", "0", "Example Mobile"])
            self.assertRaisesRegex(TypeError, "give a str", modem.send, b"AT")
            self.assertRegex(modem.last_rssi(), r"^\^RSSI: ?\d+$")

    def test_what_can_never_be_served(self):
        self.start_scripted()
        with mdxclient.Modem() as modem:
            for command, options, sentence, position in (
                    ("CSQ", {}, "does not begin with AT", 0), ("AT+A\x1bB", {}, "control character", 4),
                    ("AT+A\0B", {}, "NUL", 4), ("AT+CMGS=12", {}, r"Modem\.sms\.send", 0),
                    ("AT+CREG?;+CCWA?", {}, "one by one", None), ("AT", {"timeout": -1}, "negative", None),
                    ("AT", {"timeout": 0.5}, "whole seconds", None),
                    ("AT", {"match": "x" * 64}, "63 bytes", 0)):
                with self.assertRaisesRegex(mdxclient.BadRequest, sentence) as caught:
                    modem.send(command, **options)
                self.assertEqual(caught.exception.position, position, command)
        self.assertEqual([line for line in self.modem.heard if b"CMEE" not in line], [])
        self.assertRaises(mdxclient.Closed, modem.send, "AT")

    def test_server_and_modem_fail(self):
        self.assertRaises(mdxclient.NoServer, mdxclient.Modem)
        self.assertRaises(mdxclient.NoServer, mdxclient.reports)
        self.start_scripted(lambda line: b"" if b"SILENT" in line else OK)

        def kill():
            wait_until(lambda: b"AT+SILENT" in self.modem.heard, PATIENCE_S, "the modem has the command")
            self.stop(self.server, signal.SIGKILL)

        killer = threading.Thread(target=kill)
        with mdxclient.Modem() as modem, mdxclient.reports() as reports:
            killer.start()
            with self.assertRaises(mdxclient.ServerGone) as caught:
                modem.send("AT+SILENT", timeout=PATIENCE_S)
            self.assertIsInstance(caught.exception, ConnectionError)
            self.assertRaises(mdxclient.ServerGone, list, reports)
            killer.join()
            self.assertRaises(mdxclient.NoServer, modem.send, "AT")
            self.start_server()
            self.assertTrue(modem.send("AT", timeout=PATIENCE_S).ok, "the same modem finds the next server")
            with self.assertRaises(mdxclient.TimedOut) as caught:
                modem.send("AT+SILENT", timeout=0, wait=PATIENCE_S)
            self.assertIsInstance(caught.exception, TimeoutError)

    def test_taken_back(self):
        """By a deadline, by what a signal's handler raises, and by the end of a task."""
        other = self.start_slow()

        def handler(number, frame):
            self.assertRaises(mdxclient.Pending, modem.send, "AT+NESTED")
            raise Interrupted

        def alarm_when_queued():
            wait_until(lambda: self.queues.depth(2) == 1, PATIENCE_S, "the request waits for its turn")
            signal.pthread_kill(threading.main_thread().ident, signal.SIGALRM)

        with mdxclient.Modem() as modem:
            self.assertRaises(mdxclient.Busy, modem.send, "AT+LATE", deadline=0.2)
            signal.signal(signal.SIGALRM, handler)
            alarm = threading.Thread(target=alarm_when_queued)
            alarm.start()
            self.assertRaises(Interrupted, modem.send, "AT+INTERRUPTED", timeout=PATIENCE_S)
            alarm.join()

        async def tasks():
            async with mdxclient.AsyncModem() as modem:
                for later in (False, True):
                    first = asyncio.ensure_future(modem.send("AT+CANCELLED"))
                    second = asyncio.ensure_future(modem.send("AT+BEHIND", deadline=0.1 if later else None))
                    await asyncio.sleep(0.2)
                    first.cancel()
                    if not later:
                        second.cancel()
                    ends = await asyncio.gather(first, second, return_exceptions=True)
                    kinds = [asyncio.CancelledError, mdxclient.Busy if later else asyncio.CancelledError]
                    self.assertEqual([type(end) for end in ends], kinds)

        asyncio.run(tasks())
        self.end_slow(other)
        for command in (b"AT+LATE", b"AT+INTERRUPTED", b"AT+NESTED", b"AT+CANCELLED", b"AT+BEHIND"):
            self.assert_heard_no(command)

    def test_threads_and_forks(self):
        self.start_device()
        errors = []

        def elsewhere(modem):
            for act in (lambda: modem.send("AT"), modem.close, lambda: modem.sms.list()):
                try:
                    act()
                except mdxclient.WrongThread as error:
                    errors.append(error)
            with mdxclient.Modem() as own:
                errors.append(own.send("AT+CSQ").ok)

        with self.assertWarns(ResourceWarning):
            mdxclient.Modem().send("AT").check()  # and it is closed when nobody has it any more
        with mdxclient.Modem() as modem:
            self.assertRaisesRegex(mdxclient.WrongThread, "open already", mdxclient.Modem)
            threads = [threading.Thread(target=elsewhere, args=(modem,)) for _ in range(2)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            self.assertEqual([type(error) for error in errors].count(mdxclient.WrongThread), 6)
            self.assertEqual(errors.count(True), 2)
            child = os.fork()
            if child == 0:
                errors.clear()
                elsewhere(modem)
                os._exit(0 if len(errors) == 4 else 1)
            self.assertEqual(os.waitpid(child, 0)[1], 0)
            self.assertTrue(modem.send("AT").ok, "the parent's goes on working")

    def test_asyncio(self):
        self.start_device("--reports", "50")

        async def main():
            ticks = 0

            async def tick():
                nonlocal ticks
                while True:
                    ticks += 1
                    await asyncio.sleep(0)

            ticking = asyncio.ensure_future(tick())
            async with mdxclient.AsyncModem() as modem:
                texts = [answer.text for answer in
                         await asyncio.gather(*(modem.send("AT+CMGF?") for _ in range(3)))]
                self.assertEqual(texts, ["+CMGF: 0"] * 3)
                self.assertEqual([message.text for message in await modem.sms.list()], ["Test"])
                self.assertRegex(await modem.last_rssi(), "RSSI")
                await modem.send("AT+CREG?", match="+CREG:", wait=PATIENCE_S)
            names = []
            async with mdxclient.async_reports(last=True) as reports:
                async for report in reports:
                    names.append(report.name)
                    if report.age is None:
                        break
            self.assertIn("MDX_LINK_UP", names)
            async with mdxclient.async_reports("nobody") as silence:
                waiting = asyncio.ensure_future(silence.get())
                await asyncio.sleep(0)
                with self.assertRaises(mdxclient.Pending):
                    await silence.get()
                waiting.cancel()
                await asyncio.wait({waiting})
                with self.assertRaises(mdxclient.TimedOut):
                    await silence.get(timeout=0.01)
            ticking.cancel()
            self.assertGreater(ticks, 10, "the loop went on meanwhile")

        asyncio.run(main())

    # Reports

    def test_reports(self):
        self.start_scripted()
        with mdxclient.reports() as news, mdxclient.reports("link") as link, mdxclient.reports(module=19) as module:
            self.assertIsNone(link.take())
            self.wait_for_receivers(3)
            with self.assertRaises(mdxclient.TimedOut):
                link.get(timeout=0.01)
            self.modem.say(b"\r\n^HCSQ: \"LTE\",58,50,52\r\n^DSFLOWRPT: 0A,01,02,FFFFFFFFFFFF,04,05,06\r\n")
            report = module.get(PATIENCE_S)
            self.assertEqual((report.name, report.age, report.link, report.lost), ("EVT_AT_HCSQ", None, None, 0))
            self.assertEqual(report.fields["value1"], 58)
            self.assertEqual((report.module, report.module_name), (19, "NOTIFY_MODULE_19"))
            flow = next(one for one in news if one.name == "EVT_AT_FLOW_REPORT")
            self.assertEqual((flow.fields["curr_tx_flow"], flow.units["curr_tx_flow"]), (0xFFFFFFFFFFFF, "B"))
            wait_until(lambda: "EVT_AT_HCSQ" in mdxclient.state(), PATIENCE_S, "the state is known")
            state = mdxclient.state()
            self.assertTrue(state.link.link and state.is_current("EVT_AT_HCSQ"))
            self.assertEqual(state["EVT_AT_HCSQ"].fields, report.fields)
            self.modem.unplug()
            self.assertIs(link.get(PATIENCE_S).link, False)
            with mdxclient.reports(last=True) as remembered:
                ages = {one.name: one.age for one, _ in zip(remembered, range(2))}
            self.assertEqual([type(age) for age in ages.values()], [int, int])
            self.assertFalse(mdxclient.state().is_current("EVT_AT_HCSQ"))
        self.assertRaises(mdxclient.Closed, news.take)
        self.assertRaises(mdxclient.BadRequest, mdxclient.reports, "a-name-too-long")

    def test_missed_reports_are_counted(self):
        self.start_scripted()
        told = 4000  # of those with the most bytes
        with mdxclient.reports(module=2) as reports, mdxclient.Modem() as modem:
            self.wait_for_receivers(1)
            self.modem.say(b"\r\n+CUSD: 0,\"first\",15\r\n" * told)
            modem.send("AT", timeout=PATIENCE_S).check()
            self.modem.say(b"\r\n+CUSD: 0,\"last\",15\r\n")
            seen = lost = 0
            text = "first"
            while text != "last":
                report = reports.get(PATIENCE_S)
                seen, lost, text = seen + 1, lost + report.lost, report.fields["cusdStr"]
            self.assertEqual(seen + lost, told + 1)
            self.assertGreater(lost, 0, "more than is kept for a receiver")

    # Messages

    def test_messages_come_back_the_same(self):
        """Sent to the own number, told of, read, listed; the modem stays in text mode, as it was found."""
        self.start_device("--quiet", "--reports", "0")
        texts = ["Hello", "\r\nOK\r\n", "\x1a", "Gr\u00fc\u00dfe {\u20ac} " * 30, "\u4f60\u597d \U0001f600" * 40]
        with mdxclient.Modem() as modem, mdxclient.reports(module=1) as reports:
            self.wait_for_receivers(1)
            modem.sms.delete(1)
            modem.send("AT+CNMI=2,1").check()
            modem.send("AT+CMGF=1").check()
            sent = [modem.sms.send(OWN_NUMBER, text) for text in texts]
            told = [modem.sms.of_report(reports.get(PATIENCE_S)) for one in sent for _ in one.references]
            self.assertEqual([message.text for message in sms.join(told)], texts)
            self.assertEqual(modem.send("AT+CMGF?").text, "+CMGF: 1")
            listed = modem.sms.list()
            self.assertEqual([message.text for message in listed], texts)
            self.assertEqual({message.number for message in listed}, {OWN_NUMBER})
            self.assertEqual({message.state for message in listed}, {sms.Storage.READ})
            self.assertLess(abs(listed[0].time.timestamp() - time.time()), 86400)
            modem.sms.delete(*listed[3].indexes[1:])
            self.assertEqual(modem.sms.list()[3].missing, tuple(range(2, len(sent[3].references) + 1)))
            self.assertEqual(modem.sms.read(listed[0].indexes[0]).text, "Hello")
            self.assertRaises(mdxclient.NoMessage, modem.sms.read, listed[3].indexes[1])

    def test_messages_of_many_makers(self):
        """Modems say in different ways where messages are, and that there is none; a torn one hides no others."""
        self.modem = MessageModem(MAKERS["all by the book"], {})
        self.start_server()
        with mdxclient.Modem() as modem:
            for name, maker in MAKERS.items():
                self.modem.maker = maker
                self.modem.stored = {maker.first + place: deliver_pdu(f"at {place}") for place in (0, 7, 49)}
                self.assertEqual([message.text for message in modem.sms.list()], ["at 0", "at 7", "at 49"], name)
                self.assertTrue(self.modem.text_mode, name)
            self.modem.stored[maker.first + 7] = self.modem.stored[maker.first + 7][:-4]
            torn = modem.sms.list()[1]
            self.assertTrue(torn.error and torn.pdu[0].startswith("0004"), torn)

    def test_a_message_that_fails(self):
        """What went out is told; and so is a modem that cannot be put back. Bad numbers are not sent at all."""
        script = pathlib.Path("/tmp/script")
        script.write_text("on AT+CMGF? -> +CMGF: 1 | OK\non AT+CMGF=1 once -> OK\non AT+CMGF=1 -> ERROR\n"
                          "on pdu * once -> +CMGS: 7 | OK\non pdu * -> +CMS ERROR: 38\n")
        self.start_device("--script", script)
        with mdxclient.Modem() as modem:
            with self.assertRaisesRegex(mdxclient.ModemError, r"\+CMS ERROR: 38, \w+") as caught:
                modem.sms.send(OWN_NUMBER, "x" * 400)
            self.assertEqual((caught.exception.parts_sent, caught.exception.number), (1, 38))
            with self.assertWarnsRegex(RuntimeWarning, "could not be put back"):
                self.assertRaises(mdxclient.ModemError, modem.sms.send, OWN_NUMBER, "x")
            for number, position in (("+49\x00151", 3), ("+49x", 3), ("", 0)):
                with self.assertRaises(mdxclient.BadMessage) as bad:
                    modem.sms.send(number, "x")
                self.assertEqual(bad.exception.position, position, number)

    def test_a_message_that_is_handed_over(self):
        """+CMT wants to be acknowledged where the modem is set so."""
        self.start_scripted(lambda line: b"\r\n+CSMS: 1,1,1,1\r\n\r\nOK\r\n" if line == b"AT+CSMS?" else OK)
        with mdxclient.Modem() as modem, mdxclient.reports(module=1) as reports:
            self.wait_for_receivers(1)
            pdu = deliver_pdu("Gr\u00fc\u00dfe")
            self.modem.say(f"\r\n+CMT: ,{len(pdu) // 2 - 1}\r\n{pdu}\r\n".encode())
            self.assertEqual(modem.sms.of_report(reports.get(PATIENCE_S)).text, "Gr\u00fc\u00dfe")
        self.assertIn(b"AT+CNMA", self.modem.heard)

    # Documents

    def test_documents(self):
        """Doctests, the README's program, and the examples."""
        self.start_device("--reports", "100")
        options = doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE
        for module in (mdxclient, sms, sys.modules["mdxclient._answer"]):
            self.assertEqual(doctest.testmod(module, optionflags=options).failed, 0)
        page = (ROOT / "docs/man/python-mdxclient.3.scd").read_text()
        self.assertEqual([error.__name__ for error in all_below(mdxclient.Error) if f"*{error.__name__}*" not in page], [])
        for document in ("README.md", "python/README.md"):
            blocks = re.findall(r"```python\n(.*?)```", (ROOT / document).read_text(), re.S)
            self.assertTrue(blocks)
            for block in blocks:
                self.program("-c", block)
        examples = ROOT / "examples/python"
        self.assertRegex(self.program(examples / "send_command.py", "AT+CREG?"), r"^\+CREG: 0,1\n$")
        self.assertIn("+CME ERROR", self.program(examples / "send_command.py", "AT+NOSUCH", code=1))
        self.assertRegex(self.program(examples / "follow_signal.py", "3"), "now: sysmode=")
        modem = threading.Thread(target=self.write_to_ourselves)
        modem.start()
        self.assertRegex(self.program(examples / "wait_for_sms.py", "1"), r"\+15550100: Hello")
        modem.join()
        self.assertRegex(self.program(examples / "two_tasks.py", "2"), r'(?s)report: .*answer after .*"Example Mobile"')

    @staticmethod
    def write_to_ourselves():
        with mdxclient.Modem() as modem:
            wait_until(lambda: modem.send("AT+CNMI?").text.startswith("+CNMI: 2,1"), PATIENCE_S, "the example listens")
            modem.sms.send(OWN_NUMBER, "Hello")

    def program(self, *arguments, code=0):
        done = subprocess.run((sys.executable, "-B", *arguments), capture_output=True, text=True, timeout=PATIENCE_S)
        self.assertEqual(done.returncode, code, done.stdout + done.stderr)
        return done.stdout if code == 0 else done.stderr


if __name__ == "__main__":
    unittest.main()

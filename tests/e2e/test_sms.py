# SPDX-License-Identifier: Apache-2.0
"""Text messages: what was sent arrives the same, on modems that keep and tell of them in different ways."""

import json
import pathlib
import random
import signal
import subprocess
import unittest

from device import (OK, PATIENCE_S, REFUSED_BY_MODEM, USAGE, DeviceTest, ScriptedModem, scaled,
                    wait_until)

OWN_NUMBER = "+15550100"
# What a modem or a program in between may take for something else.
TRAPS = ("OK", "ERROR\r\n", "\r\nOK\r\n", '+CMTI: "SM",1', "> ", "+CMS ERROR: 500", "RING", "\x1a",
         "a\x1b\x1a\rAT+CMGD=1,4", "-hello", "@@@@@@@", "0", " ", "€" * 80, "Ж\U0001F600" * 40)
LETTERS = ("abc XYZ@\n", "äß€{}|", "Жы", "\U0001F600", "+>\r\x1a\"")


def random_text(draw):
    letters = "".join(LETTERS[:draw.randint(1, len(LETTERS))])
    return "".join(draw.choice(letters) for _ in range(draw.randint(1, 200)))


def deliver_pdu(text, reference=None):
    """A message from +1234, in UCS-2; as the second part of two with a reference."""
    header = bytes((5, 0, 3, reference, 2, 2)) if reference is not None else b""
    data = header + text.encode("utf-16-be")
    return bytes((0, 0x44 if header else 4, 4, 0x91, 0x21, 0x43, 0, 8, 0x52, 0x10, 0x52, 0x31, 0x85, 1,
                  0x80, len(data))).hex().upper() + data.hex().upper()


class Maker:
    """How a modem answers about its messages."""

    def __init__(self, first=1, listed="exact", empty="\r\n+CMS ERROR: 321\r\n", groups=True, name="", lists=True):
        self.first, self.listed, self.empty, self.groups, self.name = first, listed, empty, groups, name
        self.lists = lists


MAKERS = {
    "all by the book": Maker(),
    "says where its places are, from 0 on": Maker(first=0, listed="range", name='"Me, too"'),
    "knows no list, answers OK for an empty place": Maker(listed="none", empty="\r\nOK\r\n", lists=False),
    "one command a line, and a plain ERROR": Maker(listed="range", groups=False,
                                                   empty="\r\nERROR\r\n"),
}


class MessageModem(ScriptedModem):
    """Keeps 50 messages, of the places in `stored`, and is in text mode when it is found."""

    PLACES = 50

    def __init__(self, maker, stored):
        self.maker = maker
        self.stored = dict(stored)
        self.read = set()
        self.bad_state = None
        self.text_mode = True
        self.news = "2,0,0,0,0"
        self.on_pdu = lambda: b"\r\n+CMGS: 7\r\n\r\nOK\r\n"
        self.silent_at = None
        super().__init__(self.respond)

    def run(self):
        """Ctrl-Z ends a line, too."""
        take = self.answer
        self.answer = lambda line: b"".join(take(piece) for piece in line.split(b"\x1a"))
        super().run()

    def respond(self, line):
        text = line.decode()
        if text == "AT" or not text:
            return b"\r\nOK\r\n" if text else b""
        if self.silent_at and self.silent_at in text:
            return b""
        commands = text[2:].split(";")
        if len(commands) > 1 and not self.maker.groups:
            return b"\r\nERROR\r\n"
        said = ""
        for command in commands:
            answer = self.run_one(command)
            if answer is not None and not answer.endswith("\r\nOK\r\n"):
                return (said + answer).encode()
            said += (answer or "").removesuffix("\r\nOK\r\n")
        return (said + "\r\nOK\r\n").encode()

    def run_one(self, command):
        name, _, value = command.partition("=")
        if name == "+CMGF?":
            return f"\r\n+CMGF: {int(self.text_mode)}\r\n\r\nOK\r\n"
        if name == "+CMGF":
            self.text_mode = value == "1"
        if name == "+CNMI?":
            return f"\r\n+CNMI: {self.news}\r\n\r\nOK\r\n"
        if name == "+CNMI":
            self.news = value
        if name == "+CPMS?":
            fill = f'"ME",{len(self.stored)},{self.PLACES}'
            return f"\r\n+CPMS: {fill},{fill},{fill}\r\n\r\nOK\r\n"
        if command == "+CMGD=?":
            return self.places()
        if name == "+CMGD":
            self.stored.pop(int(value), None)
        if name == "+CMGR":
            return self.message(int(value))
        if name == "+CMGL":
            return self.listing(int(value))
        if name == "+CMGS":
            return "\r\n+CMS ERROR: 304\r\n" if self.text_mode else "\r\n> "
        return None

    def places(self):
        if self.maker.listed == "none":
            return "\r\nERROR\r\n"
        last = self.maker.first + self.PLACES - 1
        listed = (f"{self.maker.first}-{last}" if self.maker.listed == "range"
                  else ",".join(map(str, self.stored)))
        return f"\r\n+CMGD: ({listed}),(0-4)\r\n\r\nOK\r\n"

    def message(self, index):
        if index not in self.stored:
            return self.maker.empty
        if self.text_mode:
            return '\r\n+CMGR: "REC READ","+1234"\r\nOK\r\n\r\nOK\r\n'
        return f"\r\n+CMGR: {self.shown(index)}\r\n\r\nOK\r\n"

    def shown(self, index):
        state = -1 if index == self.bad_state else int(index in self.read)
        self.read.add(index)
        pdu = self.stored[index]
        return f"{state},{self.maker.name},{len(pdu) // 2 - 1}\r\n{pdu}"

    def listing(self, state):
        if self.text_mode or not self.maker.lists:
            return "\r\n+CMS ERROR: 302\r\n"
        lines = "".join(f"\r\n+CMGL: {i},{self.shown(i)}" for i in list(self.stored)
                        if int(i in self.read) == state)
        return lines + "\r\n\r\nOK\r\n"


class Sms(DeviceTest):
    def sms(self, *arguments, expect=OK, **options):
        code, out, err = self.ctl("sms", *arguments, **options)
        self.assertEqual(code, expect, f"{arguments}: {out}{err}")
        return json.loads(out) if out and "--json" in arguments else out + err

    def start_with(self, maker, stored=()):
        self.modem = MessageModem(maker, stored)
        self.start_server()

    def messages(self, *options):
        return self.sms("list", "--json", *options)["messages"]

    def test_random_texts_come_back_the_same(self):
        """Sent to the own number, kept by the modem, listed and read."""
        self.start_device("--quiet", "--reports", "0")
        seed = 20
        draw = random.Random(seed)
        texts = [*TRAPS, *(random_text(draw) for _ in range(scaled(300, 40) - len(TRAPS)))]
        for begin in range(0, len(texts), 8):
            batch = texts[begin:begin + 8]
            self.sms("delete", "--all", "--yes")
            for text in batch:
                self.sms("send", "+1 555-0100", text)
            listed = []

            def arrived():
                listed[:] = self.messages()
                return len(listed) == len(batch) and not any(
                    message.get("parts", {}).get("missing") for message in listed)

            wait_until(arrived, PATIENCE_S, f"{len(batch)} messages, seed {seed}")
            self.assertEqual(sorted(message["text"] for message in listed), sorted(batch), seed)
            numbers = [str(number) for message in listed for number in message["numbers"]]
            read = self.sms("read", "--json", *numbers)["messages"]
            self.assertEqual([message["text"] for message in read],
                             [message["text"] for message in listed], seed)
            self.assertEqual({message["number"] for message in read}, {OWN_NUMBER})

    def list_fifty(self, maker):
        """@return how many questions each of two listings took, but for those that change the mode"""
        full = {maker.first + i: deliver_pdu(f"message {i} " + "x" * 55) for i in range(50)}
        self.start_with(maker, full)
        asked = []
        for state in ("unread", "read"):
            self.modem.heard.clear()
            listed = self.messages()
            self.assertEqual([message["text"][:12].strip("x ") for message in listed],
                             [f"message {i}" for i in range(50)])
            self.assertEqual({message["state"] for message in listed}, {state})
            self.assertTrue(self.modem.text_mode, "as it was found")
            asked.append(sum(not line.startswith(b"AT+CMGF=") for line in self.modem.heard))
        for index in list(full)[1::2] + [maker.first]:
            self.modem.stored.pop(index)
        self.assertEqual(len(self.messages()), 24, "with empty places between")
        return max(asked)

    def test_fifty_messages_take_few_questions(self):
        self.assertLess(self.list_fifty(MAKERS["all by the book"]), 23)

    def test_a_modem_tells_its_places(self):
        self.assertLess(self.list_fifty(MAKERS["says where its places are, from 0 on"]), 23)

    def test_a_modem_knows_no_list(self):
        self.assertLess(self.list_fifty(MAKERS["knows no list, answers OK for an empty place"]), 23)

    def test_a_modem_takes_one_command_a_line(self):
        """Read one by one: a question for each message, and one more."""
        self.assertLessEqual(self.list_fifty(MAKERS["one command a line, and a plain ERROR"]), 51)

    def test_a_modem_that_does_not_list(self):
        self.start_with(MAKERS["all by the book"], {1: deliver_pdu("x")})
        self.modem.silent_at = "+CMGL"
        self.assertEqual([message["text"] for message in self.messages("--timeout", "1")], ["x"])
        self.modem.silent_at = None
        self.modem.stored = {i: deliver_pdu("x") for i in range(1, 62)}
        self.modem.heard.clear()
        self.assertEqual(len(self.messages()), 61)
        self.assertNotIn(b"AT+CMGL=1", self.modem.heard, "too many to be sent for the few that arrive")

    def test_a_message_of_a_state_that_there_is_not(self):
        self.start_with(MAKERS["all by the book"], {i: deliver_pdu(f"message {i}") for i in range(1, 5)})
        self.modem.bad_state = 2
        listed = self.sms("list", "--json", expect=REFUSED_BY_MODEM)
        self.assertEqual([message["numbers"] for message in listed["messages"]], [[1], [3], [4]])
        self.assertEqual(len(listed["errors"]), 1)
        self.assertIn("message 2 is passed over", listed["errors"][0])

    def test_watch(self):
        """Fetched or handed over, joined, deleted; and nothing is asked while nothing happens."""
        self.start_with(MAKERS["all by the book"])
        watch = self.start("mdxctl", "sms", "watch", "--json", "--delete")
        wait_until(lambda: self.modem.news != "2,0,0,0,0", PATIENCE_S, "the modem is told to tell")
        self.at("AT")
        self.modem.heard.clear()
        with self.assertRaises(AssertionError):
            wait_until(lambda: self.modem.heard, scaled(10, 2), "a question")
        second = deliver_pdu("second", reference=9)
        self.modem.stored = {1: second, 2: second.replace("0500030902" + "02", "0500030902" + "01")
                             .replace("second".encode("utf-16-be").hex().upper(),
                                      "first ".encode("utf-16-be").hex().upper())}
        self.modem.say(b'\r\n+CMTI: "ME",1\r\n\r\n+CMTI: "ME",2\r\n')
        wait_until(lambda: not self.modem.stored, PATIENCE_S, "they are shown and deleted")
        direct = deliver_pdu("handed over")
        self.modem.say(f"\r\n+CMT: ,{len(direct) // 2 - 1}\r\n{direct}\r\n".encode())
        wait_until(lambda: self.log_of(watch).count("}\n") >= 2, PATIENCE_S, "two messages")
        shown = [json.loads(line) for line in self.log_of(watch).splitlines() if line[0] == "{"]
        self.assertEqual([message["text"] for message in shown], ["first second", "handed over"])
        self.stop(watch, signal.SIGINT)
        self.assertEqual(watch.returncode, OK)
        self.assertTrue(self.modem.text_mode, "as it was found")

    def test_a_signal_puts_the_mode_back(self):
        self.start_with(MAKERS["all by the book"])
        self.modem.silent_at = "+CMGR"
        reader = self.start("mdxctl", "sms", "read", "1", "--timeout", "1000")
        wait_until(lambda: b"AT+CMGR=1" in self.modem.heard, PATIENCE_S, "the question")
        reader.send_signal(signal.SIGINT)
        wait_until(lambda: b"AT" in self.modem.heard or reader.poll() is not None, PATIENCE_S, "the end")
        self.assertEqual(reader.wait(PATIENCE_S), -signal.SIGINT)
        self.assertTrue(self.modem.text_mode, self.log_of(reader))

    def send_reported(self, status, expect):
        """The network's word on message 7 comes as soon as it was sent; one on another, before."""
        stamp = "52105231850180"
        reports = "".join(
            f"\r\n+CDS: 20\r\n0006{reference:02X}028121{stamp}{stamp}{status:02X}\r\n" for reference in (8, 7))
        self.modem.on_pdu = lambda: f"\r\n+CMGS: 7\r\n\r\nOK\r\n{reports}".encode()
        return self.sms("send", "12", "x", "--report", "--json", "--report-wait", "30", expect=expect)

    def test_delivery_reports_and_refusals(self):
        self.start_with(MAKERS["all by the book"])
        respond = self.modem.respond
        self.modem.answer = lambda line: (
            self.modem.on_pdu() if line[:2] == b"00" else respond(line))
        reports = self.send_reported(0, OK)["reports"]
        self.assertEqual([(r["message_reference"], r["fate"]) for r in reports], [(7, "delivered")])
        self.assertEqual(self.send_reported(0x46, REFUSED_BY_MODEM)["reports"][0]["fate"], "failed")
        self.assertEqual(self.modem.news, "2,0,0,0,0", "as it was found")
        self.modem.on_pdu = lambda: b"\r\n+CMS ERROR: 310\r\n"
        refused = self.sms("send", "12", "x", "--json", expect=REFUSED_BY_MODEM)
        self.assertEqual(refused["error_number"], 310)
        self.assertIn("no SIM is inserted", refused["error"])
        self.assertIsNone(refused["parts"][0]["reference"])
        self.assertTrue(self.modem.text_mode, "as it was found")

    def test_what_is_handed_over_is_acknowledged(self):
        """On a living modem in phase 2+: what nobody acknowledges the network would send again."""
        self.start_device("--quiet", "--reports", "0")
        self.at("AT+CSMS=1")
        sent = self.sms("send", OWN_NUMBER, "x", "--report", "--json", "--report-wait", "60")
        self.assertEqual([(r["number"], r["fate"]) for r in sent["reports"]], [(OWN_NUMBER, "delivered")])
        self.assertIn("340", self.at("AT+CNMA", expect=REFUSED_BY_MODEM)["text"], "nothing is left to acknowledge")
        self.assertIn("2,0,0,0,0", self.at("AT+CNMI?")["text"], "as it was found")
        self.at("AT+CNMI=2,2")
        watch = self.start("mdxctl", "sms", "watch", "--json", "--count", "1")
        wait_until(lambda: "*" in self.console("platform", "receivers"), PATIENCE_S, "it hears")
        self.sms("send", OWN_NUMBER, "handed over")
        self.assertEqual(watch.wait(PATIENCE_S), OK, self.log_of(watch))
        self.assertEqual(json.loads(self.log_of(watch).splitlines()[-1])["text"], "handed over")
        self.assertIn("340", self.at("AT+CNMA", expect=REFUSED_BY_MODEM)["text"])

    def test_completion_of_numbers_reads_nothing(self):
        self.start_device("--quiet")
        completion = pathlib.Path(__file__).parents[2] / "packaging" / "mdxctl.bash"
        offered = subprocess.run(["bash", "-c", f"source '{completion}'; COMP_WORDS=(mdxctl sms read ''); COMP_CWORD=3; "
                                  "_mdxctl; echo ${COMPREPLY[@]}"], capture_output=True, text=True, timeout=PATIENCE_S)
        self.assertEqual(offered.stdout, "1\n", offered.stderr)
        self.assertEqual(self.messages("--unread")[0]["numbers"], [1])

    def test_where_the_text_comes_from(self):
        cases = (
            (("send", "--dry-run", "1", "-hello"),           "",             OK,    "AT+CMGS=14"),
            (("send", "--dry-run", "+49 151 12345", "x"),    "",             OK,    "0A919451113254"),
            (("send", "--dry-run", "1", "-"),                "\ufeffx\r\n",  OK,    "AT+CMGS=9 "),
            (("send", "--dry-run", "1", "--file", "/no"),    "",             USAGE, "/no cannot be read"),
            (("send", "--dry-run", "1", "--file", "/tmp"),   "",             USAGE, "Is a directory"),
            (("send", "--dry-run", "1", "--file", "/dev/zero"), "",      USAGE, "longer than 255 parts"),
            (("send", "1", ""),                              "",             USAGE, "the text is empty"),
            (("send", "1", "-"),                             "\n",           USAGE, "the text is empty"),
            (("send", "1"),                                  "",             USAGE, "there is no text"),
            (("delete", "--all"),                            "",             USAGE, "say --yes"),
            (("delete",),                                    "",             USAGE, "which messages?"),
        )
        for arguments, given, code, told in cases:
            self.assertIn(told, self.sms(*arguments, stdin=given, expect=code), arguments)
        long_ones = {self.sms("send", "--dry-run", "1", "x" * 161)[30:45] for _ in range(3)}
        self.assertGreater(len(long_ones), 1, "each long message has a reference of its own")


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: Apache-2.0
"""What each panel shows and does, with a modem that says what a script has for it."""

import json
import os
import pathlib
import re
import signal
import time
import unittest

from browser import DOWNLOADS, NARROW, PAGE, PATIENCE_S, WIDE, Keys, PageTest, SystemLog, wait_until

HOSTILE = '<img src=x onerror="document.title=1">\u202egnp.exe \u200bEND'

# What makes the modem say it is a command, so that nothing depends on time.
SCRIPT = """
on AT+COPS?      -> +COPS: 0,0,"Nord & <b>Süd</b>",7 | OK
on AT+CSQ        -> +CSQ: 20,99 | OK
on AT^LTE        -> OK
also             -> ^HCSQ:"LTE",40,52,121,28
on AT^WEAK       -> OK
also             -> ^HCSQ:"LTE",15,20,60,10
on AT^FLOW       -> OK
also             -> ^DSFLOWRPT:00000001,00001388,000003E8,0000000000000000,0000000000000000,00000000,00000000
on AT^USSD       -> OK
also             -> raw \\r\\n+CUSD: 1,"<img src=x onerror=alert(1)>\\x1b[31m",15\\r\\n
on AT^MANY       -> OK
also             -> raw {many}
on AT^LONG       -> +LONG: {long} | OK
on AT+CMGD=99    -> +CMS ERROR: 321
on AT+CPIN=4711  -> no AT+CPIN=4711 here | ERROR
"""
MANY = 2000


def script_file():
    many = "".join(f'\\r\\n^HCSQ:"LTE",{i % 96},52,121,28\\r\\n' for i in range(MANY))
    path = pathlib.Path("/tmp/page.script")
    path.write_text(SCRIPT.replace("{many}", many).replace("{long}", "x" * 100))
    return str(path)


class Page(PageTest):
    def start_page(self, panel="now"):
        self.start_device("--script", script_file())
        self.open_page(panel)
        self.wait_text("#link", "Modem connected")

    def tell(self, command):
        self.assertEqual(self.ctl("at", command)[0], 0)

    # Now

    def test_now_shows_what_the_modem_says(self):
        self.start_page()
        self.wait_card("operator", "Nord & <b>S")
        self.wait_card("registration", "home network")
        self.wait_card("sim", "ready")
        self.wait_card("signal", "-73 dBm")
        self.wait_card("roaming", "no")
        self.tell("AT^LTE")
        self.wait_card("signal", "-81 dBm")
        self.assertEqual(self.card("technology"), "LTE")
        self.wait_text("[data-card=signal] .more", "RSRP -89 dBm")
        self.assertEqual(self.find("#signal-bars").get_attribute("aria-label"), "3 of 5 bars")
        self.assertEqual(self.card("temperature"), "–")
        self.tell("AT^FLOW")
        self.wait_text("[data-card=data] .more", "kB/s")
        self.assertEqual(self.card("data"), "–", "nobody told whether it is up")
        self.assertEqual(self.complaints(), [])

    def test_modem_goes_and_comes_back(self):
        self.start_page()
        self.wait_card("operator", "Nord")
        self.stop(self.modem)
        self.wait_text("#link", "Modem gone since")
        self.wait_card("modem", "gone")
        wait_until(lambda: "grey" in self.find("[data-card=operator]").get_attribute("class"), PATIENCE_S, "old is grey")
        self.assertFalse(self.find("#ask-again").is_enabled())
        self.start_modem("--script", script_file())
        self.wait_text("#link", "Modem connected")
        wait_until(lambda: "grey" not in self.find("[data-card=operator]").get_attribute("class"), PATIENCE_S, "it was asked anew")

    def test_server_dies_and_comes_back(self):
        self.start_page()
        self.wait_card("operator", "Nord")
        self.stop(self.server, signal.SIGKILL)
        self.wait_text("#banner", "mdxgate is not running")
        self.wait_text("#link", "Modem: not known")
        self.start_server()
        self.wait_text("#link", "Modem connected")
        self.wait_text("#banner", "")
        self.tell("AT^LTE")
        self.wait_card("signal", "-81 dBm")

    def test_page_comes_in_front_of_everything_else(self):
        self.open_page()
        self.wait_text("#banner", "mdxgate is not running")
        self.start_device("--script", script_file())
        self.wait_card("operator", "Nord")

    def test_mdxctl_is_missing(self):
        os.environ["PATH"] = "/usr/bin:/bin"
        self.open_page()
        self.wait_text("#banner", "mdxctl is not installed")

    def test_hidden_page_asks_nothing(self):
        self.start_page("health")
        self.wait_text("#health-verdict", "zero")
        page = self.browser.current_window_handle
        self.browser.switch_to.new_window("tab")
        questions = ("commands", "console_commands")

        def asked():
            values = json.loads(self.ctl("stats", "--json")[1])["values"]
            return [values[name] for name in questions]

        def rests():
            before = asked()
            self.pause(5)
            own = [0, len(("version", "stats", "receivers"))]
            return [now - then for now, then in zip(asked(), before)] == own

        wait_until(rests, PATIENCE_S, "a hidden page asks nothing")
        self.tell("AT^LTE")
        self.browser.switch_to.window(page)
        self.show("reports")
        self.wait_text("#report-list li b", "EVT_AT_HCSQ")

    def test_strange_names_are_text(self):
        path = pathlib.Path("/tmp/strange.script")
        path.write_text('on AT+COPS? -> +COPS: 0,0,"N\u202eord",7 | OK\non AT+CPIN? -> +CPIN: constructor | OK\n')
        self.start_device("--script", str(path))
        self.open_page("constructor")
        self.wait_card("sim", "constructor")
        self.assertTrue(self.find("#now").is_displayed())
        self.assertEqual(self.card("sim"), "constructor")
        self.wait_card("operator", "N⟨U+202E⟩ord")
        self.show("signal")
        self.wait_text("#chart-marks", "N⟨U+202E⟩ord, home network")
        self.assertEqual(self.complaints(), [])

    # Signal

    def test_signal_has_gaps_and_marks(self):
        self.start_page("signal")
        self.wait_text("#chart-marks", "Nord & <b>S")
        for command, lowest in (("AT^LTE", "-81"), ("AT^WEAK", "-106")):
            self.tell(command)
            self.wait_text("#chart-summary", f"lowest {lowest} dBm")
        self.wait_text("#chart-summary", "gaps: 0")
        self.stop(self.modem)
        self.wait_text("#chart-summary", "gaps: 1")
        self.start_modem("--script", script_file())
        self.wait_text("#link", "Modem connected")
        # The line begins anew behind the gap, once the modem has been asked.
        wait_until(lambda: self.path(".signal").count("M") == 2, PATIENCE_S, "a gap in the line")
        wait_until(lambda: self.path(".commands") != "", PATIENCE_S, "the server's load")
        self.assertEqual(self.script("return document.querySelectorAll('#chart .mark').length"), 1)

    def path(self, name):
        return self.script("return document.querySelector('#chart ' + arguments[0])?.getAttribute('d') || ''", name)

    # Reports

    def test_reports_are_filtered_paused_and_saved(self):
        self.start_page("reports")
        start = time.monotonic()
        self.tell("AT^LTE")
        self.wait_text("#report-list", "value1=40")
        print(f"a report was seen {1000 * (time.monotonic() - start):.0f} ms after the command that caused it")
        self.tell("AT^USSD")
        self.wait_text("#report-list", "EVT_AT_USSD")
        self.choose("#report-kind", "signal")
        self.wait_events("EVT_AT_HCSQ")
        self.choose("#report-kind", "")
        self.find("#report-text").send_keys("cusdstr")
        self.wait_events("EVT_AT_USSD")
        self.find("#report-save").click()
        (saved,) = self.downloaded("mdxgate-reports-*.jsonl")
        self.assertEqual([json.loads(line)["event"] for line in saved.splitlines()], ["EVT_AT_USSD"])
        self.find("#report-text").clear()
        self.find("#report-pause").click()
        self.tell("AT^WEAK")
        self.wait_text("#report-status", "1 more came")
        self.choose("#report-kind", "signal")
        self.wait_events("EVT_AT_HCSQ")
        self.wait_text("#report-status", "1 more came")
        self.assertNotIn("value1=15", self.text("#report-list"))
        self.find("#report-pause").click()
        self.wait_text("#report-list", "value1=15")

    def events(self):
        return self.script("return [...document.querySelectorAll('#report-list b')].map((b) => b.textContent)")

    def wait_events(self, *names):
        wait_until(lambda: self.events() == list(names), PATIENCE_S, f"these reports: {names}")

    def test_hostile_reports_are_text(self):
        self.start_page("reports")
        self.tell("AT^USSD")
        self.wait_text("#report-list", "<img src=x onerror=alert(1)>␛[31m")
        self.assert_is_text()

    def test_thousands_at_once(self):
        self.start_page("reports")
        self.script("""
          window.frames = [];
          let before = performance.now();
          const frame = (now) => { frames.push(now - before); before = now; requestAnimationFrame(frame); };
          requestAnimationFrame(frame);""")
        self.tell("AT^MANY")
        # The report behind them says how many were lost on a slow machine; while they come, time runs out.
        wait_until(lambda: self.ctl("at", "AT^LTE")[0] == 0, PATIENCE_S, "the modem answers again")
        wait_until(lambda: self.came_or_lost() >= MANY, PATIENCE_S, f"{MANY} reports")
        self.assertEqual(len(self.events()), 200)
        frames = sorted(self.script("return frames"))
        print(f"{len(frames)} frames, half of them under {frames[len(frames) // 2]:.0f} ms, longest {frames[-1]:.0f} ms")
        self.find("#report-text").send_keys("value1=95")
        wait_until(lambda: 0 < len(self.events()) <= MANY / 96 + 1, PATIENCE_S, "the list is filtered")

    def came_or_lost(self):
        counts = re.findall(r"[\d,]+(?= came| lost)", self.text("#report-status"))
        return sum(int(count.replace(",", "")) for count in counts)

    # Commands

    def test_commands_and_history(self):
        self.start_page("commands")
        self.enter("AT+CSQ")
        self.wait_text("#command-log .entry:nth-child(1)", "+CSQ: 20,99")
        self.wait_text("#command-log .entry:nth-child(1) .result", "OK")
        self.wait_text("#command-log .entry:nth-child(1) .took", "ms")
        self.enter("AT+NOSUCH")
        self.wait_text("#command-log .entry:nth-child(2) .result.bad", "+CME ERROR")
        self.enter("hello")
        self.wait_text("#command-hint", "begins with AT")
        command = self.find("#command")
        command.clear()
        command.send_keys(Keys.ARROW_UP, Keys.ARROW_UP)
        self.assertEqual(command.get_property("value"), "AT+CSQ")
        command.send_keys(Keys.ARROW_DOWN)
        self.assertEqual(command.get_property("value"), "AT+NOSUCH")

    def test_dangerous_commands_are_asked_about(self):
        self.start_page("commands")
        for command in ("AT+CFUN=0", "at&f", "AT+CSQ;+CMGD=1,4", "ATE0Z", 'AT+CPBW=3', "AT&F+COPS=?", "ATS0=0&F",
                        "ATD**04*1*2*2#", 'AT+CUSD=1,"**05*1*2*2#"', 'AT+QMGDA="DEL ALL"'):
            self.enter(command)
            self.assertTrue(self.find("#question").is_displayed(), command)
            self.find("#question").send_keys(Keys.ESCAPE)
            self.assertEqual(self.text("#command-log"), "", "not sent")
        self.enter("AT+CMGD=99")
        self.find("#question-yes").click()
        self.wait_text("#command-log .result", "+CMS ERROR")
        for harmless in ("AT+CFUN?", "AT+CMGD=?", "ATI"):
            self.enter(harmless)
            self.wait_text("#command-log .entry:last-child .asked", harmless)
            wait_until(lambda: self.find("#command-send").is_enabled(), PATIENCE_S, "answered")

    def test_pins_are_not_kept(self):
        self.start_page("commands")
        self.enter('AT+CPIN="4711"')
        self.assertNotIn("4711", self.text("#question"))
        self.find("#question-yes").click()
        self.wait_text("#command-log .asked", "AT+CPIN=••••")
        wait_until(lambda: self.find("#command-send").is_enabled(), PATIENCE_S, "answered")
        self.find("#command").send_keys(Keys.ARROW_UP)
        self.assertEqual(self.find("#command").get_property("value"), "")
        self.enter("AT+CPIN=4711")
        self.find("#question-yes").click()
        self.wait_text("#command-log .entry:last-child .answer", "no AT+CPIN=•••• here")
        self.assertNotIn("4711", self.browser.page_source)

    def enter(self, command):
        field = self.find("#command")
        field.clear()
        field.send_keys(command, Keys.ENTER)

    # Messages

    def test_messages_are_conversations(self):
        self.start_page("messages")
        self.wait_text("#conversations", "1 new")
        self.find("#conversations button").click()
        self.wait_text("#thread", "Test")
        self.assertEqual(self.find("#message-number").get_property("value"), "+33663604189")
        self.find("#thread button").click()
        self.find("#question-no").click()
        self.wait_text("#thread", "Test")
        self.find("#thread button").click()
        self.find("#question-yes").click()
        self.wait_text("#conversations", "keeps no messages")

    def test_another_message_in_its_place_is_kept(self):
        self.start_page("messages")
        self.wait_text("#conversations", "Test")
        self.ctl("at", "AT+CNMI=2,1")
        self.find("#conversations button").click()
        self.find("#thread button").click()
        self.ctl("sms", "delete", "1")
        self.ctl("sms", "send", "+15550100", "later")  # the modem's own number
        self.wait_text("#conversations", "later")
        self.find("#question-yes").click()
        self.wait_text("#messages-status", "Nothing was deleted")
        self.assertIn("later", self.ctl("sms", "list", "--all")[1])

    def test_draft_stays_with_its_conversation(self):
        self.start_page("messages")
        self.wait_text("#conversations", "Test")
        self.find("#message-text").send_keys("for somebody else")
        self.find("#conversations button").click()
        self.assertEqual(self.find("#message-text").get_property("value"), "")
        self.find("#message-new").click()
        self.assertEqual(self.find("#message-text").get_property("value"), "for somebody else")

    def test_focus_stays_when_a_message_comes(self):
        self.start_page("messages")
        self.wait_text("#conversations", "Test")
        self.ctl("at", "AT+CNMI=2,1")
        self.find("#conversations button").click()
        for place, text in (("#conversations", "first"), ("#thread", "second")):
            self.find(f"{place} button:not([data-key='+15550100'])").send_keys("")
            focused = "return document.activeElement.closest('ul, ol')?.id + document.activeElement.dataset.key"
            before = self.script(focused)
            self.assertIn(place[1:], before)
            self.ctl("sms", "send", "+15550100", text)
            self.wait_text("#conversations", text)
            self.assertEqual(self.script(focused), before)

    def test_message_that_comes_while_the_page_is_hidden(self):
        self.start_page("messages")
        self.wait_text("#conversations", "Test")
        self.ctl("at", "AT+CNMI=2,1")
        page = self.browser.current_window_handle
        self.browser.switch_to.new_window("tab")
        self.ctl("sms", "send", "+15550100", "unseen")
        self.pause(2)
        self.browser.switch_to.window(page)
        self.wait_text("#conversations", "unseen")

    def test_messages_are_counted_and_sent(self):
        self.start_page("messages")
        self.write("+1 (555) 0100", "a" * 161)
        self.wait_text("#message-count", "Characters: 161, parts: 2, alphabet: GSM 7-bit")
        self.write("+1 (555) 0100", HOSTILE)
        self.wait_text("#message-count", "parts: 1, alphabet: UCS-2")
        self.find("#message-send").click()
        self.wait_text("#message-count", "Sent.")
        self.wait_text("#thread .out", "<img src=x")
        # To its own number: it comes back, as text.
        self.ctl("at", "AT+CNMI=2,1")
        self.find("#messages-load").click()
        self.wait_text("#thread .in", "<img src=x")
        self.assertIn("⟨U+202E⟩gnp.exe ⟨U+200B⟩END", self.text("#thread .in"))
        self.assert_is_text()
        self.write("nobody", "x")
        self.find("#message-send").click()
        self.wait_text("#message-count", "A number has digits")

    def write(self, number, text):
        for selector, value in (("#message-number", number), ("#message-text", text)):
            self.find(selector).clear()
            self.find(selector).send_keys(value)

    # Health

    def test_health_and_support_file(self):
        SystemLog()  # without one each trace would be lost, and counted
        self.start_page("health")
        self.wait_text("#health-verdict", "All that should be zero is zero.")
        self.wait_text("#health-versions", "Server 0.1.0, mdxctl 0.1.0")
        wait_until(lambda: self.text("#health-receivers"), PATIENCE_S, "the page itself listens")
        self.ctl("at", "--timeout", "1", "AT+COPS=?")  # takes the modem longer
        self.wait_text("#health-bad", "late_answers_absorbed")
        self.wait_text("#health-verdict", "Not zero")
        self.tell("AT^LTE")
        self.find("#support").click()
        (saved,) = self.downloaded("mdxgate-support-*.txt")
        for part in ('"answers": true', '"EVT_AT_HCSQ"', '"commands"', "journal of mdxgate"):
            self.assertIn(part, saved)

    def test_support_file_masks_texts_and_numbers(self):
        self.start_page()
        cases = {
            'message to +4915112345678 refused': "message to +############# refused",
            'no AT: "Hello 12" of 8': 'no AT: "##### ##" of 8',
            "IMSI 262011234567890, pdu 0791447758100650": "IMSI ###############, pdu ################",
            "at 0a1b2c3d4e5f it failed": "at ############ it failed",
            "tel4915112345678, 0a12345b": "tel#############, ########",
            "2026-11-23T14:45:27+0000 host (mdxgate)[12]: failed": "2026-11-23T14:45:27+0000 (mdxgate)[12]: failed",
            "2026-11-23T14:45:27+0000 host mdxgate[1234567]: level 3": "2026-11-23T14:45:27+0000 mdxgate[1234567]: level 3",
        }
        masked = self.browser.execute_async_script("""
          const [lines, done] = arguments;
          import("./support.js").then(({maskedJournal}) => done(maskedJournal(lines.join("\\n")).split("\\n")));""", list(cases))
        self.assertEqual(masked, list(cases.values()))

    # For everybody

    def assert_is_text(self):
        self.assertEqual(self.script("return document.querySelectorAll('main img').length"), 0)
        self.assertRegex(self.script("return document.title"), "modem")
        self.assertEqual(self.complaints(), [])

    def test_it_fits_and_nothing_moves(self):
        self.start_page()
        self.wait_card("operator", "Nord")
        self.tell("AT^LTE")
        self.wait_card("signal", "-81 dBm")
        shift = self.browser.execute_async_script("""
          const done = arguments[0];
          new PerformanceObserver((list) => done(list.getEntries().map((e) => e.value).reduce((a, b) => a + b, 0)))
            .observe({type: "layout-shift", buffered: true});
          setTimeout(() => done(0), 1000);""")
        self.assertLess(shift, 0.02, "the page moved while data came")
        self.show("messages")
        self.wait_text("#conversations", "Test")
        self.find("#conversations button").click()
        for size in (WIDE, NARROW):
            self.set_size(size)
            for panel in ("now", "signal", "reports", "commands", "messages", "health"):
                self.show(panel)
                width = self.script("return document.scrollingElement.scrollWidth")
                self.assertLessEqual(width, size[0], f"{panel} at {size[0]}")

    def test_it_is_small_and_comes_from_here(self):
        self.start_page()
        loaded = self.script("return performance.getEntries().filter((e) => e.encodedBodySize).map((e) => [e.name, e.encodedBodySize])")
        total = sum(size for _, size in loaded)
        print(f"{len(loaded)} files, {total} bytes")
        self.assertLess(total, 150_000)
        self.assertEqual([name for name, _ in loaded if not name.startswith(PAGE.split("/cockpit/")[0])], [])

    def test_keyboard_alone(self):
        self.start_page()
        for _ in range(20):
            if self.script("return document.activeElement.hash") == "#/commands":
                break
            self.press(Keys.TAB)
        self.press(Keys.ENTER)
        self.assertTrue(self.find("#commands").is_displayed())
        for _ in range(10):
            if self.script("return document.activeElement.id") == "command":
                break
            self.press(Keys.TAB)
        self.press("AT+CFUN=0", Keys.ENTER)
        self.assertEqual(self.script("return document.activeElement.id"), "question-no", "a no is what Enter says")
        self.press(Keys.ENTER)
        self.assertEqual(self.script("return document.activeElement.id"), "command")


if __name__ == "__main__":
    DOWNLOADS.mkdir(exist_ok=True)
    unittest.main()

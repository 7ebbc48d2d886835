# SPDX-License-Identifier: Apache-2.0
"""Pictures of each panel, for people to look at: at both widths, light and dark.

  scripts/box /usr/bin/python3 -B tests/web/screenshots.py | tar -x -C FOLDER

The four of docs/ are now-1440-light, signal-1440-dark, messages-1440-light and reports-360-dark, made
smaller with pngquant.
"""

import io
import pathlib
import sys
import tarfile
import unittest

from browser import NARROW, WIDE, PageTest

PANELS = ("now", "signal", "reports", "commands", "messages", "health")
MINUTES = 9

SCRIPT = """
on AT+COPS? -> +COPS: 0,0,"Nordnetz",7 | OK
on AT^SIGNAL=* -> OK
on AT^BEGIN -> OK
also -> ^HCSQ:"LTE",52,46,140,24
also -> ^DSFLOWRPT:00000E10,00003E80,00027100,0000000000F42400,0000000003D09000,00000000,00000000
also -> ^TEMPPRT:1,2
also -> ^NDISSTAT:1,,,"IPV4"
also -> ^MODE:17,71
also -> ^SRVST:2
also -> +CREG: 1
also -> RING
also -> +CLIP: "+4915112345678",145,,,,0
also -> ^CEND:1,12,0,16
also -> +CUSD: 0,"Balance: 7.40 EUR",15
"""


class Pictures(PageTest):
    def test_pictures(self):
        path = pathlib.Path("/tmp/pictures.script")
        path.write_text(SCRIPT)
        self.start_device("--script", str(path))
        self.open_page()
        self.wait_card("operator", "Nordnetz")
        self.ctl("at", "AT^BEGIN")
        self.wait_card("signal", "-69 dBm")
        self.add_minutes()
        self.fill()
        with tarfile.open(fileobj=sys.stdout.buffer, mode="w|") as archive:
            for panel in PANELS:
                self.show(panel)
                self.pause(2)
                self.look(archive, panel)

    def add_minutes(self):
        """The page's own history has seconds when the pictures are made: minutes are put in front."""
        self.browser.execute_async_script("""
          const [minutes, done] = arguments;
          import("./page.js").then(({history}) => {
            const now = Date.now();
            const from = now - minutes * 60000;
            const wave = (at) => Math.round(-75 + 9 * Math.sin(at / 70000) + 4 * Math.sin(at / 17000));
            const gone = (at) => at > now - 240000 && at < now - 190000;
            for (let at = from; at < now - 15000; at += 3000) {
              history.signal.push({ at, value: gone(at) ? null : wave(at) });
            }
            for (let at = from; at < now - 15000; at += 2000) {
              const rate = gone(at) ? 0 : 1 + Math.abs(Math.round(3 * Math.sin(at / 40000)));
              history.commands.push({ at, value: rate });
              history.latency.push({ at, value: gone(at) ? null : 18 + 12 * Math.abs(Math.sin(at / 23000)) });
            }
            history.registration.push({ at: now - 190000, what: "Nordnetz, home network" });
            for (const list of [history.signal, history.commands, history.latency, history.registration]) {
              list.sort((one, other) => one.at - other.at);
            }
            done();
          });""", MINUTES)

    def fill(self):
        self.ctl("at", "AT+CNMI=2,1")
        for text in ("Pump 3: pressure low, 1.2 bar", "Pump 3: pressure 0.9 bar. Should I open the valve? Answer yes or no."):
            self.ctl("sms", "send", "+15550100", text)  # the modem's own number
        self.show("commands")
        for command in ("ATI", "AT+CSQ", "AT+NOSUCH", "AT+CPIN?"):
            self.find("#command").send_keys(command + "\n")
            self.wait_text("#command-log .entry:last-child .asked", command)
            self.wait_text("#command-log .entry:last-child", "ms")
        self.show("messages")
        self.wait_text("#conversations", "0.9 bar")
        self.find("#conversations button").click()
        self.find("#message-number").clear()
        self.find("#message-number").send_keys("+15550100")
        self.find("#message-text").send_keys("Yes, and tell me the pressure again at 14:30.")
        self.wait_text("#message-count", "parts: 1")

    def look(self, archive, panel):
        for size in (WIDE, NARROW):
            for dark in (False, True):
                self.set_size(size)
                self.set_dark(dark)
                self.pause(1)
                picture = self.browser.get_screenshot_as_png()
                entry = tarfile.TarInfo(f"{panel}-{size[0]}-{'dark' if dark else 'light'}.png")
                entry.size = len(picture)
                archive.addfile(entry, io.BytesIO(picture))


if __name__ == "__main__":
    unittest.main()

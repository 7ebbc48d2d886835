# SPDX-License-Identifier: Apache-2.0
"""For whom the page is: screen readers, other languages, small screens, the dark."""

import os
import pathlib
import re
import unittest

from browser import NARROW, WEB, WIDE, PageTest

AXE = pathlib.Path(os.environ["MDXGATE_AXE"])
PANELS = ("now", "signal", "reports", "commands", "messages", "health")


class People(PageTest):
    @unittest.skipUnless(AXE.exists(), "scripts/install-npm axe could not fetch axe-core")
    def test_axe_finds_nothing(self):
        self.start_device()
        self.open_page()
        self.wait_card("sim", "ready")
        self.script(AXE.read_text())
        for size, dark in ((WIDE, False), (NARROW, True)):
            self.set_size(size)
            self.set_dark(dark)
            for panel in PANELS:
                self.show(panel)
                self.fill(panel)
                self.assertEqual(self.axe(), [], f"{panel}, {size[0]} pixels, {'dark' if dark else 'light'}")
        self.show("commands")
        self.find("#command").send_keys("AT+CFUN=0\n")
        self.assertEqual(self.axe(), [], "the question")
        self.find("#question-no").click()
        self.show("now")
        self.stop(self.modem)
        self.wait_card("modem", "gone")
        self.assertEqual(self.axe(), [], "all in grey")
        self.stop(self.server)
        self.wait_text("#banner", "not running")
        self.assertEqual(self.axe(), [], "the banner")

    def fill(self, panel):
        """What a person has before their eyes, not an empty panel."""
        if panel == "commands":
            self.find("#command").send_keys("AT+NOSUCH\n")
            self.wait_text("#command-log .result.bad", "CME")
        if panel == "messages":
            self.wait_text("#conversations", "Test")
            self.find("#conversations button").click()
        if panel == "health":
            self.wait_text("#health-verdict", "zero")
            self.script("document.querySelector('details').open = true")

    def axe(self):
        return self.browser.execute_async_script("""
          const done = arguments[0];
          axe.run().then(({violations}) => done(violations.map(({id, nodes}) => id + ": " + nodes.map((n) => n.html).join(" "))));""")


class German(PageTest):
    language = "de"

    def test_german(self):
        self.start_device()
        self.open_page()
        self.wait_text("#link", "Modem verbunden seit")
        self.wait_card("sim", "bereit")
        self.wait_text("[data-card=sim] .age", "vor ")
        self.assertIn("Meldungen", self.text("nav"))
        self.assertEqual(self.script("return document.documentElement.lang"), "de")


class Words(unittest.TestCase):
    def test_every_text_is_translated(self):
        german = set(re.findall(r'^  ("(?:[^"\\]|\\.)+"): \[null, "', (WEB / "po.de.js").read_text(), re.M))
        page = (WEB / "index.html").read_text()
        used = {f'"{text}"' for text in re.findall(r'translate="yes"[^>]*>([^<]+)<', page)}
        used |= {f'"{text}"' for text in re.findall(r'translate="aria-label" aria-label="([^"]+)"', page)}
        for path in WEB.glob("*.js"):
            used |= set(re.findall(r'\b_\(("(?:[^"\\]|\\.)*")\)', path.read_text()))
        self.assertEqual(used ^ german, set())

    def test_all_files_are_installed(self):
        installed = set(re.findall(r"[\w.]+\.(?:js|json|html|css)\b", (WEB / "CMakeLists.txt").read_text()))
        self.assertEqual(installed, {path.name for path in WEB.iterdir()} - {"CMakeLists.txt"})

    def test_secrets_are_those_of_the_shell(self):
        def table(path, name):
            return set(re.findall(r'"([^"]+)"', path.read_text().partition(f"{name}")[2].partition(";")[0]))

        shell = table(WEB.parent / "tools/mdxctl/shell_line.cpp", "kSecretCommands[] =")
        self.assertIn("+CPIN=", shell)
        self.assertEqual(table(WEB / "cautions.js", "const SECRETS ="), shell)


if __name__ == "__main__":
    unittest.main()

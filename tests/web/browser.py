# SPDX-License-Identifier: Apache-2.0
"""The page as it is used: a real Cockpit and a real browser in the box, with the server and a modem behind it."""

import os
import pathlib
import shutil
import sys
import time
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys  # noqa: F401, for tests
from selenium.webdriver.support.select import Select

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/e2e"))
from device import PATIENCE_S, DeviceTest, SystemLog, wait_until  # noqa: E402

WEB = ROOT / "web"
PORT = 9090
PAGE = f"http://127.0.0.1:{PORT}/cockpit/@localhost/mdxgate/index.html"
COCKPIT = "/usr/lib/cockpit/cockpit-ws"
WIDE, NARROW = (1440, 900), (360, 740)
DOWNLOADS = pathlib.Path("/tmp/downloads")


def answers():
    try:
        urllib.request.urlopen(PAGE).close()
    except OSError:
        return False
    return True


class PageTest(DeviceTest):
    """A test has a browser of its own, and each thing is waited for with much patience."""

    language = "en"
    size = WIDE
    dark = False
    bridge = "cockpit-bridge"

    def setUp(self):
        super().setUp()
        self.browser = None

    def tearDown(self):
        if self.browser is not None:
            self.browser.quit()
        super().tearDown()

    def start_cockpit(self):
        # A copy, since other users of the box may not be let into the project's folder.
        data = pathlib.Path("/tmp/data")
        shutil.copytree(WEB, data / "cockpit/mdxgate")
        os.environ["XDG_DATA_HOME"] = str(data)
        self.start(COCKPIT, "--address=127.0.0.1", f"--port={PORT}", f"--local-session={self.bridge}")
        wait_until(answers, PATIENCE_S, "Cockpit serves the page")

    def start_browser(self):
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                         "--user-data-dir=/tmp/chromium", f"--lang={self.language}"):
            options.add_argument(argument)
        options.add_experimental_option("prefs", {
            "intl.accept_languages": self.language,
            "download.default_directory": str(DOWNLOADS),
        })
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.browser.set_script_timeout(PATIENCE_S)
        self.set_size(self.size)
        self.set_dark(self.dark)

    def open_page(self, panel="now"):
        if self.browser is None:
            self.start_cockpit()
            self.start_browser()
        self.browser.get(f"{PAGE}#/{panel}")

    def show(self, panel):
        self.find(f"nav a[href='#/{panel}']").click()

    # What a person sees

    def set_size(self, size):
        # Headless Chromium's windows have no smaller width than 500, but what it shows of a page may.
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": False})

    def set_dark(self, dark):
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}]})

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def find_all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def text(self, selector):
        """As it is in the document, shown or not: it may be written anew at any time."""
        return self.browser.execute_script(
            "const found = document.querySelector(arguments[0]); return found ? found.textContent.trim() : ''", selector)

    def card(self, name):
        return self.text(f"[data-card={name}] .value")

    def wait_text(self, selector, part):
        wait_until(lambda: part in self.text(selector), PATIENCE_S, f"{part!r} in {selector}")

    def wait_card(self, name, part):
        self.wait_text(f"[data-card={name}] .value", part)

    def choose(self, selector, value):
        Select(self.find(selector)).select_by_value(value)

    def press(self, *keys):
        """Keys for whatever has the focus."""
        ActionChains(self.browser).send_keys(*keys).perform()

    @staticmethod
    def pause(seconds):
        time.sleep(seconds)

    @staticmethod
    def downloaded(pattern):
        """The texts of the files that the browser saved."""
        wait_until(lambda: list(DOWNLOADS.glob(pattern)), PATIENCE_S, pattern)
        return [path.read_text() for path in DOWNLOADS.glob(pattern)]

    def script(self, code, *arguments):
        return self.browser.execute_script(code, *arguments)

    def complaints(self):
        """What the browser complained of, such as a script that its policy forbids."""
        return [entry["message"] for entry in self.browser.get_log("browser")
                if entry["level"] in ("SEVERE", "WARNING")]

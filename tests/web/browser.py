"""One Chromium for many tests, and what they ask it."""

import atexit
import base64
import os
import shutil
import sys
import tempfile
from pathlib import Path

from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))

from patience import PATIENCE, wait_for  # noqa: E402  pylint: disable=wrong-import-position

ARTEFACTS = Path(os.environ.get("ZORD410_PAGE_ARTEFACTS", "page-artefacts"))


class Browser:
    def __init__(self):
        self.profile = tempfile.mkdtemp(prefix="zord410-chromium-")
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for argument in ("--headless=new", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run", "--disable-extensions",
                         "--disable-background-networking", "--disable-component-update", "--hide-scrollbars", "--no-proxy-server",
                         f"--user-data-dir={self.profile}"):
            options.add_argument(argument)
        if os.geteuid() == 0:
            options.add_argument("--no-sandbox")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.driver.set_script_timeout(PATIENCE)
        self.driver.set_page_load_timeout(PATIENCE)
        self.devtools("Emulation.setTimezoneOverride", timezoneId="Europe/Berlin")

    def quit(self):
        self.driver.quit()
        shutil.rmtree(self.profile, ignore_errors=True)

    def devtools(self, command, **parameters):
        return self.driver.execute_cdp_cmd(command, parameters)

    def look(self, width=1280, height=900, dark=False, reduced=False):
        self.devtools("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        self.devtools("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"},
            {"name": "prefers-reduced-motion", "value": "reduce" if reduced else "no-preference"}])

    def open(self, address):
        """A new document, even where only what stands behind the # differs."""
        self.driver.get("about:blank")
        self.console()
        self.driver.get(address)

    def js(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def wait(self, condition, what):
        """Until the condition, a function or an expression in JavaScript, holds; answers what it gave."""
        def found():
            try:
                return condition() if callable(condition) else self.js(f"return {condition}")
            except StaleElementReferenceException:
                return None  # It was drawn anew meanwhile.

        return wait_for(lambda: f"{what}; the page says: {self.text('main')[:300]}; console: {self.console()}", found)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def one(self, selector):
        self.wait(f"document.querySelector({selector!r}) !== null", f"an element {selector}")
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector):
        """What one sees of it, on one line."""
        return self.js(r"return (document.querySelector(arguments[0])?.innerText ?? '').replace(/[ \t\n]+/g, ' ').trim()", selector)

    def wait_text(self, selector, part):
        self.wait(lambda: part in self.text(selector), f"{part!r} in {selector}")

    def console(self):
        """Errors and reports of the content policy since it was asked last."""
        return [entry["message"] for entry in self.driver.get_log("browser")
                if entry["level"] == "SEVERE" or "Content Security Policy" in entry["message"]]

    def frames(self, number=2):
        self.driver.execute_async_script(
            "let left = arguments[0]; const done = arguments[1]; const next = () => (left-- ? requestAnimationFrame(next) : done()); next();", number)

    def screenshot(self, name, whole=False):
        ARTEFACTS.mkdir(parents=True, exist_ok=True)
        self.frames()
        data = self.devtools("Page.captureScreenshot", format="png", captureBeyondViewport=whole)["data"]
        path = ARTEFACTS / f"{name}.png"
        path.write_bytes(base64.b64decode(data))
        return path


_browser = None


def browser():
    """The one for all tests, ended with the process."""
    global _browser
    if _browser is None:
        _browser = Browser()
        atexit.register(_browser.quit)
    return _browser

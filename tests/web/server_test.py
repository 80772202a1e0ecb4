"""The page with the real server: a row's way from a provider to the plot. Takes the folder of the
programs from ZORD410_PROGRAMS."""

import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "support")]
sys.dont_write_bytecode = True

# pylint: disable=wrong-import-position
from browser import browser  # noqa: E402
from running_program import RunningServer  # noqa: E402

PROGRAMS = Path(os.environ["ZORD410_PROGRAMS"])
LARGEST = 9_223_372_036_854_775_807
REGISTRATION = "appl:FIELD,FLD; help:A field; group:air; attr:celsius,N,4,Temperature; attr:ticks,L,8; attr:sky,D,32,What one sees;\n"


class RealServer(unittest.TestCase):
    def setUp(self):
        self.browser = browser()
        self.browser.look()
        self.addCleanup(self.browser.driver.get, "about:blank")
        folder = tempfile.TemporaryDirectory(prefix="zord410-page-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.environment = {name: value for name, value in os.environ.items() if not name.startswith(("ZORA_", "ZOR0_"))}
        self.environment["ZOR0_PRODUCT_SPEC"] = str(self.folder / "settings")

    def start_server(self, *options):
        server = RunningServer(*options, env=self.environment, cwd=self.folder)
        self.addCleanup(server.end)
        self.environment["ZORA_DCH_PORT"] = str(server.port)
        self.page = server.page

    def start_provider(self, source, *options):
        registration = self.folder / "field.reg"
        registration.write_text(REGISTRATION, encoding="ascii")
        provider = subprocess.Popen([PROGRAMS / "zordp", "send", "--registration", registration, "--group", "air", "--source", source, *options],
                                    stdin=subprocess.PIPE, text=True, env=self.environment)
        self.addCleanup(provider.wait)
        self.addCleanup(provider.stdin.close)
        self.send(provider, "celsius,ticks,sky")
        return provider

    def send(self, provider, line):
        provider.stdin.write(line + "\n")
        provider.stdin.flush()

    def open_source(self):
        self.browser.open(self.page + "#application=FIELD&group=air&source=roof")

    def test_from_provider_to_plot(self):
        self.start_server("--store", str(self.folder / "state.db"))
        self.browser.open(self.page)
        self.browser.wait_text(".empty", "zordp send")
        provider = self.start_provider("roof", "--keep")
        self.send(provider, f"-7,{LARGEST},<b>snow</b>")
        self.browser.wait_text("[data-source=roof]", "<b>snow</b>")
        self.browser.wait_text("[data-source=roof]", "−7")
        self.browser.wait_text(".changes", "on line FIELD / air / roof")
        self.browser.one("[data-source=roof] a").click()
        self.browser.wait_text("[data-attribute=celsius] .readout", "least −7 · most −7")
        for degrees in range(20):
            self.send(provider, f"{degrees},{LARGEST - degrees},clear")
        self.browser.wait_text("[data-attribute=celsius] .latest", "19")
        self.browser.wait_text("[data-attribute=celsius] .readout", "least −7 · most 19")
        self.browser.wait("zord410.view.feed.timeline.times.length === 21", "every row in the plot's data")
        self.assertEqual(self.browser.js("return zord410.view.feed.timeline.values[0]"), [-7, *range(20)])
        self.assertEqual(self.browser.text("[data-attribute=ticks] .latest").replace("\u2009", ""), str(LARGEST - 19))
        self.open_source()  # now all from the store
        self.browser.wait("window.zord410?.view?.feed?.timeline.times.length === 21", "every row from the store")
        self.assertEqual(self.browser.js("return zord410.view.feed.timeline.values[1].map(String)"), [str(LARGEST - each) for each in (0, *range(20))])
        for name in ("15m", "all"):
            self.browser.js(f"location.hash = '#application=FIELD&group=air&source=roof&range={name}'")
            self.browser.wait(f"zord410.place.range === '{name}' && !zord410.view.feed.isLoading && zord410.view.feed.timeline.times.length === 21", f"the range {name}")
        provider.stdin.close()
        self.assertEqual(provider.wait(), 0)
        self.browser.wait_text(".source-view .summary", "off line")
        self.assertEqual(self.browser.console(), [])

    def test_a_provider_that_goes_leaves_its_rows(self):
        self.start_server("--store", str(self.folder / "state.db"))
        provider = self.start_provider("roof")
        for degrees in range(20):
            self.send(provider, f"{degrees},{LARGEST - degrees},clear")
        self.open_source()
        self.browser.wait_text("[data-attribute=celsius] .readout", "least 0 · most 19")
        provider.stdin.close()
        self.assertEqual(provider.wait(), 0)
        for _ in range(2):  # as it goes, and when it is gone
            self.browser.wait_text(".source-view", "It is not registered at this server now. These are its kept rows")
            self.browser.wait("window.zord410?.view?.feed?.timeline.times.length === 20", "every row from the store")
            self.browser.wait_text("[data-attribute=celsius] .readout", "least 0 · most 19")
            self.browser.wait_text(".texts", "clear")
            self.open_source()
        self.assertEqual(self.browser.console(), [])

    def test_without_a_store(self):
        self.start_server("--store", "memory")
        provider = self.start_provider("roof", "--keep")
        self.send(provider, "3,4,clear")
        self.open_source()
        self.browser.wait_text("#no-store", "zordchd --store FILE")
        self.browser.wait_text("[data-attribute=celsius] .latest", "3")
        self.browser.wait("zord410.stream?.isOpen", "the live stream")
        self.send(provider, "5,6,rain")
        self.browser.wait_text("[data-attribute=celsius] .latest", "5")
        self.browser.wait_text(".texts", "rain")
        self.assertEqual(self.browser.console(), [])


if __name__ == "__main__":
    unittest.main()

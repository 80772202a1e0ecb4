"""What the tests of the page have in common: a stand-in of their own and the one browser."""

import unittest

from browser import browser
from stand_in import StandIn


class PageCase(unittest.TestCase):
    console_may_hold = ()  # parts of messages that a test's own doing explains

    def setUp(self):
        self.browser = browser()
        self.browser.look()
        self.stand_in = self.serve()

    def serve(self, **options):
        stand_in = StandIn(**options)
        self.addCleanup(stand_in.place.close)
        self.addCleanup(stand_in.stop)
        # Before its server goes the page does, so that no other test hears of it.
        self.addCleanup(self.browser.driver.get, "about:blank")
        return stand_in

    def tearDown(self):
        told = [line for line in self.browser.console() if not any(part in line for part in self.console_may_hold)]
        self.assertEqual(told, [], "the console has errors")

    def open(self, place=""):
        self.browser.open(self.stand_in.address + place)

    def open_source(self, application="HOST", group="load", source="web1", rest=""):
        self.open(f"#application={application}&group={group}&source={source}{rest}")
        self.browser.wait("window.zord410?.view?.feed && !zord410.view.feed.isLoading && !zord410.view.feed.timeline.isEmpty", "rows of the source")
        self.browser.wait_text(".plot .readout", "least")

    def sources(self):
        """The names in the lists of sources, from the top."""
        return self.browser.js("return [...document.querySelectorAll('.sources tbody tr')].map((row) => row.dataset.source)")

    def times(self):
        """The times of all rows that the plot has as they came."""
        return self.browser.js("return zord410.view.feed.timeline.times")

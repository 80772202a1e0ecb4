"""That the page has every row once, whichever way it came first, and whole numbers to the last digit."""

import threading
import time

import samples
from page_case import PageCase
from stand_in import iso

TOPIC = ("HOST", "load")
LONG = 1 << 63


class RowsCase(PageCase):
    """The view's questions for rows wait while `answers` is clear; `asked` is when they came."""

    def serve(self, **options):
        stand_in = super().serve(**options)
        self.answers = threading.Event()
        self.answers.set()
        self.asked = []
        self.addCleanup(self.answers.set)  # before the stand-in is stopped
        answer = stand_in.rows_answer

        def rows_answer(asked):
            if "since" in asked:  # not to learn how often rows come
                self.asked.append(time.monotonic())
                self.answers.wait()
            return answer(asked)

        stand_in.rows_answer = rows_answer
        return stand_in

    def setUp(self):
        super().setUp()
        samples.machines(self.stand_in, 60, silent=False)

    def kept(self):
        return [row[0] for row in self.stand_in.groups[TOPIC] if row[2] == "web1"]

    def watch(self, rest=""):
        self.open_source(rest=rest)
        self.browser.wait(lambda: self.stand_in.clients, "the live stream")

    def keep(self, note):
        """A row of which the stream does not tell yet."""
        values = {"load1": 1, "load5": 2, "memory": 3, "note": note}
        return {"time": iso(self.stand_in.row("HOST", "load", "web1", values, live=False)), "handle": 1, "source": "web1", "values": values}

    def tell(self, row):
        self.stand_in.send("row", row, TOPIC)

    def notes(self):
        return self.browser.js("return [...document.querySelectorAll('.texts tbody td')].map((each) => each.innerText)")

    def has_each_once(self, *notes):
        """After another row, before which the stream told all."""
        last = self.keep("the last")
        self.tell(last)
        self.browser.wait_text(".texts", "the last")
        self.browser.wait(lambda: self.times() == self.kept(), "all rows")
        self.assertEqual(self.notes()[:len(notes) + 1], ["the last", *reversed(notes)])
        self.assertEqual([each for each in self.notes() if each in notes], list(reversed(notes)))

    def register_anew(self):
        attributes = [tuple(each.values()) for each in self.stand_in.applications["HOST"]["groups"]["load"]["attributes"]]
        with self.stand_in.lock:
            self.stand_in.register("HOST", {"load": [*attributes[:-1], ("load15", "G", 4, ""), attributes[-1]]})
            for source in ("web1", "web2", "db1", "old1"):
                self.stand_in.online("HOST", "load", source, tell=False)
        self.stand_in.tell_status("registered", "HOST", "", "")


class Rows(RowsCase):
    def test_a_registration_with_another_number_while_its_rows_are_not_there_yet(self):
        self.watch()
        self.answers.clear()
        before = len(self.asked)
        self.register_anew()
        self.browser.wait("document.querySelectorAll('.plot').length === 4", "another plot")
        self.browser.wait(lambda: len(self.asked) > before, "the question for rows")
        self.tell(self.keep("meanwhile"))
        self.browser.wait_text("[data-attribute=load15] .readout", "Fetching")
        self.answers.set()
        self.browser.wait_text("[data-attribute=load1] .readout", "least")
        self.has_each_once("meanwhile")

    def test_a_row_that_the_store_tells_before_the_stream_does_after_a_registration(self):
        self.watch()
        row = self.keep("the first")
        self.register_anew()
        self.browser.wait_text(".texts", "the first")
        self.tell(row)
        self.has_each_once("the first")

    def test_rows_that_the_store_tells_before_the_stream_does_when_something_was_lost(self):
        self.watch()
        first, second = self.keep("the first"), self.keep("the second")
        self.stand_in.send("lost", {"rows": 1}, TOPIC)
        self.browser.wait_text(".texts", "the second")
        self.tell(second)
        third = self.keep("the third")
        self.tell(third)
        self.assertNotEqual(first["time"], second["time"])
        self.has_each_once("the first", "the second", "the third")

    def test_a_row_that_the_stream_tells_while_the_store_is_asked(self):
        """Once it is in the answer, and once it comes too late for that."""
        self.watch()
        before = len(self.asked)
        self.answers.clear()
        early = self.keep("in the answer")
        self.stand_in.send("lost", {"rows": 1}, TOPIC)
        self.browser.wait(lambda: len(self.asked) > before, "the question for rows")
        self.tell(early)
        self.answers.set()
        self.browser.wait_text(".texts", "in the answer")
        late = self.keep("after it")
        self.tell(late)
        self.has_each_once("in the answer", "after it")

    def test_lasting_loss(self):
        """Rows are fetched while it lasts, and not without a pause."""
        self.watch()
        before = len(self.asked)
        stop = threading.Event()

        def lose():
            while not stop.wait(0.02):  # faster than the page's own pause before it asks
                self.keep("lost")
                self.stand_in.send("lost", {"rows": 1}, TOPIC)

        losing = threading.Thread(target=lose)
        losing.start()
        try:
            self.browser.wait(lambda: len(self.asked) >= before + 3, "rows while some are lost")
        finally:
            stop.set()
            losing.join()
        asked = self.asked[before - 1:]
        for first, second in zip(asked, asked[1:]):
            self.assertGreater(second - first, 1.9)
        self.browser.wait(lambda: self.times() == self.kept(), "all rows")


class Restarted(RowsCase):
    console_may_hold = ("ERR_", "Failed to load resource")

    def test_a_row_that_the_store_tells_before_the_stream_does_after_a_restart(self):
        self.watch()
        self.stand_in.stop()
        self.browser.wait_text("#lost", "cannot be reached")
        row = self.keep("the first")
        self.stand_in.start()
        self.browser.wait(lambda: self.stand_in.clients, "the live stream again")
        self.browser.wait_text(".texts", "the first")
        self.tell(row)
        self.has_each_once("the first")


class Whole(PageCase):
    def serve_numbers(self, rows, step):
        self.stand_in.register("BIG", {"g": [("number", "L", 8, "")]})
        self.stand_in.online("BIG", "g", "one", tell=False)
        now = int(time.time() * 1e6)
        for i in range(rows, 0, -1):
            self.stand_in.row("BIG", "g", "one", {"number": LONG - 1 - i % 3}, at=now - i * step, live=False)

    def readout(self):
        return self.browser.text(".readout").replace("\u2009", "")

    def test_least_and_most_are_exact(self):
        self.serve_numbers(3, 1000)
        self.open_source("BIG", "g", "one")
        self.assertEqual(self.readout(), "least 9223372036854775805 · most 9223372036854775807")

    def test_least_and_most_of_thinned_rows_are_exact_and_means_are_not(self):
        self.serve_numbers(20_000, 100_000)
        self.open_source("BIG", "g", "one")
        self.assertTrue(any("points=" in path for path in self.stand_in.asked))
        self.assertEqual(self.readout(), "least 9223372036854775805 · most 9223372036854775807")
        self.browser.js("document.querySelector('.surface').focus()")
        self.browser.one(".surface").send_keys(*["\ue012"] * 3)  # the arrow to the left
        self.browser.wait(lambda: self.readout().endswith("9223372036854775805 to 9223372036854775807, mean ≈ 9.223e18 (" + self.readout().rsplit("(", 1)[-1]), "a mean")

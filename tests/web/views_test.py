"""What the page shows, and where the address bar leads."""

from selenium.webdriver.common.keys import Keys

import samples
from page_case import PageCase
from stand_in import now_us


class Overview(PageCase):
    def setUp(self):
        super().setUp()
        samples.machines(self.stand_in, 60, ahead=60)
        samples.weather(self.stand_in)

    def rows(self, selector=".sources tbody tr"):
        return self.browser.js("return [...document.querySelectorAll(arguments[0])].map((row) => row.innerText)", selector)

    def test_sources_have_their_newest_values_and_ages(self):
        self.open()
        self.browser.wait_text("[data-source=roof]", "−3")
        self.assertIn("clear", self.browser.text("[data-source=roof]"))
        self.assertRegex(self.browser.text("[data-source=roof] .age"), r"now|\d+ s ago")
        self.assertIn("2 h", self.browser.text("[data-source=old1] .age"))

    def test_what_fell_silent_comes_first_and_what_is_off_line_last(self):
        self.open()
        self.browser.wait_text("h1", "1 of 5 sources on line is silent")
        self.assertIn("HOST / load / db1 is silent", self.browser.text(".troubles"))
        self.assertIn("for 8 min", self.browser.text(".troubles"))
        names = ("db1", "web1", "web2", "old1")
        for name in names:
            self.browser.wait_text("[data-group] tbody", name)
        states = self.browser.text("[data-group] tbody")
        order = [states.index(name) for name in names]
        self.assertEqual(order, sorted(order))
        self.assertIn("off line", self.browser.text("[data-source=old1]"))

    def test_a_slow_source_is_not_silent(self):
        """Its kept rows say that it is slow."""
        self.stand_in.register("SLOW", {"g": [("n", "N", 4, "")]})
        self.stand_in.online("SLOW", "g", "hourly", tell=False)
        for hours in range(6, 0, -1):
            self.stand_in.row("SLOW", "g", "hourly", {"n": 1}, at=now_us() - hours * 3600 * samples.SECOND + 600 * samples.SECOND)
        self.open()
        self.browser.wait("document.querySelector('[data-source=hourly]')?.classList.contains('online')", "the slow source on line")

    def test_changes_of_status_are_told_as_they_come(self):
        self.open()
        self.browser.wait(lambda: self.stand_in.clients, "the live stream")
        self.stand_in.online("WEATHER", "air", "roof", online=False)
        self.browser.wait_text(".changes", "off line")
        self.assertIn("WEATHER / air / roof", self.browser.text(".changes"))
        self.browser.wait_text("[data-source=roof]", "off line")

    def test_what_was_lost_or_refused_is_in_sight(self):
        self.open()
        self.browser.wait_text("h1", "silent")
        self.assertNotIn("could not be kept", self.browser.text("main"))
        self.stand_in.state["counters"]["changes_not_kept"] = 12
        self.stand_in.state["requests"].append({"request": "data", "code": 4128, "status": 104, "text": "unknown source", "count": 3})
        self.browser.wait_text(".troubles", "12 changes could not be kept")
        self.browser.wait_text(".troubles", "3 rows were refused: unknown source (status 104)")
        self.browser.wait_text(".trouble.lost .when", "rose")
        self.browser.one("[data-source=web1] a").click()
        self.browser.wait_text(".trouble-line", "1 source silent, 1 kind of loss, 1 kind of refusal")

    def test_what_is_wrong_stands_in_order_and_reads_well_of_one(self):
        self.stand_in.state["counters"].update(pushes_lost=1, broken_messages=1)
        self.stand_in.state["requests"].append({"request": "data", "code": 4128, "status": 104, "text": "unknown source", "count": 1})
        for name in "abcdef":
            self.stand_in.online("WEATHER", "air", name, tell=False)
            self.stand_in.row("WEATHER", "air", name, {"celsius": 1}, at=now_us() - 900 * samples.SECOND, live=False)
        self.open()
        self.browser.wait_text(".troubles", "WEATHER / air / a is silent")
        words = self.browser.js("return [...document.querySelectorAll('.trouble')].map((each) => [...each.children].slice(0, 2).map((part) => part.innerText).join(' ').trim())")
        self.assertEqual(words, ["HOST / load / db1 is silent", *[f"WEATHER / air / {name} is silent" for name in "abcd"], "2 more are silent",
                                 "1 row or status event did not reach a subscriber", "1 message on connections was broken",
                                 "1 row was refused: unknown source (status 104)"])
        self.stand_in.online("WEATHER", "air", "f", online=False, tell=False)
        self.browser.wait_text(".troubles", "1 more is silent")

    def test_a_group_that_fell_silent_is_one_line(self):
        self.stand_in.groups["WEATHER", "air"].clear()
        self.stand_in.online("WEATHER", "air", "yard", tell=False)
        for name in ("roof", "garden", "yard"):
            self.stand_in.row("WEATHER", "air", name, {"celsius": 1}, at=now_us() - 900 * samples.SECOND, live=False)
        self.open()
        self.browser.wait_text(".troubles", "WEATHER / air: all 3 sources are silent")
        self.stand_in.online("WEATHER", "air", "yard", online=False, tell=False)
        self.browser.wait_text(".troubles", "WEATHER / air: both sources are silent")
        self.assertNotIn("roof", self.browser.text(".troubles"))
        self.browser.one(".troubles a[href*='WEATHER']").click()
        self.browser.wait_text("h1", "WEATHER / air")
        self.browser.wait_text(".trouble-line", "3 sources silent")

    def test_what_comes_of_the_store_stands_under_it(self):
        self.console_may_hold = ("/healthz",)
        self.stand_in.health = "the state file cannot be written"
        self.stand_in.state["counters"].update(changes_not_kept=4, write_failures=6, web_failures=51, pushes_lost=2)
        self.stand_in.state["requests"].append({"request": "data", "code": 4128, "status": 105, "text": "not stored", "count": 2})
        self.open()
        self.browser.wait_text(".troubles", "The server is not well: the state file cannot be written")
        first = self.browser.text(".trouble")
        for part in ("4 changes could not be kept", "6 writes of the state file failed", "51 requests of pages failed", "2 rows were refused: not stored"):
            self.assertIn(part, first)
        self.assertEqual(len(self.browser.all(".trouble")), 3)  # and db1, and what a subscriber lost
        self.stand_in.health = ""
        self.browser.wait_text(".troubles", "The state file could not be written for a time")
        self.assertEqual(len(self.browser.all(".trouble")), 3)

    def test_without_a_source_on_line_nothing_is_green(self):
        for source in ("web1", "web2", "db1"):
            self.stand_in.online("HOST", "load", source, online=False, tell=False)
        for source in ("roof", "garden"):
            self.stand_in.online("WEATHER", "air", source, online=False, tell=False)
        self.open()
        self.browser.wait_text("h1", "no source is on line")
        self.assertEqual(self.browser.js("return document.querySelector('h1').className"), "idle")

    def test_state_of_server_and_store(self):
        self.open()
        self.browser.wait_text("aside", "/var/lib/zord410/zordchd.db")
        self.assertIn("4.1.0", self.browser.text("aside"))
        self.assertIn("up 3 d 3 h", self.browser.text(".summary"))
        self.browser.one("aside summary").click()
        self.browser.wait_text(".counters", "rows that were kept and acknowledged rows_kept")
        self.browser.wait_text(".counters", "time spent in writing the state file write_microseconds 0.4602 s")

    def other_sites(self):
        """The cells of each line; nothing when it is not there."""
        return self.browser.js("""return [...document.querySelectorAll('aside details')].filter((each) => each.checkVisibility() && each.innerText.startsWith('Other sites'))
            .map((each) => [...each.querySelectorAll('tbody tr')].map((row) => [...row.children].map((cell) => cell.textContent.trim())))""")

    def test_without_a_link_there_are_no_other_sites(self):
        self.open()
        self.browser.wait_text("aside", "All counters")
        self.assertEqual(self.other_sites(), [])

    def test_other_sites_and_how_they_are(self):
        samples.sites(self.stand_in)
        self.open()
        self.browser.wait_text("aside", "Other sites")
        (north, east, lab), = self.other_sites()
        self.assertRegex("; ".join(north), r"^silent for \d+ min north; 12 behind$")
        self.assertRegex("; ".join(east), r"^here for 2 h 1\d min east; 123\u2009456 behind$")
        self.assertRegex("; ".join(lab), r"^stopping for \d+ (s|min) lab; $")

    def test_a_site_that_is_back_and_those_that_are_left_out(self):
        samples.sites(self.stand_in)
        self.open()
        self.browser.wait_text("aside", "Other sites")
        self.stand_in.state["sites"][0].update(state="here", changes_behind=0)
        self.stand_in.state["sites"][1].update(site=samples.HOSTILE)
        self.stand_in.state["sites_left_out"] = 800
        self.browser.wait(lambda: len(self.other_sites()[0]) == 4, "the line of those that are left out")
        north, east, _, more = self.other_sites()[0]
        self.assertRegex("; ".join(north), r"^here for \d+ min north; 0 behind$")
        self.assertTrue(east[0].endswith(f" min {samples.HOSTILE}"), east)
        self.assertEqual(more, ["and 800 more", ""])

    def test_columns_stand_together_and_the_bar_ends_with_the_window(self):
        self.stand_in.register("PAIR", {"g": [("a", "N", 4, ""), ("b", "N", 4, "")]})
        self.stand_in.online("PAIR", "g", "one", tell=False)
        self.stand_in.row("PAIR", "g", "one", {"a": 1, "b": 2}, live=False)
        self.open()
        self.browser.wait_text("[data-source=one]", "1")
        left, right = self.browser.js("return [...document.querySelectorAll('[data-source=one] td.number')].map((each) => each.getBoundingClientRect().right)")
        self.assertLess(right - left, 160)
        self.assertEqual(self.browser.js("return document.querySelector('header').getBoundingClientRect().right - innerWidth"), 0)

    def test_search_by_name(self):
        self.open()
        self.browser.wait_text("[data-source=web1]", "web1")
        self.browser.one("body").send_keys("/")
        find = self.browser.driver.switch_to.active_element
        self.assertEqual(find.get_attribute("id"), "find")
        find.send_keys("WEB load")
        self.browser.wait(lambda: len(self.rows()) == 2, "two sources")
        self.assertIn("find=WEB+load", self.browser.driver.current_url)
        find.send_keys(Keys.ENTER)
        self.assertEqual(self.browser.driver.switch_to.active_element.text, "web1")
        find.send_keys("xyz")
        self.browser.wait_text("main", "Nothing is called “WEB loadxyz”")
        find.send_keys(Keys.ESCAPE)
        self.browser.wait(lambda: len(self.rows()) == 6, "all sources")

    def test_a_link_for_every_view_and_a_way_back(self):
        self.open()
        self.browser.one("[data-source=web2] a").click()
        self.browser.wait_text("h1", "web2")
        self.browser.one("#crumbs a[href*='group=load']").click()
        self.browser.wait_text("h1", "HOST / load")
        self.browser.one("#crumbs a[href='#application=HOST']").click()
        self.browser.wait("document.querySelector('h1').innerText === 'HOST'", "the application")
        self.assertIn("Machines and their load", self.browser.text(".summary"))
        self.browser.driver.back()
        self.browser.driver.back()
        self.browser.wait_text("h1", "web2")
        self.browser.driver.refresh()
        self.browser.wait_text("h1", "web2")
        self.browser.driver.back()
        self.browser.wait_text("h1", "silent")

    def test_only_silent_ones(self):
        self.open()
        self.browser.wait_text(".chips", "Silent 1")
        self.browser.one(".chips a[href='#show=silent']").click()
        self.browser.wait(lambda: len(self.rows()) == 1, "the silent one")

    def test_times_are_in_the_readers_zone_with_utc_at_hand(self):
        at = self.stand_in.row("HOST", "load", "web1", samples.load_row(1))
        self.open()
        self.browser.wait("document.querySelector('aside time')?.dateTime", "times")
        self.browser.wait("document.querySelector('[data-source=web1] time')?.title.endsWith(' UTC')", "the time in UTC")
        self.assertTrue(at)
        started = self.browser.text("aside time")
        utc = self.browser.one("#utc")
        self.assertEqual(utc.text, "UTC+01:00")
        utc.click()
        self.assertEqual(utc.text, "UTC")
        self.browser.wait(lambda: self.browser.text("aside time") != started, "another time")
        self.assertEqual(self.browser.text("aside time")[-8:], self.stand_in.state["started"][11:19])
        self.browser.driver.refresh()
        self.browser.wait("document.querySelector('#utc').innerText === 'UTC'", "UTC again")
        self.browser.one("#utc").click()


class Strange(PageCase):
    def test_names_and_values_are_never_markup(self):
        samples.hostile(self.stand_in)
        self.open()
        self.browser.wait(lambda: samples.HOSTILE in self.browser.text("main"), "the names")
        self.assertEqual(self.browser.text(".sources tbody td.number"), "–")  # "constructor" was not sent
        self.browser.wait_text(".sources", "0x00ff")
        self.browser.one(".sources tbody a").click()
        self.browser.wait("document.querySelector('h1').textContent.includes('onerror') && document.querySelectorAll('.plot').length === 2", "the source")
        self.browser.wait_text("[data-attribute=__proto__] .latest", "5")
        self.stand_in.row(samples.HOSTILE, samples.HOSTILE, samples.HOSTILE, {samples.HOSTILE: samples.HOSTILE, "constructor": 7})
        self.browser.wait_text("[data-attribute=constructor] .latest", "7")
        self.assertEqual(self.browser.all("img, main script"), [])

    def test_ten_thousand_sources(self):
        for application in range(10):
            name = f"FARM{application}"
            self.stand_in.register(name, {"g": [(f"n{i}", "N", 4, "") for i in range(8)]})
            for source in range(1000):
                self.stand_in.online(name, "g", f"s{source}", tell=False)
                self.stand_in.row(name, "g", f"s{source}", {f"n{i}": i * source for i in range(8)},
                                  at=now_us() - (900 * samples.SECOND if (application, source) == (7, 777) else 0), live=False)
        self.open()
        self.browser.wait_text("h1", "1 of 10 000 sources on line is silent".replace(" 000", "\u2009000"))
        self.assertLess(len(self.browser.all(".sources tbody tr")), 200)
        self.assertIn("s777", self.browser.text(".sources tbody tr"))
        self.assertIn("FARM7", self.browser.text(".groups h3"))
        self.browser.one("#find").send_keys("farm3 s999")
        self.browser.wait(lambda: self.sources() == ["s999"], "one of them")
        self.browser.one("#find").send_keys(Keys.ESCAPE)
        self.open("#application=FARM1&group=g")
        self.browser.wait(lambda: len(self.browser.all(".sources tbody tr")) == 100, "a hundred of them")
        self.browser.one(".group .more").click()
        self.browser.wait(lambda: len(self.browser.all(".sources tbody tr")) == 200, "a hundred more")


class Empty(PageCase):
    def test_no_application(self):
        self.open()
        self.browser.wait_text("h1", "The server is up")
        self.browser.wait_text(".empty", "zordp send --registration demo.reg")
        self.assertIn("A provider that ends takes its application off the list; --keep keeps it there.", self.browser.text(".empty"))
        copy = self.browser.one(".command button")
        self.assertIn("Copy the command", copy.get_attribute("aria-label"))
        copy.click()
        self.browser.wait("/Copied|Selected/.test(document.querySelector('.command button').innerText)", "the command copied")

    def test_rows_that_nobody_keeps(self):
        self.stand_in.state["state"] = "memory"
        samples.machines(self.stand_in, 5)
        self.open("#application=HOST&group=load&source=web1")
        self.browser.wait_text("#no-store", f"zordchd --store FILE --web 127.0.0.1:{self.stand_in.port}")
        self.browser.wait(lambda: self.stand_in.clients, "the live stream")
        self.browser.wait_text(".plot .latest", str(samples.load_row(1)["load1"]))
        sent = [self.stand_in.row("HOST", "load", "web1", samples.load_row(second)) for second in range(3)]
        self.browser.wait(lambda: self.times() == sent, "the live rows")
        self.assertFalse([path for path in self.stand_in.asked if "/api/rows" in path])
        self.assertEqual(self.browser.text(".bar [aria-current]"), "15 min")
        self.browser.one(".bar a[aria-label='last hour']").click()
        self.browser.wait_text(".bar [aria-current]", "1 h")

    def test_no_number_no_source_no_such_name(self):
        self.stand_in.register("TEXT", {"g": [("word", "D", 20, "")], "empty": [("n", "N", 4, "")]})
        self.stand_in.online("TEXT", "g", "one", tell=False)
        self.stand_in.row("TEXT", "g", "one", {"word": "said"})
        self.open("#application=TEXT&group=g&source=one")
        self.browser.wait_text(".empty", "zordc attrs TEXT")
        self.browser.wait_text(".texts", "said")
        self.open("#application=TEXT&group=empty")
        self.browser.wait_text(".empty", "zordp send --registration FILE.reg --group empty")
        self.console_may_hold = ("404",)
        self.open("#application=NONE")
        self.browser.wait_text(".empty", "There is no NONE")
        self.open("#application=TEXT&group=g&source=two")
        self.browser.wait_text(".empty", "There is no TEXT / g / two")

    def test_a_sick_server(self):
        self.console_may_hold = ("/healthz",)
        self.stand_in.health = "the state file is not written: no space left"
        self.open()
        self.browser.wait_text("h1", "The server is not well")
        self.browser.wait_text(".troubles", "no space left")


class Token(PageCase):
    console_may_hold = ("401",)

    def test_the_page_asks_for_the_token(self):
        self.stand_in.token = "s3cr%20t"
        samples.machines(self.stand_in, 5)
        self.open()
        self.browser.wait("document.title === 'zordchd: token'", "the question for the token")
        self.assertEqual(self.browser.text("#wrong"), "")
        self.browser.one("#token").send_keys("wrong", Keys.ENTER)
        self.browser.wait_text("#wrong", "That token was not accepted")
        self.browser.one("#token").send_keys("s3cr t", Keys.ENTER)
        self.browser.wait_text("h1", "silent")
        self.browser.js("document.cookie = 'zord410_token=; path=/; max-age=0'")
        self.browser.wait("document.title === 'zordchd: token'", "the question again")
        files = {path.split("?")[0] for path in self.stand_in.asked[:3]}
        self.assertEqual(files, {"/", "/login.css", "/login.js"})

"""One source: its plots and texts, the parts of time they show, and what is left of it when it goes."""

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys

import samples
from page_case import PageCase
from stand_in import now_us


class Source(PageCase):
    def setUp(self):
        super().setUp()
        samples.machines(self.stand_in)

    def test_a_plot_for_each_number_and_a_table_for_texts(self):
        self.open_source()
        names = self.browser.js("return [...document.querySelectorAll('.plot h3')].map((each) => each.innerText)")
        self.assertEqual(names, ["load1", "load5", "memory"])
        numbers = [row[3]["load1"] for row in self.stand_in.groups["HOST", "load"] if row[2] == "web1"]
        self.browser.wait_text(".plot .readout", f"least {min(numbers)} · most {max(numbers)}")
        self.browser.wait_text(".texts", "all quiet")
        self.assertEqual(self.browser.text(".texts thead"), "Time note")
        self.assertRegex(self.browser.text(".source-view .title"), r"^web1 HOST / load on line · last row ")
        self.assertIn("+ and − zoom", self.browser.text("main"))

    def test_whole_numbers_are_exact_on_screen(self):
        self.open_source(source="web2")
        self.browser.wait(lambda: self.browser.text("[data-attribute=memory] .latest").replace("\u2009", "") == str(samples.LARGE), "the exact number")

    def test_gaps_where_no_rows_came(self):
        self.open_source()
        gaps = "return document.querySelectorAll('.plot').length && (await import('/thin.js')).pointsToDraw(zord410.view.feed.timeline, 0, Date.now() * 1000 - 3600e6, Date.now() * 1000, 400).filter((point) => point === null).length"
        self.assertEqual(self.browser.driver.execute_async_script(f"const done = arguments[0]; (async () => {{ {gaps} }})().then(done)"), 1)

    def test_ranges_from_minutes_to_all(self):
        self.open_source()
        for name in ("15m", "6h", "24h", "7d", "30d", "all", "1h"):
            self.browser.one(f".bar a[href*='range={name}']" if name != "1h" else ".bar a[aria-label='last hour']").click()
            self.browser.wait(f"zord410.place.range === {name!r} && !zord410.view.feed.isLoading", f"the range {name}")
            self.browser.wait("document.querySelector('.bar [aria-current]') !== null", "the range in sight")
        self.assertIn("since=", [path for path in self.stand_in.asked if "/api/rows" in path][-1])

    def test_long_ranges_are_thinned_and_zooming_in_fetches_rows(self):
        now = now_us()
        for second in range(30_000, 3600, -2):
            self.stand_in.groups["HOST", "load"].insert(0, (now - (33_600 - second) * samples.SECOND - 3_600 * samples.SECOND, 1, "web1", samples.load_row(second)))
        self.stand_in.groups["HOST", "load"].sort(key=lambda row: row[0])
        self.open_source(rest="&range=24h")
        self.assertTrue(any("points=" in path for path in self.stand_in.asked))
        oldest, first_raw = self.browser.js("const t = zord410.view.feed.timeline; return [t.firstTime, t.times[0]]")
        self.assertLess(oldest, first_raw)
        before = len(self.stand_in.asked)
        self.browser.js(f"location.hash += '&from={oldest + 60_000_000}&until={oldest + 360_000_000}'")
        self.browser.wait(lambda: any("until=" in path and "limit=" in path for path in self.stand_in.asked[before:]), "rows of the window")
        self.browser.wait_text(".tools", "Back to live")
        self.browser.one("[data-tool=live]").click()
        self.browser.wait("zord410.place.from === null", "the live range")

    def test_keys_move_and_zoom_in_a_plot(self):
        self.open_source()
        plot = self.browser.one(".surface")
        plot.send_keys(Keys.END)
        last = self.browser.wait("document.querySelector('.surface').ariaValueText.match(/^\\d\\d:\\d\\d:\\d\\d: /) && document.querySelector('.surface').ariaValueText", "the last value")
        plot.send_keys(Keys.HOME)
        self.browser.wait(lambda: plot.get_attribute("aria-valuetext") != last, "the first value")
        plot.send_keys(Keys.ARROW_RIGHT)
        self.browser.wait(lambda: plot.get_attribute("aria-valuenow") == "1", "the next value")
        plot.send_keys("+")
        self.browser.wait("zord410.place.from !== null", "a part of the range")
        plot.send_keys(Keys.ESCAPE)
        self.browser.wait("zord410.place.from === null", "the range")

    def test_dragging_zooms_and_the_way_back_undoes_it(self):
        self.open_source()
        plot = self.browser.one(".surface")
        ActionChains(self.browser.driver, duration=0).move_to_element_with_offset(plot, -60, 0).click_and_hold().move_by_offset(90, 0).release().perform()
        self.browser.wait("zord410.place.until - zord410.place.from > 1e6", "the part dragged over")
        self.browser.driver.back()
        self.browser.wait("zord410.place.from === null", "the range")

    def test_pointing_tells_the_value(self):
        self.open_source()
        ActionChains(self.browser.driver, duration=0).move_to_element(self.browser.one(".surface")).perform()
        self.browser.wait("/\\d\\d:\\d\\d:\\d\\d/.test(document.querySelector('.readout').innerText)", "time and value")

    def texts(self):
        return self.browser.js("return [...document.querySelectorAll('.texts tbody time')].map((each) => Date.parse(each.dateTime.slice(0, 23) + 'Z') * 1000)")

    def test_texts_keep_to_the_part_that_is_shown(self):
        self.open_source()
        self.browser.wait(lambda: len(self.texts()) == 50, "texts")
        self.assertGreater(self.texts()[-1], now_us() - 300 * samples.SECOND)
        self.browser.one("[data-tool=in]").click()
        self.browser.wait("zord410.place.from !== null", "a part of the range")
        from_, until = self.browser.js("return [zord410.place.from, zord410.place.until]")
        inside = lambda: (lambda texts: len(texts) == 50 and all(from_ - 1000 <= each <= until for each in texts))(self.texts())
        self.browser.wait(inside, "the texts of that part")
        zoomed = self.texts()
        self.browser.driver.refresh()
        self.browser.wait(lambda: self.texts() == zoomed, "the same texts at the same address")

    def test_nothing_is_later_than_now(self):
        self.open_source()
        later = self.browser.one("[data-tool=later]")
        self.browser.wait(lambda: later.get_attribute("aria-disabled") == "true", "no later part")
        later.click()
        self.browser.one(".surface").send_keys(Keys.PAGE_DOWN)
        self.browser.frames()
        self.assertEqual(self.browser.js("return zord410.place.from"), None)
        self.browser.one("[data-tool=earlier]").click()
        self.browser.wait(lambda: later.get_attribute("aria-disabled") == "false", "a later part")
        later.click()
        self.browser.wait(lambda: later.get_attribute("aria-disabled") == "true", "no later part")
        self.assertLessEqual(self.browser.js("return zord410.place.until"), now_us())

    def test_rows_that_cannot_be_fetched_are_not_called_none(self):
        self.console_may_hold = ("503",)
        self.stand_in.failure = "the state file cannot be read now"
        self.open("#application=HOST&group=load&source=web1")
        self.browser.wait_text(".source-view .bad", "The kept rows could not be fetched: the state file cannot be read now")
        self.browser.wait_text(".plot .readout", "Not fetched.")
        self.browser.wait_text(".text-section", "Not fetched.")
        self.stand_in.failure = ""
        self.browser.wait_text(".plot .readout", "least")
        self.assertEqual(self.browser.all(".source-view .bad"), [])

    def test_rows_as_csv(self):
        self.open_source()
        address = self.browser.wait("document.querySelector('a[download]')?.href", "the address")
        answer = self.browser.driver.execute_async_script("const done = arguments[1]; fetch(arguments[0]).then((answer) => answer.text()).then(done)", address)
        self.assertTrue(answer.startswith("time,time_us,source,handle,code,load1,load5,memory,note\n"), answer[:80])


class Unregistered(PageCase):
    console_may_hold = ("404",)

    def setUp(self):
        super().setUp()
        samples.machines(self.stand_in)

    def asked(self, part):
        return [path for path in self.stand_in.asked if part in path]

    def test_a_source_that_goes_keeps_its_plots_and_texts(self):
        self.open_source()
        self.browser.wait(lambda: self.stand_in.clients, "the live stream")
        kept = self.times()
        self.stand_in.unregister("HOST")
        self.browser.wait_text(".source-view", "It is not registered at this server now. These are its kept rows")
        self.browser.wait(lambda: len(self.times()) > 3000 and self.times()[-1] == kept[-1], "its rows")
        self.browser.wait_text("[data-attribute=load1] .readout", "least")
        self.browser.wait_text(".texts tbody", "all quiet")
        self.browser.wait(lambda: [client.topic for client in self.stand_in.clients] == [None], "a stream for changes of status alone")
        self.assertLessEqual(len(self.asked("/api/live?application")), 2)
        samples.machines(self.stand_in, 5)
        self.stand_in.tell_status("registered", "HOST", "", "")
        self.browser.wait_text(".source-view .summary", "on line")
        self.browser.wait(lambda: [client.topic for client in self.stand_in.clients] == [("HOST", "load")], "the group's stream")
        at = self.stand_in.row("HOST", "load", "web1", {"load1": 4711})
        self.browser.wait(lambda: self.times()[-1] == at, "a live row")

    def test_the_address_of_what_went_long_ago(self):
        self.stand_in.groups["HOST", "load"] = [(at - 86400 * samples.SECOND, *rest) for at, *rest in self.stand_in.groups["HOST", "load"]]
        self.stand_in.unregister("HOST")
        self.open_source()
        self.assertIn("not registered · last row 1 d", self.browser.text(".source-view .summary"))
        self.browser.wait_text(".texts tbody", "all quiet")
        self.assertLess(self.times()[-1], now_us() - 86000 * samples.SECOND)
        self.browser.one(".bar a[aria-label='last 15 minutes']").click()
        self.browser.wait("zord410.place.range === '15m' && zord410.view.feed.timeline.times.length > 800", "the last 15 minutes of it")
        self.browser.one("[data-tool=in]").click()
        self.browser.wait("zord410.place.from !== null", "a part of it")
        self.browser.one("#crumbs a[href*='group=load']").click()
        self.browser.wait_text("[data-source=web1]", "web1not registered")
        self.browser.wait_text(".summary", "Not registered at this server now")
        self.assertEqual(self.sources(), ["db1", "old1", "web1", "web2"])
        self.browser.one("#crumbs a[href='#application=HOST']").click()
        self.browser.wait_text(".empty", "There is no HOST")
        self.assertEqual(self.asked("/api/live?application"), [])

    def test_what_never_was_has_nothing_to_choose(self):
        for place, name in (("#application=HOST&group=load&source=web9", "HOST / load / web9"), ("#application=NONE&group=g&source=a", "NONE / g / a"), ("#application=NONE&group=g", "NONE / g")):
            asked = lambda: len([path for path in self.asked("/api/rows") if path.endswith("limit=1000")])
            before = asked()
            self.open(place)
            self.browser.wait_text(".empty", f"There is no {name}")
            self.assertFalse(self.browser.js("return document.querySelector('.bar')?.checkVisibility()"))
            self.assertEqual(asked() - before, 1)
        self.assertEqual(self.asked("/api/live?application=NONE"), [])

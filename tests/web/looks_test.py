"""How the page looks at three widths, light and dark, and whether everybody can use it: pictures,
and rules of our own about names, contrast, headings, and where the focus goes."""

from pathlib import Path

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys

import samples
from page_case import PageCase

RULES = (Path(__file__).resolve().parent / "rules.js").read_text(encoding="utf-8")
RULE_NAMES = ("unnamedControls", "paleTexts", "headingsOutOfOrder", "picturesWithoutText", "tablesWithoutHeaders", "landmarksMissing", "doubleIds")
WIDTHS = ((360, 740), (768, 1024), (1440, 900))


class Looks(PageCase):
    def setUp(self):
        super().setUp()
        samples.machines(self.stand_in)
        samples.weather(self.stand_in)
        self.stand_in.state["counters"]["pushes_lost"] = 12
        self.stand_in.state["requests"].append({"request": "data", "code": 4128, "status": 104, "text": "no such source", "count": 3})

    def check(self, name):
        """The rules of rules.js."""
        self.browser.js(RULES)
        for rule in RULE_NAMES:
            self.assertEqual(self.browser.js(f"return pageRules.{rule}()"), [], f"{name}: {rule}")
        self.assertLessEqual(self.browser.js("return document.documentElement.scrollWidth - innerWidth"), 0, f"{name} is wider than the screen")

    def each_look(self, name, ready):
        for dark in (False, True):
            for width, height in WIDTHS:
                self.browser.look(width, height, dark, reduced=True)
                ready()
                shot = f"{name}-{width}-{'dark' if dark else 'light'}"
                self.check(shot)
                self.assertGreater(self.browser.screenshot(shot).stat().st_size, 5000)

    def test_overview(self):
        self.open()
        self.browser.wait_text("h1", "silent")
        self.each_look("overview", lambda: self.browser.wait_text("[data-source=web1]", "web1"))

    def test_other_sites(self):
        samples.sites(self.stand_in)
        self.open()
        self.browser.wait_text("aside", "Other sites")

        def ready():
            self.browser.js("""const sites = [...document.querySelectorAll('aside details')].at(-1);
                               sites.open = true;
                               sites.scrollIntoView({ block: 'end' });""")
            self.browser.wait_text("aside", "123\u2009456 behind")

        self.each_look("sites", ready)

    def test_source(self):
        self.open_source()
        drawn = "[...document.querySelectorAll('.surface')].slice(0, 1).every((each) => each.querySelector('canvas')?.clientWidth > 200 && Math.abs(each.querySelector('canvas').clientWidth - each.clientWidth) < 2)"
        self.each_look("source", lambda: self.browser.wait(drawn, "the plots as wide as their places"))

    def test_source_and_group_that_are_not_registered(self):
        self.console_may_hold = ("404",)
        self.stand_in.unregister("HOST")
        self.open_source()
        self.each_look("unregistered", lambda: self.browser.wait_text(".source-view", "It is not registered at this server now"))
        self.open("#application=HOST&group=load")
        self.each_look("unregistered-group", lambda: self.browser.wait_text("[data-source=web1]", "not registered"))

    def test_a_store_that_is_away(self):
        self.console_may_hold = ("503",)
        self.stand_in.health, self.stand_in.failure = "the state file cannot be written", "the state file cannot be read now"
        self.stand_in.state["counters"].update(changes_not_kept=4, write_failures=6, web_failures=51)
        self.open()
        self.each_look("store-away", lambda: self.browser.wait_text(".troubles", "6 writes of the state file failed"))
        self.open("#application=HOST&group=load&source=web1")
        self.each_look("store-away-source", lambda: self.browser.wait_text(".source-view .bad", "could not be fetched"))

    def test_group_and_empty_states(self):
        self.open("#application=HOST&group=load")
        self.each_look("group", lambda: self.browser.wait_text("[data-source=web1]", "web1"))
        self.stand_in.applications.clear()
        self.open()
        self.each_look("empty", lambda: self.browser.wait_text(".empty", "zordp send"))

    def walk(self, number):
        """What has the focus after each Tab: its place, and whether one sees it."""
        self.browser.js(RULES)
        found = []
        for _ in range(number):
            ActionChains(self.browser.driver, duration=0).send_keys(Keys.TAB).perform()
            place = self.browser.js("return pageRules.focused()")
            if place is None:
                break
            found.append(place)
        return found

    def test_focus_goes_as_one_reads_and_is_seen(self):
        for open_, least in ((self.open, 12), (self.open_source, 18)):
            open_()
            self.browser.wait_text("aside", "State in")
            self.browser.wait(lambda: len(self.browser.all("main a")) > 3, "the view")
            found = self.walk(least)
            self.assertEqual(len(found), least, found)
            self.assertTrue(all(place["isSeen"] for place in found), [place for place in found if not place["isSeen"]])
            order = [place["order"] for place in found]
            self.assertEqual(order, sorted(order), "the order of the document")
            self.assertTrue(all(place["isAfter"] for place in found), [place for place in found if not place["isAfter"]])

    def test_every_control_is_reached_by_keyboard(self):
        self.open_source()
        self.browser.js(RULES)
        self.assertEqual(self.browser.js("return pageRules.unreachable()"), [])

    def test_the_rules_notice_what_breaks_them(self):
        self.open()
        self.browser.wait_text("h1", "silent")
        self.browser.js("""
            const main = document.querySelector('main');
            const add = (tag, attributes) => Object.assign(main.appendChild(document.createElement(tag)), attributes);
            add('button', {});
            add('p', { textContent: 'pale' }).style.color = 'color-mix(in srgb, currentColor 30%, transparent)';
            add('h6', { textContent: 'too deep' });
            add('canvas', {});
            add('table', {}).createTBody().insertRow().insertCell();
            add('nav', { id: 'main' });
            add('a', { href: '#', textContent: 'not reached', tabIndex: -1 });
            document.querySelector('aside').role = 'none';
            document.querySelector('aside').replaceWith(add('div', {}));
        """)
        self.browser.js(RULES)
        for rule in (*RULE_NAMES, "unreachable"):
            self.assertNotEqual(self.browser.js(f"return pageRules.{rule}()"), [], rule)

    def test_skip_link_leads_to_the_content(self):
        self.open()
        self.browser.wait_text("h1", "silent")
        ActionChains(self.browser.driver, duration=0).send_keys(Keys.TAB, Keys.ENTER).perform()
        self.assertEqual(self.browser.driver.switch_to.active_element.get_attribute("id"), "main")
        self.assertIn("silent", self.browser.text("h1"))

    def test_nothing_moves_for_who_wants_it_still(self):
        self.browser.look(reduced=True)
        self.open()
        self.browser.wait_text("h1", "silent")
        self.assertEqual(self.browser.js("""return [...document.querySelectorAll('*')].filter((each) => {
            const style = getComputedStyle(each);
            return style.animationName !== 'none' || style.transitionDuration !== '0s';
        }).map((each) => each.outerHTML)"""), [])

    def test_first_values_and_size(self):
        self.open()
        self.browser.wait_text("[data-source=roof]", "−3")
        shown = self.browser.js("return Math.round(performance.getEntriesByName('first-values')[0].startTime)")
        files = list(Path(__file__).resolve().parents[2].joinpath("dch/web/page").iterdir())
        size = sum(file.stat().st_size for file in files) + Path("/usr/share/javascript/dygraphs/dygraph.min.js").stat().st_size
        print(f"\nfirst values after {shown} ms; {size} bytes in {len(files) + 1} files", flush=True)
        self.assertLessEqual(size, 250 * 1024)

    def test_pictures_for_the_guide(self):
        """Small enough to stand beside a text."""
        self.browser.look(960, 620)
        self.open()
        self.browser.wait_text("[data-source=roof]", "−3")
        end_with = lambda selector: self.browser.look(960, round(self.browser.js("return [...document.querySelectorAll(arguments[0])].filter((each) => each.checkVisibility()).at(-1).getBoundingClientRect().bottom + 12", selector)))
        end_with(".sources")  # No row is cut in two.
        pictures = [self.browser.screenshot("guide-overview")]
        self.open_source()
        end_with(".plots + .hint")
        self.browser.wait("[...document.querySelectorAll('.readout')].every((each) => each.innerText.includes('least'))", "all plots")
        pictures.append(self.browser.screenshot("guide-source"))
        for picture in pictures:
            self.assertLess(picture.stat().st_size, 100 * 1024)


class TokenLooks(PageCase):
    console_may_hold = ("401",)
    check = Looks.check

    def test_question_for_the_token(self):
        self.stand_in.token = "secret"
        self.open()
        self.browser.one("#token").send_keys("wrong", Keys.ENTER)
        self.browser.wait_text("#wrong", "not accepted")
        for dark in (False, True):
            self.browser.look(360, 740, dark)
            self.check(f"token-360-{dark}")
            self.browser.screenshot(f"token-360-{'dark' if dark else 'light'}")

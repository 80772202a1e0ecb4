"""Every page is shown without a warning, fits the screen, and is found under each of its names."""
import re
import subprocess
import unittest

from manual_page import MANUAL, man

FILES = sorted(MANUAL.glob("man*/*"))


def shown(path, width=80):
    return man("--warnings=w", "-l", path, width=width)


class Pages(unittest.TestCase):
    def test_there_are_some(self):
        self.assertGreater(len(FILES), 40)

    def test_have_no_warning_and_fit_the_screen(self):
        for path in FILES:
            for width in (80, 120):
                text, warnings = shown(path, width)
                with self.subTest(page=path.name, width=width):
                    self.assertEqual(warnings, "")
                    self.assertEqual([line for line in text.splitlines() if len(line) > width], [])

    def test_are_found_under_their_names(self):
        for path in FILES:
            with self.subTest(page=path.name):
                name, section = path.stem, path.suffix[1:]
                text, warnings = man("-M", MANUAL, section, name)
                self.assertEqual(warnings, "")
                self.assertEqual(text, shown(path)[0])
                # What apropos will have.
                listed = subprocess.run(["lexgrog", path], check=True, capture_output=True, encoding="utf-8").stdout
                self.assertIn(f'{path}: "{name} - ', listed)

    def test_refer_to_pages_that_are_there(self):
        others = {"sd_listen_fds(3)", "sd_watchdog_enabled(3)", "systemd.socket(5)"}
        there = {f"{path.stem}({path.suffix[1:]})" for path in FILES}
        named = set()
        for path in FILES:
            text, _ = shown(path, 120)  # where a page's head has room for the longest name
            named.update(re.findall(r"[\w.-]+\(\d\)", text))
        self.assertEqual(named - there, others)


if __name__ == "__main__":
    unittest.main()

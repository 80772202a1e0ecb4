"""What the programs' --help says is on their pages, command by command, and nothing else is."""
import re
import subprocess
import unittest

from manual_page import PROGRAMS, Page

HELP = {"-h, --help"}


class Help:
    """What a program says of itself, or of one of its commands."""

    def __init__(self, *words):
        self.text = subprocess.run([PROGRAMS / words[0], *words[1:], "--help"], check=True,
                                   capture_output=True, encoding="utf-8").stdout
        self.options = self._listed("Options")
        self.positionals = self._listed("Positionals")
        self.commands = self._listed("Subcommands")

    def _listed(self, title):
        """Descriptions by name and argument, the way a page has these: `-i, --input FILE`."""
        listed = {}
        block = re.search(rf"^{title}:\n(.*?)(?:\n\n|\Z)", self.text + "\n", re.M | re.S)
        for line in block[1].splitlines() if block else []:
            names, description = re.match(r"  (\S.*?)(?:  +|:INT )(\S.*)", line).groups()
            names = re.sub(r" \(required\)| Needs:.*", "", names)
            listed[names.replace(",", ", ")] = line[2 + len(names):]
        return listed

    def exit_statuses(self):
        paragraph = re.search(r"^Exit status: (.*?)(?:\n\n|\Z)", self.text, re.M | re.S)[1]
        return set(re.findall(r"(?:^|, |\n)(\d+) (?!s\b)", paragraph))


def numbers(text):
    return set(re.findall(r"(?<![\w.:])-?\d+(?![\w:]|\.\d)", text))


class Options(unittest.TestCase):
    def compare(self, described, on_page):
        self.assertEqual(set(described), set(on_page))
        for name, description in described.items():
            missing = numbers(description) - numbers(on_page[name])
            self.assertEqual(missing, set(), f"{name}: numbers that the page does not have")

    def of_page(self, page, part):
        return {term: text for term, text in page.terms(part).items()
                if term.startswith("-") or re.fullmatch("[A-Z]+", term)}

    def test_of_the_server(self):
        self.compare(Help("zordchd").options, Page("zordchd.8").terms("OPTIONS"))

    def test_of_the_tools(self):
        for program in ("zordp", "zordc"):
            page, about = Page(f"{program}.1"), Help(program)
            with self.subTest(program):
                self.compare(about.options, page.terms("OPTIONS"))
                self.assertEqual(set(about.commands), set(page.subsections("COMMANDS")))
            for command in about.commands:
                with self.subTest(f"{program} {command}"):
                    self.compare_command(page, command, Help(program, command))

    def compare_command(self, page, command, about):
        own = {name: text for name, text in about.options.items() if name not in HELP}
        on_page = self.of_page(page, f"COMMANDS/{command}")
        self.compare({**own, **about.positionals}, on_page)
        for name, description in {**own, **about.positionals}.items():
            if name.startswith("-"):
                self.assertEqual("(required)" in description, "Required." in on_page[name], name)

    def test_exit_statuses(self):
        for name in ("zordchd.8", "zordp.1", "zordc.1"):
            with self.subTest(name):
                on_page = {term.split()[0] for term in Page(name).terms("EXIT STATUS")}
                self.assertEqual(on_page, Help(name[:-2]).exit_statuses())


if __name__ == "__main__":
    unittest.main()

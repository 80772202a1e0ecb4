"""Every exported function has a page, which says all that its header says."""
import collections
import re
import unittest

from manual_page import MANUAL, ONE_LINE, Page, read


def words(text):
    return collections.Counter(re.findall(r"\w+", text))


def joined(text):
    return " ".join(text.split())


class Functions(unittest.TestCase):
    def setUp(self):
        exported = re.search(r"global:(.*?)local:", read("zordchcl/zord410.map"), re.S)[1]
        self.exported = set(re.findall(r"(\w+);", exported))
        self.assertGreater(len(self.exported), 30)

    def test_have_a_page_each(self):
        self.assertEqual({path.stem for path in MANUAL.glob("man3/*")}, self.exported | {"zord410"})

    def test_are_listed_in_the_overview(self):
        page = Page("zord410.3", ONE_LINE)
        listed = [row[0] for part in page.parts if part.startswith("FUNCTIONS/") for row in page.rows(part)]
        self.assertEqual(sorted(name for row in listed for name in row.split(", ")), sorted(self.exported))

    def test_have_their_declaration_and_all_that_is_said_of_them(self):
        described = set()
        for part in re.split(r"^### ", read("docs/api.md"), flags=re.M)[1:]:
            part = re.split(r"^##? ", part, flags=re.M)[0]
            heading, code, text = re.fullmatch(r"(.*?)\n\n```c\n(.*?)```\n(.*)", part, re.S).groups()
            for name in self.exported & set(re.findall(r"`(\w+)`", heading)):
                described.add(name)
                with self.subTest(name):
                    page = Page(f"{name}.3")
                    self.assertIn(joined(code), joined("\n".join(page.parts["SYNOPSIS"])))
                    missing = words(text) - words("\n".join(page.parts["DESCRIPTION"]))
                    self.assertEqual(missing, collections.Counter())
        self.assertEqual(described, self.exported)


if __name__ == "__main__":
    unittest.main()

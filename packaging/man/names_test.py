"""Statuses, variables, keys and codes: those that there are are on the pages, and no others."""
import pathlib
import re
import subprocess
import tempfile
import unittest

from manual_page import ONE_LINE, PROGRAMS, SOURCE, Page, read


def shipped_sources(*folders):
    """The sources of what is shipped, in one text."""
    return "\n".join(path.read_text(encoding="utf-8")
                     for folder in folders for path in sorted((SOURCE / folder).rglob("*.cpp"))
                     if not path.name.endswith(("_test.cpp", "_bench.cpp")) and "testkit" not in path.parts)


def variables_read(sources):
    """Also where the name is a constant."""
    names = re.findall(r'(?i:get_?env|variable)\("([A-Z]\w+)"', sources)
    for constant in re.findall(r"(?i:get_?env|\bvariable)\((\w+)\)", sources):
        names += re.findall(rf'\b{constant}\[\] = "([A-Z]\w+)"', sources)
    return set(names)


def variables_of(page):
    return {name for term in page.terms("ENVIRONMENT") for name in term.split(", ")}


class Statuses(unittest.TestCase):
    def setUp(self):
        header = read("zordchcl/status.h")
        numbers = dict(re.findall(r"(DCH_STATUS_\w+) = (\d+),", header))
        texts = re.findall(r'\{(DCH_STATUS_\w+), "(.*?)"\}', header)
        self.statuses = {numbers[name]: text for name, text in texts}
        self.assertEqual(len(self.statuses), len(numbers))

    def test_of_the_library(self):
        rows = Page("zord410.3", ONE_LINE).rows("STATUS VALUES")[1:]
        self.assertEqual({row[0]: row[1] for row in rows}, self.statuses)

    def test_of_the_protocol(self):
        rows = Page("zord410-protocol.7", ONE_LINE).rows("STATUS VALUES")[1:]
        travelling = {number: text for number, text in self.statuses.items() if not 1 <= int(number) <= 5}
        self.assertEqual({row[0]: row[1] for row in rows}, travelling)


class Variables(unittest.TestCase):
    def test_of_the_library(self):
        library = variables_read(shipped_sources("suite", "zora", "zordipc", "zordlpc", "zordsock", "zordchcl"))
        self.assertGreater(len(library), 10)
        self.assertEqual(variables_of(Page("zord410.3")), library)

    def test_of_the_server(self):
        server = variables_read(shipped_sources("dch"))
        self.assertIn("ZOR0_BIND_ADDR", server)
        # The library reads this one for it.
        self.assertEqual(variables_of(Page("zordchd.8")), server | {"ZOR0_PRODUCT_SPEC"})

    def test_of_the_tools(self):
        library = variables_of(Page("zord410.3"))
        # Completion alone reads HOME, for what a shell would make of ~.
        self.assertLessEqual(variables_read(shipped_sources("tools")), library | {"HOME"})
        for name in ("zordp.1", "zordc.1"):
            named = variables_of(Page(name))
            self.assertIn("ZORA_DCH_ADDR", named)
            # systemd's own library reads the latter.
            self.assertLessEqual(named, library | ({"NOTIFY_SOCKET"} if name == "zordp.1" else set()))


class Keys(unittest.TestCase):
    """A wrong section or key is answered with those that there are."""

    def check(self, text):
        with tempfile.NamedTemporaryFile("w", suffix=".toml") as file:
            file.write(text)
            file.flush()
            return subprocess.run([PROGRAMS / "zordchd", "--config", file.name, "--check"], check=False,
                                  capture_output=True, encoding="utf-8")

    def known(self, text):
        answer = self.check(text)
        self.assertEqual(answer.returncode, 78)
        return re.search(r"; there are (.*)\n", answer.stderr)[1].split(", ")

    def setUp(self):
        self.page = Page("zordchd.toml.5")
        self.terms = {section: self.page.terms(f"KEYS/{section}") for section in self.page.subsections("KEYS")}

    def test_are_those_of_the_server(self):
        sections = self.known("[nothing]")
        self.assertEqual(sorted(self.terms), sorted(f"[{section}]" for section in sections))
        for section in sections:
            with self.subTest(section):
                on_page = [term.split(" = ")[0] for term in self.terms[f"[{section}]"]]
                self.assertEqual(sorted(on_page), self.known(f"[{section}]\nnothing = 1"))

    def test_have_values_that_the_server_takes(self):
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, "actions").write_text("restart /bin/true\n")
            pathlib.Path(folder, "token").write_text("secret\n")
            for section, terms in self.terms.items():
                for term in terms:
                    with self.subTest(f"{section} {term}"):
                        answer = self.check(f"{section}\n{term}\n".replace("/etc/zord410", folder))
                        self.assertEqual(answer.returncode, 0, answer.stderr)

    def test_have_the_limits_of_the_server(self):
        for section, terms in self.terms.items():
            for term, text in terms.items():
                limits = re.search(r"(\d+) to (\d+)(?! characters)", text)
                if not limits:
                    continue
                key, (least, most) = term.split(" = ")[0], limits.groups()
                with self.subTest(key):
                    self.assertEqual(self.check(f"{section}\n{key} = {least}\n").returncode, 0)
                    self.assertEqual(self.check(f"{section}\n{key} = {most}\n").returncode, 0)
                    for beyond in (int(least) - 1, int(most) + 1):
                        self.assertIn(f"from {least} to {most}, not", self.check(f"{section}\n{key} = {beyond}\n").stderr)


class KeysOfCommands(unittest.TestCase):
    """Those of the file of zordp run."""

    def faults(self, text):
        run = subprocess.run([PROGRAMS / "zordp", "run", "-"], input=text, check=False, capture_output=True, encoding="utf-8")
        self.assertEqual(run.returncode, 65)
        return run.stderr

    def setUp(self):
        self.terms = Page("zordp.1", ONE_LINE).terms("FILE OF COMMANDS")

    def test_are_those_of_the_program(self):
        known = re.findall(r"; there are (.*)\n", self.faults("nothing = 1\n[[rows]]\nnothing = 1\n"))
        top, of_rows = [keys.split(", ") for keys in known]
        self.assertEqual(sorted(term.split(" = ")[0] for term in self.terms), sorted({*top, *of_rows} - {"rows"}))

    def test_have_values_that_the_program_takes(self):
        terms = [term for term in self.terms if not term.startswith("registration")]
        registration = next(term for term in self.terms if term.startswith("registration"))
        # The one fault is not of them, so that nothing is started.
        self.assertEqual(self.faults("\n".join(["wrong = 1", registration, "[[rows]]", *terms])).count("\n"), 1)

    def test_have_the_limits_of_the_program(self):
        for term, text in self.terms.items():
            key = term.split(" = ")[0]
            if limits := re.search(r"([\d.]+) to (\d+)\b(?! characters)", text):
                self.assertIn(f"{key} in [[rows]] has to be a number of seconds from {limits[1]} to {limits[2]}, not 0",
                              self.faults(f"[[rows]]\n{key} = 0\n"))


class Protocol(unittest.TestCase):
    def setUp(self):
        self.page = Page("zord410-protocol.7", ONE_LINE)

    def test_has_the_fields(self):
        codes = re.search(r"enum ZOR0_FieldType.*?\{(.*?)\};", read("suite/fields.h"), re.S)[1]
        fields = {number: name for name, number in re.findall(r"(\w+) = (\d+)", codes)}
        self.assertEqual({row[0]: row[1] for row in self.page.rows("FIELDS")[1:]}, fields)

    def test_has_the_requests(self):
        codes = re.search(r"enum DCH_RequestCode.*?\{(.*?)\};", read("zordchcl/messages.h"), re.S)[1]
        requests = set(re.findall(r"= (0x\w+)", codes)) | {"0x1010"}  # whose code has a name of its own
        self.assertIn("DCH_REQUEST_REGISTER = ZORP_REGISTRATION_REQUEST", codes)
        self.assertRegex(read("suite/zorp.h"), r"ZORP_REGISTRATION_REQUEST = 0x1010\b")
        self.assertEqual({term.split()[0] for term in self.page.terms("REQUESTS")}, requests)


if __name__ == "__main__":
    unittest.main()

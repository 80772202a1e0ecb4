"""For the tests of the manual: pages as `man` shows them, taken apart, and what they are compared with."""
import functools
import os
import pathlib
import re
import subprocess

MANUAL = pathlib.Path(os.environ["ZORD410_MANUAL"])
PROGRAMS = pathlib.Path(os.environ["ZORD410_PROGRAMS"])
SOURCE = pathlib.Path(os.environ["ZORD410_SOURCE"])
TERM_INDENT, TEXT_INDENT = 7, 11
ONE_LINE = 200  # columns: wide enough for every cell of the tables


@functools.cache
def man(*arguments, width=80):
    """What it prints on standard output and on standard error; it has to end with 0."""
    environment = {"PATH": os.environ["PATH"], "HOME": "/", "LC_ALL": "C.UTF-8", "MANWIDTH": str(width)}
    run = subprocess.run(["man", *map(str, arguments)], env=environment, capture_output=True,
                         encoding="utf-8", check=False)
    if run.returncode != 0:
        raise AssertionError(f"man {arguments} ended with {run.returncode}: {run.stderr}")
    return run.stdout, run.stderr


def page_path(name):
    """Of a page such as zordp.1."""
    return MANUAL / f"man{name[-1]}" / name


def indent_of(line):
    return len(line) - len(line.lstrip(" "))


class Page:
    """A page as it is shown: its sections, and under "SECTION/subsection" their parts."""

    def __init__(self, name, width=80):
        self.text, _ = man("-l", page_path(name), width=width)
        self.parts = {}
        section = part = ""
        for line in self.text.splitlines()[1:-1]:  # without the page's head and foot
            if line and indent_of(line) == 0:
                section = part = line
            elif line and indent_of(line) == 3:
                part = f"{section}/{line.strip()}"
            else:
                self.parts.setdefault(part, []).append(line)

    def subsections(self, section):
        return [part.split("/", 1)[1] for part in self.parts if part.startswith(section + "/")]

    def terms(self, part):
        """Texts that stand below a term, by this."""
        terms = {}
        lines = self.parts.get(part, [])
        term = None
        for line, following in zip(lines, lines[1:] + [""]):
            if indent_of(line) == TERM_INDENT:
                is_term = indent_of(following) >= TEXT_INDENT
                term = line.strip() if is_term else None
                if term is not None:
                    assert term not in terms, f"{term} stands twice in {part}"
                    terms[term] = ""
            elif term is not None:
                terms[term] += " " + line.strip()
        return terms

    def rows(self, part):
        """The rows of a table, each a list of its cells."""
        return [re.split(r"\s{3,}", line.strip()) for line in self.parts[part]
                if re.search(r"\S\s{3,}\S", line)]


def read(path):
    return (SOURCE / path).read_text(encoding="utf-8")

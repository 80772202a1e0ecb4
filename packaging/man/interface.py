"""Reads docs/api.md, which a test keeps equal to the comments of the two public headers."""
import dataclasses
import re


@dataclasses.dataclass
class Entry:
    """What stands under one heading: functions, constants or a type."""
    names: list
    code: str = ""
    text: str = ""

    @property
    def is_functions(self):
        return not re.search(r"\benum\b|\btypedef\b", self.code)


@dataclasses.dataclass
class Section:
    title: str
    introduction: str = ""
    entries: list = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class Header:
    name: str
    sections: list  # the first has no title; its introduction is the header's conventions

    @property
    def conventions(self):
        return self.sections[0].introduction


def read(path):
    """The headers of the document."""
    headers = []
    part = None  # takes the lines that follow
    in_code = False
    for line in path.read_text(encoding="utf-8").splitlines():
        if line.startswith("```"):
            in_code = not in_code
        elif in_code:
            part.code += line + "\n"
        elif line.startswith("### "):
            part = Entry(re.findall("`(.*?)`", line))
            headers[-1].sections[-1].entries.append(part)
        elif line.startswith("## "):
            part = Section(line[3:])
            headers[-1].sections.append(part)
        elif line.startswith("# "):
            part = Section("")
            headers.append(Header(line[2:], [part]))
        elif isinstance(part, Entry):
            part.text += line + "\n"
        else:
            part.introduction += line + "\n"
    return headers[1:]  # before them: the document's own introduction

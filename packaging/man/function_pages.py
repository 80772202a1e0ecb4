"""The pages of the functions, and what the overview says of them, from the headers' comments."""
import re

from scdoc_text import WIDTH, document, escaped, inline, items, literal, table

HEAD = '(3) "zord410 @VERSION@" "zord410"'


def summary(text):
    """What the first sentence begins with, for lists."""
    sentence = " ".join(text.strip().split("\n\n")[0].split())
    sentence = re.split(r"\.(?: |$)|(?<=\w): | \(|(?<=\w), | \"(?=\w)", sentence)[0].replace("`", "")
    return sentence if sentence[1:2].isupper() else sentence[:1].lower() + sentence[1:]


def prototypes(code):
    """The declarations, broken to fit a page."""
    lines = []
    for declaration in re.findall(r"[^;]+;", code):
        line, *arguments = " ".join(declaration.split()).split(", ")
        for argument in arguments:
            if len(f"{line}, {argument}") <= WIDTH - 1:  # room for a comma
                line += f", {argument}"
            else:
                lines.append(f"{line},")
                line = f"    {argument}"
        lines.append(line)
    return lines


def all_functions(headers):
    return {name for header in headers for section in header.sections
            for entry in section.entries if entry.is_functions for name in entry.names}


def groups(header):
    """What shares a page: functions under one heading, or in a section with words of its own."""
    for section in header.sections:
        entries = [entry for entry in section.entries if entry.is_functions]
        if section.title and section.introduction.strip():
            yield section, entries
        else:
            for entry in entries:
                yield section, [entry]


def description(section, entries, functions):
    if len(entries) == 1:
        return document(entries[0].text, functions)
    parts = [document(section.introduction, functions)]
    parts += [f"*{escaped(entry.names[0])}*()\n\t" + document(entry.text, functions)
              for entry in entries]
    return "\n".join(parts)


def return_value(header, entries, functions):
    """What the conventions say of functions with a status."""
    entry = entries[0]
    if "ZORA_Long* status" not in entry.code or entry.text.strip().startswith("Reserved"):
        return ""
    text = document(items(header.conventions, "Result", "Status"), functions)
    return f"# RETURN VALUE\n\nFrom the conventions of _{header.name}_:\n\n{text}\n"


def see_also(section, names):
    neighbours = [name for entry in section.entries if entry.is_functions for name in entry.names
                  if name not in names]
    if not section.title:
        neighbours = []  # nothing but the header is common to them
    return ", ".join(f"*{escaped(name)}*(3)" for name in ["zord410", *neighbours])


def page_of(header, section, entries, functions):
    names = [name for entry in entries for name in entry.names]
    others = functions - set(names)
    what = summary(entries[0].text) if len(entries) == 1 else section.title.lower()
    synopsis = [f"#include <{header.name}>", ""]
    for entry in entries:
        synopsis += prototypes(entry.code)
    return (f"{names[0]}{HEAD}\n\n"
            f"# NAME\n\n{escaped(', '.join(names))} - {escaped(what)}\n\n"
            f"# SYNOPSIS\n\n{literal(synopsis)}\n\n"
            f"# DESCRIPTION\n\n{description(section, entries, others)}\n"
            f"{return_value(header, entries, others)}"
            "# NOTES\n\n*zord410*(3) says how to compile and link, and what holds for all functions: "
            "threads, ownership, settings.\n\n"
            f"# SEE ALSO\n\n{see_also(section, names)}\n")


def pages(headers):
    """The names and the text of each page; its own name is the first of them."""
    functions = all_functions(headers)
    for header in headers:
        for section, entries in groups(header):
            names = [name for entry in entries for name in entry.names]
            yield names, page_of(header, section, entries, functions)


def function_lists(headers):
    parts = []
    for header in headers:
        for section in header.sections:
            rows = [[f"*{escaped(', '.join(entry.names))}*", escaped(summary(entry.text))]
                    for entry in section.entries if entry.is_functions]
            if rows:
                parts.append(f"## {section.title or 'Utilities'}\n\n{table(rows)}\n")
    return "\n".join(parts)


def constants(headers):
    parts = []
    for header in headers:
        for section in header.sections:
            for entry in section.entries:
                if not entry.is_functions:
                    parts += constant(entry)
    return "\n\n".join(parts)


def constant(entry):
    values = re.findall(r"(\w+) = (\d+)[,\s]*(?:/\* (.*?) \*/)?", entry.code)
    if not values:
        return [f"*{escaped(entry.names[0])}*\n\t{inline(entry.text, [])}"]
    rows = table([f"*{escaped(name)}*", value, escaped(remark)] for name, value, remark in values)
    text = document(entry.text, []).strip() if entry.text.strip() else ""
    return [rows, text] if text else [rows]


def filled_in(source, headers):
    """The source of a page with what is made from the headers in its places."""
    functions = all_functions(headers)
    conventions = "\n".join(f"## {header.name}\n\n{document(items(header.conventions), functions)}"
                            for header in headers)
    return (source.replace("@FUNCTIONS@", function_lists(headers))
            .replace("@CONVENTIONS@", conventions)
            .replace("@CONSTANTS@", constants(headers)))

"""Turns the headers' comments into scdoc: paragraphs, lists, tables and examples."""
import re
import textwrap

WIDTH = 69  # columns of what is shown as it is: 80 less the indentation on a page


def escaped(text):
    text = re.sub(r"([\\*_])", r"\\\1", text)
    return re.sub(r"^([-.#;|\[\]])", r"\\\1", text)


def inline(text, functions):
    """One paragraph. What is in backquotes is underlined; a function's name leads to its page."""
    def dressed(match):
        if match["code"] is not None:
            return f"_{escaped(match['code'])}_"
        if match["name"] in functions:
            return f"*{escaped(match['name'])}*(3)"
        return escaped(match["other"] or match["name"])
    text = " ".join(text.split())
    return re.sub(r"`(?P<code>[^`]*)`|(?P<name>\w+)|(?P<other>[^\w`]+)", dressed, text)


def table(rows):
    """Columns without lines; the last one takes the room that is left."""
    lines = []
    for row in rows:
        for column, cell in enumerate(row):
            mark = ":" if column else "|"
            align = "<" if column == len(row) - 1 else "["
            lines.append(f"{mark}{align} {cell}")
    return "\n".join(lines)


def literal(lines):
    shown = "\n".join(lines).replace("\\", "\\\\")
    return f"```\n{shown}\n```"


def rows_of(lines):
    """The rows of a block in which texts stand in a column behind their terms, else nothing."""
    rows = []
    for line in lines:
        term = re.match(r" ?(\S.*?) {2,}(\S.*)", line)  # numbers may stand at the right
        if term:
            rows.append([term[1], term[2]])
        elif rows and line.startswith("  "):
            rows[-1][1] += " " + line.strip()
        else:
            return []
    return rows


def block(text, functions):
    """One block of a comment."""
    lines = text.splitlines()
    if not lines[0].startswith("    "):
        return inline(text, functions)
    lines = textwrap.dedent(text).splitlines()
    rows = rows_of(lines)
    if not rows:
        return literal(lines)
    return table([f"*{escaped(term)}*", inline(meaning, functions)] for term, meaning in rows)


def document(text, functions):
    """A whole comment. Items of a list become paragraphs, their first word a mark."""
    text = re.sub(r"^ - ", "\n - ", text, flags=re.M)
    blocks = []
    for part in re.split(r"\n\s*\n", text.strip("\n")):
        if not part.strip():
            continue
        item = re.match(r" - ((?P<mark>\w+): )?", part)
        if item:
            mark = f"*{item['mark']}:* " if item["mark"] else ""
            blocks.append(mark + block(part[item.end():], functions))
        else:
            blocks.append(block(part, functions))
    return "\n\n".join(blocks) + "\n"


def items(text, *marks):
    """The items of a list: those that begin with one of these words, or all."""
    parts = re.split(r"^ - ", text, flags=re.M)[1:]
    return "".join(" - " + part for part in parts
                   if not marks or part.split(":")[0] in marks)

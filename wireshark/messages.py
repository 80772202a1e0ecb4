"""Messages of the channel as bytes, and what the sources say of them."""

import re
import struct
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[1]


def number(text):
    return int(text, 0)


def request_codes():
    """All requests by the names of zordchcl/messages.h."""
    enumeration = re.search(r"enum DCH_RequestCode : short \{(.*?)\};", (SOURCE / "zordchcl/messages.h").read_text(), re.DOTALL)[1]
    registration = re.search(r"ZORP_REGISTRATION_REQUEST = (0x[0-9A-F]+);", (SOURCE / "suite/zorp.h").read_text())[1]
    return {name: number(value) for name, value in re.findall(r"(\w+) = (\w+),", enumeration.replace("ZORP_REGISTRATION_REQUEST", registration))}


def request_words():
    """The server's names of requests, by code."""
    codes = request_codes()
    rows = re.findall(r'\{(DCH_REQUEST_\w+), "([a-z ]+)", ', (SOURCE / "dch/core/request_types.cpp").read_text())
    return {codes[name]: words for name, words in rows}


def statuses():
    header = (SOURCE / "zordchcl/status.h").read_text()
    numbers = {name: number(value) for name, value in re.findall(r"(DCH_STATUS_\w+) = (\d+),", header)}
    return {numbers[name]: text for name, text in re.findall(r'\{(DCH_STATUS_\w+), "(.*)"\}', header)}


def field_types():
    enumeration = re.search(r"enum ZOR0_FieldType : short \{(.*?)\};", (SOURCE / "suite/fields.h").read_text(), re.DOTALL)[1]
    return {number(value): name for name, value in re.findall(r"(\w+) = (\d+),", enumeration)}


def documented():
    """The messages of docs/protocol.md, which are what the library sends, by their titles."""
    page = (SOURCE / "docs/protocol.md").read_text()
    dumps = re.findall(r"<!-- dump: (.*?) -->\n```\n(.*?)```", page, re.DOTALL)
    return {title: b"".join(bytes.fromhex(line[6:54].replace(" ", "")) for line in dump.splitlines()) for title, dump in dumps}


def documented_filters():
    page = (SOURCE / "docs/protocol.md").read_text()
    return [expression for expression in re.findall(r"^\| `(.*?)` \|", page, re.MULTILINE) if expression.startswith("zord410.")]


def field(code, value):
    return struct.pack(">HI", code, len(value)) + value


def short(code, value):
    return field(code, struct.pack(">H", value))


def long(code, value):
    return field(code, struct.pack(">i", value))


def text(code, value):
    return field(code, value.encode() + b"\0")


def message(*fields):
    content = b"".join(fields)
    return struct.pack(">I", 4 + len(content)) + content


def request(code, *fields):
    return message(short(16, code), *fields)


def row(handle, *attributes, code=17):
    """Attributes are (name, letter, bytes)."""
    pairs = [text(80, name) + field(81, letter.encode() + value) for name, letter, value in attributes]
    return request(0x1030, long(128, handle), short(112, code), *pairs)


def registration(name, key, clauses):
    return request(0x1010, text(32, name), text(33, key), field(18, f"appl:{name},{key};{clauses}".encode()))


def online(name, group, source):
    return request(0x1015, text(32, name), text(35, group), text(34, source))


def code_of(content):
    """The request code of a message that begins with one, else nothing."""
    if len(content) >= 12 and content[4:10] == bytes((0, 16, 0, 0, 0, 2)):
        return int.from_bytes(content[10:12], "big")
    return None


def status_of(answer):
    """Nothing for a text."""
    return int.from_bytes(answer[10:14], "big", signed=True) if answer[4:6] == b"\0\x11" else None

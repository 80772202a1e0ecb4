"""How values travel, and rows as consumers get them."""

from __future__ import annotations

import operator
import struct
from collections.abc import Iterator, Mapping
from typing import SupportsIndex, Union

from ._library import WORK_BUFFER_SIZE
from .registration import TEXT_LETTERS, Attribute

Value = Union[int, str, bytes]
"""A value of a row that came: a number, a text, or the bytes of what is neither."""

Sendable = Union[SupportsIndex, str]
"""A value that can be sent: a whole number or a text."""

_REQUEST_TYPE, _ATTRIBUTE_NAME, _ATTRIBUTE_VALUE = 16, 80, 81
_DATA_CODE, _HANDLE = 112, 128
_DATA_REQUEST = 0x1030
_LENGTH_BYTES, _HEADER_BYTES, _ROW_START_BYTES = 4, 6, 30
_HEADER = struct.Struct("!HI")
_NUMBERS = {1: struct.Struct("=b"), 2: struct.Struct("=h"), 4: struct.Struct("=i"), 8: struct.Struct("=q")}

Encoded = tuple[bytes, bytes, bytes]
"""An attribute's name, its letter, and the value as it travels."""


def encode_row(group: str, attributes: Mapping[str, Attribute], values: Mapping[str, Sendable]) -> list[Encoded]:
    """The row as dp_formatData takes it. Raises ValueError or TypeError with the attribute's name and
    what it can take."""
    if not values:
        raise ValueError("the row has no value")
    row = []
    size = _ROW_START_BYTES
    for name, value in values.items():
        if name not in attributes:
            raise ValueError(f"the group {group!r} has no attribute {name!r}, it has: {', '.join(attributes)}")
        attribute = attributes[name]
        encoded = _encode_text(name, attribute, value) if attribute.is_text else _encode_number(name, attribute, value)
        name_bytes = name.encode()
        row.append((name_bytes, attribute.letter.encode(), encoded))
        size += _HEADER_BYTES + len(name_bytes) + 1 + _HEADER_BYTES + 1 + len(encoded)
    if size > WORK_BUFFER_SIZE:
        raise ValueError(f"the row takes {size} bytes as a message, which holds {WORK_BUFFER_SIZE}")
    return row


def _encode_number(name: str, attribute: Attribute, value: Sendable) -> bytes:
    try:
        whole = operator.index(value)  # type: ignore[arg-type]
    except TypeError:
        raise TypeError(f"attribute {name!r} takes a whole number, not {value!r}") from None
    largest = 2 ** (8 * attribute.size - 1) - 1
    if not -largest - 1 <= whole <= largest:
        raise ValueError(f"attribute {name!r}: {whole} is out of range, {-largest - 1} to {largest}")
    return _NUMBERS[attribute.size].pack(whole)


def _encode_text(name: str, attribute: Attribute, value: Sendable) -> bytes:
    if not isinstance(value, str):
        raise TypeError(f"attribute {name!r} takes a text, not {value!r}")
    encoded = value.encode("utf-8", "surrogateescape")
    if b"\0" in encoded:
        raise ValueError(f"attribute {name!r}: the text holds a zero")
    if len(encoded) + 1 > attribute.size:
        raise ValueError(
            f"attribute {name!r}: the text has {len(encoded)} bytes in UTF-8, and at most {attribute.size - 1} fit"
        )
    return encoded + b"\0"


class Row(Mapping[str, Value]):
    """A row that came: a mapping from the names of its attributes, in the order in which they were
    sent, to their values. A number is an int and a text a str, as the letter says with which the
    value came; bytes that are no UTF-8 stand in a text as os.fsdecode has them. A number of a size
    that no number has is bytes. What the provider left out of the row is not there.

    handle: the number that the DCH gave to the row's source
    code:   the row's code: 0 unless its provider says otherwise
    """

    __slots__ = ("handle", "code", "_values")

    def __init__(self, handle: int, code: int, values: dict[str, Value]) -> None:
        self.handle = handle
        self.code = code
        self._values = values

    def __getitem__(self, name: str) -> Value:
        return self._values[name]

    def __iter__(self) -> Iterator[str]:
        return iter(self._values)

    def __len__(self) -> int:
        return len(self._values)

    def __repr__(self) -> str:
        return f"Row(handle={self.handle}, code={self.code}, values={self._values!r})"


class MalformedRow(ValueError):
    """A message that is no row; whoever sent it, it is skipped."""


def is_data(message: bytes) -> bool:
    """Whether the message says that it is a row. What breaks a wait does not."""
    start = _HEADER.pack(_REQUEST_TYPE, 2) + struct.pack("!H", _DATA_REQUEST)
    return message[_LENGTH_BYTES:].startswith(start)


def decode_row(message: bytes) -> Row:
    """The row in a message. Raises MalformedRow."""
    fields = list(_fields(message))
    kinds = [kind for kind, _ in fields]
    if kinds[:3] != [_REQUEST_TYPE, _HANDLE, _DATA_CODE] or [len(value) for _, value in fields[:3]] != [2, 4, 2]:
        raise MalformedRow(f"the message begins with fields {kinds[:3]}")
    if not is_data(message):
        raise MalformedRow(f"the message has request {fields[0][1].hex()}")
    if kinds[3:] != [_ATTRIBUTE_NAME, _ATTRIBUTE_VALUE] * (len(kinds[3:]) // 2):
        raise MalformedRow("names and values do not take turns")
    values: dict[str, Value] = {}
    for (_, name_bytes), (_, value) in zip(fields[3::2], fields[4::2]):
        name = _text(name_bytes)
        if name in values:
            raise MalformedRow(f"attribute {name!r} stands twice")
        if not value:
            raise MalformedRow(f"attribute {name!r} has no letter")
        values[name] = _decode_value(chr(value[0]), value[1:])
    return Row(struct.unpack("!i", fields[1][1])[0], struct.unpack("!h", fields[2][1])[0], values)


def _fields(message: bytes) -> Iterator[tuple[int, bytes]]:
    position = _LENGTH_BYTES
    while position < len(message):
        if len(message) - position < _HEADER_BYTES:
            raise MalformedRow("the message ends in a header")
        kind, count = _HEADER.unpack_from(message, position)
        position += _HEADER_BYTES
        if count > len(message) - position:
            raise MalformedRow(f"a field of {count} bytes leads out of the message")
        yield kind, message[position : position + count]
        position += count


def _decode_value(letter: str, value: bytes) -> Value:
    if letter in TEXT_LETTERS:
        return _text(value)
    if len(value) in _NUMBERS:
        decoded: int = _NUMBERS[len(value)].unpack(value)[0]
        return decoded
    return value


def _text(value: bytes) -> str:
    return value.partition(b"\0")[0].decode("utf-8", "surrogateescape")

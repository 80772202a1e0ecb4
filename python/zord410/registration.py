"""What a provider tells the DCH of its application: groups, and the attributes of their rows."""

from __future__ import annotations

import inspect
from collections.abc import Mapping
from dataclasses import dataclass, field
from typing import Any

NUMBER_LETTERS = "ACGLNIS"
TEXT_LETTERS = "DRT"
TYPES = ("APIS", "APPC", "ASFS", "FILE", "HTTP", "JDBC", "ODBC", "POST", "SNMP", "SOCK", "WBEM", "NODP")

_MAX_APPLICATION_BYTES = 20
_MAX_NAME_BYTES = 32
_KEY_BYTES = 3
_MAX_SIZE = 4096
_MAX_TEXT_AND_NAME_BYTES = 4061
_BLANKS = " \t\r\n\v\f"


@dataclass(frozen=True)
class Attribute:
    """A value of a row.

    letter: what it is: A C G L N a number, I S a number of 2 bytes, D R T a text
    size:   of a number 2, 4 or 8 bytes; of a text the most bytes that it has in UTF-8, and one more
            for the zero that ends it, 1 to 4096
    help:   a text for people; may be empty

    Numbers are signed. `number` and `text` make the two kinds.
    """

    letter: str
    size: int
    help: str = ""

    @property
    def is_text(self) -> bool:
        return self.letter in TEXT_LETTERS


def number(size: int = 4, help: str = "", letter: str = "N") -> Attribute:  # pylint: disable=redefined-builtin
    """An attribute whose values are signed whole numbers of `size` bytes: 2, 4 or 8."""
    return Attribute(letter, size, help)


def text(size: int, help: str = "", letter: str = "D") -> Attribute:  # pylint: disable=redefined-builtin
    """An attribute whose values are texts of at most `size` - 1 bytes in UTF-8."""
    return Attribute(letter, size, help)


@dataclass(frozen=True)
class Registration:
    """An application as a provider registers it. ValueError or TypeError name what breaks a rule:
    the channel's, of which docs/guide.md has the table, and two more, as no value could be sent
    otherwise: numbers have 2, 4 or 8 bytes, and with I and S 2."""

    name: str
    key: str
    groups: Mapping[str, Mapping[str, Attribute]]
    type: str = "NODP"
    help: str = ""
    text: str = field(init=False, repr=False)

    def __post_init__(self) -> None:
        _check_name("application name", self.name, _MAX_APPLICATION_BYTES)
        _check_name("application key", self.key, _KEY_BYTES)
        if len(self.key.encode()) != _KEY_BYTES:
            raise ValueError(f"the application key {self.key!r} has to have {_KEY_BYTES} characters")
        if self.type not in TYPES:
            raise ValueError(f"the type {self.type!r} is none of {', '.join(TYPES)}")
        _check_part("help", self.help)
        if not self.groups:
            raise ValueError(f"the application {self.name!r} has no group")
        for group, attributes in self.groups.items():
            _check_group(group, attributes)
        object.__setattr__(self, "groups", {name: dict(attributes) for name, attributes in self.groups.items()})
        object.__setattr__(self, "text", self._build_text())

    @classmethod
    def of(cls, application: RegistrationLike) -> Registration:
        """The registration that is meant by one, by a registration text, by a mapping
        {"name", "key", "type", "help", "groups": {GROUP: {ATTRIBUTE: number(...) or text(...)}}}, or
        by a class: its `key`, its `name` or else its own name in capitals, its `type`, its
        documentation's first line as help, and each class inside it as a group whose attributes are
        those of the class that `number` and `text` made."""
        if isinstance(application, Registration):
            return application
        if isinstance(application, str):
            return cls.parse(application)
        if isinstance(application, Mapping):
            unknown = set(application) - {"name", "key", "type", "help", "groups"}
            if unknown:
                raise ValueError(f"a registration has no {', '.join(map(repr, sorted(unknown)))}")
            missing = [key for key in ("name", "key", "groups") if key not in application]
            if missing:
                raise ValueError(f"the registration lacks {', '.join(map(repr, missing))}")
            return cls(**application)
        if isinstance(application, type):
            return _of_class(application)
        raise TypeError(f"a registration is a text, a mapping or a class, not {type(application).__name__}")

    @classmethod
    def parse(cls, registration: str) -> Registration:
        """Reads a registration text, such as
        "appl:HOSTMON,HMN; type:SOCK; group:load; attr:load1,G,4,one minute;"."""
        found: dict[str, Any] = {}
        groups: dict[str, dict[str, Attribute]] = {}
        *clauses, rest = registration.split(";")
        if rest.strip(_BLANKS):
            raise ValueError(f"clause {len(clauses) + 1} <{rest.strip(_BLANKS)}>: no ';' at its end")
        for index, clause in enumerate(clauses, 1):
            try:
                _read_clause(clause, found, groups)
            except ValueError as error:
                raise ValueError(f"clause {index} <{clause.strip(_BLANKS)}>: {error}") from None
        if "name" not in found:
            raise ValueError("the registration text is empty")
        return cls(groups=groups, **found)

    def group(self, name: str | None) -> tuple[str, Mapping[str, Attribute]]:
        """A group's name and attributes; without a name those of the only group."""
        if name is None:
            if len(self.groups) > 1:
                raise ValueError(f"{self.name} has several groups, say which one: {', '.join(self.groups)}")
            name = next(iter(self.groups))
        if name not in self.groups:
            raise ValueError(f"{self.name} has no group {name!r}, it has: {', '.join(self.groups)}")
        return name, self.groups[name]

    def _build_text(self) -> str:
        clauses = [f"appl:{self.name},{self.key};"]
        if self.type != "NODP":
            clauses.append(f"type:{self.type};")
        if self.help:
            clauses.append(f"help:{self.help};")
        for group, attributes in self.groups.items():
            clauses.append(f"group:{group};")
            for name, each in attributes.items():
                help_part = f",{each.help}" if each.help else ""
                clauses.append(f"attr:{name},{each.letter},{each.size}{help_part};")
        built = "".join(clauses)
        length = len(built.encode()) + len(self.name.encode())
        if length > _MAX_TEXT_AND_NAME_BYTES:
            raise ValueError(
                f"the registration of {self.name} has {length} bytes with its name,"
                f" and at most {_MAX_TEXT_AND_NAME_BYTES} can be sent"
            )
        return built


def _of_class(application: type) -> Registration:
    groups = {
        name: {each: value for each, value in vars(inner).items() if isinstance(value, Attribute)}
        for name, inner in vars(application).items()
        if isinstance(inner, type)
    }
    parts: dict[str, Any] = {part: getattr(application, part) for part in ("key", "type") if hasattr(application, part)}
    if "key" not in parts:
        raise ValueError(f"the class {application.__name__} lacks a key")
    documentation = inspect.cleandoc(application.__doc__ or "").split("\n", maxsplit=1)[0]
    name = getattr(application, "name", application.__name__.upper())
    return Registration(name=name, help=without_delimiters(documentation), groups=groups, **parts)


RegistrationLike = Registration | str | Mapping[str, Any] | type


def without_delimiters(help_text: str) -> str:
    """A help text with a blank in place of each character that none may hold: , : ; ' and "."""
    return "".join(" " if each in ",:;'\"" else each for each in help_text).strip()


def check_attribute(name: str, attribute: Attribute) -> None:
    """Raises ValueError when no value could be sent for the attribute."""
    if not isinstance(attribute.size, int) or not 1 <= attribute.size <= _MAX_SIZE:
        raise ValueError(f"attribute {name!r}: the size {attribute.size!r} is not a number from 1 to {_MAX_SIZE}")
    if len(attribute.letter) != 1 or attribute.letter not in NUMBER_LETTERS + TEXT_LETTERS:
        raise ValueError(f"attribute {name!r}: the letter {attribute.letter!r} is none of {NUMBER_LETTERS}{TEXT_LETTERS}")
    if attribute.letter in "IS" and attribute.size != 2:
        raise ValueError(f"attribute {name!r}: a number of letter {attribute.letter} has size 2, not {attribute.size}")
    if not attribute.is_text and attribute.size not in (2, 4, 8):
        raise ValueError(f"attribute {name!r}: a number has size 2, 4 or 8, not {attribute.size}")


def _check_group(name: str, attributes: Mapping[str, Attribute]) -> None:
    _check_name("group name", name, _MAX_NAME_BYTES)
    if not attributes:
        raise ValueError(f"the group {name!r} has no attribute")
    for each, attribute in attributes.items():
        _check_name("attribute name", each, _MAX_NAME_BYTES)
        if not isinstance(attribute, Attribute):
            raise TypeError(f"attribute {each!r} of group {name!r}: made by number() or text(), not {attribute!r}")
        check_attribute(each, attribute)
        _check_part(f"help of attribute {each!r}", attribute.help)


def _check_name(what: str, name: str, longest: int) -> None:
    if not isinstance(name, str):
        raise TypeError(f"the {what} is a text, not {name!r}")
    size = len(name.encode())
    if not 1 <= size <= longest:
        raise ValueError(f"the {what} {name!r} has {size} bytes instead of 1 to {longest}")
    if any(ord(each) < 32 or ord(each) == 127 for each in name):
        raise ValueError(f"the {what} {name!r} holds a control character")
    _check_part(what, name)


def _check_part(what: str, part: str) -> None:
    if not isinstance(part, str):
        raise TypeError(f"the {what} is a text, not {part!r}")
    if any(each in part for each in ",:;'\"\0"):
        raise ValueError(f"the {what} {part!r} holds one of , : ; ' \" or a zero")
    if part != part.strip(_BLANKS):
        raise ValueError(f"the {what} {part!r} begins or ends with a blank")


def _read_clause(clause: str, found: dict[str, Any], groups: dict[str, dict[str, Attribute]]) -> None:
    keyword, colon, rest = clause.partition(":")
    keyword = keyword.strip(_BLANKS)
    parts = [part.strip(_BLANKS) for part in rest.split(",")]
    if not colon:
        raise ValueError("no ':' after the keyword")
    if (keyword == "appl") == bool(found):
        raise ValueError("appl appears twice" if found else "the first clause is not appl")
    if keyword == "appl":
        _require_parts(parts, 2, 2)
        found["name"], found["key"] = parts
    elif keyword in ("type", "help"):
        _require_parts(parts, 1, 1)
        if keyword in found:
            raise ValueError(f"{keyword} appears twice")
        found[keyword] = parts[0]
    elif keyword == "group":
        _require_parts(parts, 1, 1)
        if parts[0] in groups:
            raise ValueError("the group appears twice")
        groups[parts[0]] = {}
    elif keyword == "attr":
        _read_attribute(parts, groups)
    else:
        raise ValueError("unknown keyword")


def _read_attribute(parts: list[str], groups: dict[str, dict[str, Attribute]]) -> None:
    if not groups:
        raise ValueError("attribute before the first group")
    _require_parts(parts, 3, 4)
    attributes = groups[list(groups)[-1]]
    if parts[0] in attributes:
        raise ValueError("the attribute appears twice")
    if not (parts[2].isascii() and parts[2].isdigit()):
        raise ValueError(f"size is not a number from 1 to {_MAX_SIZE}")
    attributes[parts[0]] = Attribute(parts[1], int(parts[2]), parts[3] if len(parts) == 4 else "")


def _require_parts(parts: list[str], fewest: int, most: int) -> None:
    if not fewest <= len(parts) <= most:
        raise ValueError(f"{len(parts)} parts instead of {fewest if fewest == most else f'{fewest} or {most}'}")

"""The tables that the module has of the library's headers are theirs."""

from __future__ import annotations

import pickle
import re

import pytest
from server import SOURCE

import zord410
from zord410 import _library, errors, registration


def test_statuses_are_those_of_the_header() -> None:
    header = (SOURCE / "zordchcl/status.h").read_text(encoding="ascii")
    numbers = {name: int(number) for name, number in re.findall(r"^  DCH_STATUS_(\w+) = (\d+),$", header, re.M)}
    texts = dict(re.findall(r'^    \{DCH_STATUS_(\w+), "(.*)"\},$', header, re.M))
    assert len(numbers) > 10
    assert numbers == {status.name: status.value for status in zord410.Status}
    assert texts == {status.name: text for status, text in errors.STATUS_TEXTS.items()}


def test_limits_are_those_of_the_headers() -> None:
    header = (SOURCE / "zordchcl/zordchcl.h").read_text(encoding="ascii")
    limits = {name: int(number) for name, number in re.findall(r"^  DCH_(\w+) = (\d+)", header, re.M)}
    assert {name: limits[name] for name in ("MAX_APPL_NAME", "MAX_ATTR_GROUP", "MAX_SOURCE_NAME", "WORK_BUFFER_SIZE")} == {
        name: getattr(_library, name) for name in ("MAX_APPL_NAME", "MAX_ATTR_GROUP", "MAX_SOURCE_NAME", "WORK_BUFFER_SIZE")
    }
    types = re.search(r"The four-letter names.*?: (APIS[\w\s*]+)\.", (SOURCE / "zora/zora.h").read_text(encoding="ascii"), re.S)
    assert types and tuple(re.findall(r"[A-Z]{4}", types[1])) == registration.TYPES


def test_declarations_are_those_of_the_headers() -> None:
    """By the number of arguments, and where each is a pointer."""
    text = "".join((SOURCE / name).read_text(encoding="ascii") for name in ("zordchcl/zordchcl.h", "zora/zora.h"))
    declared = {
        name: arguments
        for name, arguments in re.findall(r"^[\w ]+[ *]+(\w+)\(([^)]*)\);", re.sub(r"/\*.*?\*/", "", text, flags=re.S), re.M)
    }
    for name, (_, types) in _library._FUNCTIONS.items():
        arguments = [] if declared[name] == "void" else declared[name].split(",")
        assert len(arguments) == len(types), name
        pointers = [each.__name__.startswith(("LP_", "c_char_p", "c_void_p")) for each in types]  # type: ignore[attr-defined]
        assert pointers == ["*" in argument for argument in arguments], name


def test_an_error_tells_its_status() -> None:
    error = zord410.StatusError("registration", 102)
    assert (error.status, error.name, error.request) == (102, "UNKNOWN_GROUP", "registration")
    assert str(error) == "registration failed: status 102 (unknown attribute group)"
    assert isinstance(error, zord410.Error)
    assert isinstance(errors.status_error("online", 5), zord410.NoAnswer)
    unknown = zord410.StatusError("online", 999)
    assert (unknown.name, str(unknown)) == ("UNKNOWN_STATUS", "online failed: status 999 (unknown status)")


@pytest.mark.parametrize("error", [zord410.StatusError("online", 101), zord410.NoAnswer("online")])
def test_an_error_goes_from_process_to_process(error: zord410.StatusError) -> None:
    copy = pickle.loads(pickle.dumps(error))
    assert (type(copy), str(copy), copy.status) == (type(error), str(error), error.status)

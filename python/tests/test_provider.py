"""Providers: what they send arrives as it was, in its order, and what cannot be sent is named."""

from __future__ import annotations

import threading
from typing import Any

import pytest
from server import Server

import zord410
from zord410 import number, text

LIMITS = {2: 2**15, 4: 2**31, 8: 2**63}
NUMBERS = {f"{letter}{size}": number(size, letter=letter) for letter in "ACGLN" for size in LIMITS} | {
    f"{letter}2": number(2, letter=letter) for letter in "IS"
}
TEXTS = {letter: text(16, letter=letter) for letter in "DRT"}


def application(name: str, **attributes: zord410.Attribute) -> dict[str, Any]:
    return {"name": name, "key": "TST", "groups": {"load": attributes or {"load1": number(4)}}}


def test_every_letter_and_width_arrives_as_it_was_sent(server: Server) -> None:
    extremes = [
        {name: value(LIMITS[each.size]) for name, each in NUMBERS.items()}
        for value in (lambda limit: -limit, lambda limit: limit - 1, lambda limit: 0, lambda limit: -1)
    ]
    rows: list[dict[str, Any]] = [*extremes, *({letter: each for letter in TEXTS} for each in ("", "a" * 15, "größe €", "\udcff", "a,b;\n"))]
    with zord410.Provider(application("WIDTHS", **NUMBERS, **TEXTS), "s") as provider:
        with zord410.subscribe("WIDTHS", "load", timeout=60) as came:
            for row in rows:
                provider.send(row)
            received = [next(came) for _ in rows]
    assert [dict(row) for row in received] == rows
    assert [list(row) for row in received] == [list(row) for row in rows], "the order of the attributes"
    assert {row.code for row in received} == {0}
    kept = server.rows("WIDTHS", "load", *NUMBERS, *TEXTS)
    assert kept[:4] == [(*row.values(), None, None, None) for row in extremes]
    assert [row[-3:] for row in kept[4:7]] == [("",) * 3, ("a" * 15,) * 3, ("größe €",) * 3]


@pytest.mark.parametrize(
    ("values", "kind", "message"),
    [
        ({"n2": 2**15}, ValueError, "attribute 'n2': 32768 is out of range, -32768 to 32767"),
        ({"n4": -(2**31) - 1}, ValueError, "attribute 'n4': -2147483649 is out of range, -2147483648 to 2147483647"),
        ({"n8": 2**63}, ValueError, "attribute 'n8': 9223372036854775808 is out of range"),
        ({"n4": 1.5}, TypeError, "attribute 'n4' takes a whole number, not 1.5"),
        ({"n4": "17"}, TypeError, "attribute 'n4' takes a whole number, not '17'"),
        ({"n4": None}, TypeError, "attribute 'n4' takes a whole number, not None"),
        ({"t": 17}, TypeError, "attribute 't' takes a text, not 17"),
        ({"t": b"17"}, TypeError, "attribute 't' takes a text, not b'17'"),
        ({"t": "größe789"}, ValueError, "attribute 't': the text has 10 bytes in UTF-8, and at most 7 fit"),
        ({"t": "a\0"}, ValueError, "attribute 't': the text holds a zero"),
        ({"x": 1}, ValueError, "the group 'load' has no attribute 'x', it has: n2, n4, n8, t, long"),
        ({}, ValueError, "the row has no value"),
        ({"long": "x" * 4095}, ValueError, "the row takes 4144 bytes as a message, which holds 4096"),
    ],
)
def test_what_an_attribute_cannot_take_is_named_and_not_sent(
    server: Server, values: dict[str, Any], kind: type[Exception], message: str
) -> None:
    attributes = {"n2": number(2), "n4": number(4), "n8": number(8), "t": text(8), "long": text(4096)}
    with zord410.Provider(application("WRONG", **attributes), "s") as provider:
        before = len(server.rows("WRONG", "load", "n2"))
        with pytest.raises(kind) as error:
            provider.send(values)
        assert message in str(error.value)
        provider.send(n2=1)
        assert len(server.rows("WRONG", "load", "n2")) == before + 1


def test_the_largest_row_fits(server: Server) -> None:
    with zord410.Provider(application("LARGEST", long=text(4096)), "s") as provider:
        provider.send(long="x" * 4047)  # 4096 bytes as a message
        with pytest.raises(ValueError, match="the row takes 4097 bytes"):
            provider.send(long="x" * 4048)
    assert server.rows("LARGEST", "load", "long") == [("x" * 4047,)]


def test_several_sources_and_groups(server: Server) -> None:
    groups = {"name": "SEVERAL", "key": "SEV", "groups": {"load": {"n": number(4)}, "air": {"n": number(4)}}}
    with zord410.Provider(groups) as provider:
        sources = [provider.source(source, group) for source in ("one", "two") for group in ("load", "air")]
        assert provider.source("one", "air") is sources[1]
        for value, source in enumerate(sources):
            source.send(n=value)
        sources[0].close()
        with pytest.raises(ValueError, match="the source 'one' is off line"):
            sources[0].send(n=1)
        provider.source("one", "load").send(n=9)
        with pytest.raises(ValueError, match="SEVERAL has several groups, say which one: load, air"):
            provider.source("three")
        with pytest.raises(ValueError, match="SEVERAL has no group 'sky', it has: load, air"):
            provider.source("three", "sky")
        with pytest.raises(ValueError, match="has 33 bytes instead of 1 to 32"):
            provider.source("x" * 33, "air")
        with pytest.raises(ValueError, match="made without a source"):
            provider.send(n=1)
        (found,) = zord410.applications("SEVERAL")
        assert found.online == 4
    assert server.rows("SEVERAL", "load", "source", "n") == [("one", 0), ("two", 2), ("one", 9)]
    assert server.rows("SEVERAL", "air", "source", "n") == [("one", 1), ("two", 3)]
    assert zord410.applications("SEVERAL") == []
    with pytest.raises(ValueError, match="the provider of SEVERAL is closed"):
        provider.source("one", "load")


def test_an_application_that_is_kept_stays_registered(server: Server) -> None:
    del server
    zord410.Provider(application("KEPT"), "s", keep=True).close()
    (found,) = zord410.applications("KEPT")
    assert found.online == 0
    zord410.Provider(application("KEPT")).close()
    assert zord410.applications("KEPT") == []


def test_each_thread_has_a_provider_and_a_subscription_of_its_own(server: Server) -> None:
    del server
    count, rows = 6, 200
    problems: list[BaseException] = []

    def run(index: int) -> None:
        try:
            with zord410.Provider(application(f"THREAD{index}"), "s") as provider:
                with zord410.subscribe(f"THREAD{index}", "load", timeout=60) as came:
                    for value in range(rows):
                        provider.send(load1=index * rows + value)
                    received = [next(came)["load1"] for _ in range(rows)]
            assert received == list(range(index * rows, (index + 1) * rows))
        except BaseException as error:  # pylint: disable=broad-exception-caught
            problems.append(error)

    threads = [threading.Thread(target=run, args=(index,)) for index in range(count)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not problems


def test_threads_share_a_source(server: Server) -> None:
    with zord410.Provider(application("SHARED"), "s") as provider:

        def run(first: int) -> None:
            for value in range(first, first + 100):
                provider.send(load1=value)

        threads = [threading.Thread(target=run, args=(first,)) for first in (0, 1000, 2000)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    kept = [row[0] for row in server.rows("SHARED", "load", "load1")]
    for first in (0, 1000, 2000):
        assert [value for value in kept if first <= value < first + 1000] == list(range(first, first + 100))


def test_a_row_that_the_dch_refuses(server: Server) -> None:
    """As somebody else has registered other attributes meanwhile."""
    del server
    with zord410.Provider(application("CHANGED"), "s") as provider:
        with zord410.Provider(application("CHANGED", other=number(4)), keep=True):
            with pytest.raises(zord410.StatusError) as error:
                provider.send(load1=1)
        assert (error.value.status, error.value.name) == (103, "UNKNOWN_ATTRIBUTE")
        assert str(error.value) == "sending a row failed: status 103 (unknown attribute)"


def test_an_application_that_was_unregistered_is_registered_again(server: Server) -> None:
    with zord410.Provider(application("AGAIN"), "s") as provider:
        provider.send(load1=1)
        zord410.Provider(application("AGAIN")).close()
        provider.send(load1=2)
    assert server.rows("AGAIN", "load", "load1") == [(1,), (2,)]

"""Registrations from classes, mappings and texts, and what none may be."""

from __future__ import annotations

from typing import Any

import pytest

from zord410 import Attribute, Registration, number, text

TEXT = "appl:HOSTMON,HMN;type:SOCK;help:What a host is doing;group:load;attr:load1,G,4,one minute;attr:note,D,64;group:net;attr:sent,N,8;"


class Hostmon:
    """What a host is doing

    More of it.
    """

    key = "HMN"
    type = "SOCK"

    class load:
        load1 = number(4, "one minute", letter="G")
        note = text(64)

    class net:
        sent = number(8)
        limit = 3  # no attribute


MAPPING = {
    "name": "HOSTMON",
    "key": "HMN",
    "type": "SOCK",
    "help": "What a host is doing",
    "groups": {"load": {"load1": number(4, "one minute", "G"), "note": text(64)}, "net": {"sent": number(8)}},
}


@pytest.mark.parametrize("application", [Hostmon, MAPPING, TEXT, TEXT.replace(";", " ;\n ").replace(",", " , ")])
def test_each_form_is_the_same_registration(application: Any) -> None:
    registration = Registration.of(application)
    assert registration.text == TEXT
    assert registration.groups["load"]["load1"] == Attribute("G", 4, "one minute")
    assert Registration.of(registration) is registration
    assert Registration.of(registration.text) == registration


WRONG_TEXTS = {
    "": "the registration text is empty",
    "appl:A,KEY": "clause 1 <appl:A,KEY>: no ';' at its end",
    "group:g;": "clause 1 <group:g>: the first clause is not appl",
    "appl:A;": "clause 1 <appl:A>: 1 parts instead of 2",
    "appl:A,KEY;appl:A,KEY;": "clause 2 <appl:A,KEY>: appl appears twice",
    "appl:A,KEY;attr:a,N,4;": "clause 2 <attr:a,N,4>: attribute before the first group",
    "appl:A,KEY;group:g;attr:a,N;": "2 parts instead of 3 or 4",
    "appl:A,KEY;group:g;attr:a,N,x;": "size is not a number from 1 to 4096",
    "appl:A,KEY;group:g;attr:a,N,4;attr:a,N,4;": "the attribute appears twice",
    "appl:A,KEY;group:g;attr:a,N,4;group:g;": "the group appears twice",
    "appl:A,KEY;nonsense;": "no ':' after the keyword",
    "appl:A,KEY;what:x;": "unknown keyword",
    "appl:A,KEY;": "the application 'A' has no group",
    "appl:A,KEY;group:g;": "the group 'g' has no attribute",
    "appl:A,KE;group:g;attr:a,N,4;": "the application key 'KE' has to have 3 characters",
    "appl:A,KEY;type:ABCD;group:g;attr:a,N,4;": "the type 'ABCD' is none of APIS",
    "appl:A,KEY;group:g;attr:a,Q,4;": "the letter 'Q' is none of",
    "appl:A,KEY;group:g;attr:a,N,3;": "attribute 'a': a number has size 2, 4 or 8, not 3",
    "appl:A,KEY;group:g;attr:a,I,4;": "attribute 'a': a number of letter I has size 2, not 4",
    "appl:A,KEY;group:g;attr:a,D,4097;": "attribute 'a': the size 4097 is not a number from 1 to 4096",
    f"appl:{'A' * 21},KEY;group:g;attr:a,N,4;": "has 21 bytes instead of 1 to 20",
    f"appl:A,KEY;group:{'g' * 33};attr:a,N,4;": "has 33 bytes instead of 1 to 32",
    "appl:A,KEY;group:g;" + "".join(f"attr:{i:032},N,4;" for i in range(100)): "and at most 4061 can be sent",
}


@pytest.mark.parametrize("wrong", WRONG_TEXTS)
def test_a_wrong_text_is_named(wrong: str) -> None:
    with pytest.raises(ValueError) as error:
        Registration.of(wrong)
    assert WRONG_TEXTS[wrong] in str(error.value)


@pytest.mark.parametrize(
    ("wrong", "kind", "message"),
    [
        ({**MAPPING, "attributes": {}}, ValueError, "a registration has no 'attributes'"),
        ({"name": "A"}, ValueError, "the registration lacks 'key', 'groups'"),
        ({**MAPPING, "groups": {"load": {"load1": 4}}}, TypeError, "attribute 'load1' of group 'load'"),
        ({**MAPPING, "help": "a;b"}, ValueError, "the help 'a;b' holds one of"),
        ({**MAPPING, "name": "a\nb"}, ValueError, "control character"),
        ({**MAPPING, "name": " a"}, ValueError, "begins or ends with a blank"),
        ({**MAPPING, "key": "äbc"}, ValueError, "the application key 'äbc' has 4 bytes"),
        (17, TypeError, "a registration is a text, a mapping or a class, not int"),
        (type("Empty", (), {}), ValueError, "the class Empty lacks a key"),
        (type("Empty", (), {"key": "EMP"}), ValueError, "the application 'EMPTY' has no group"),
    ],
)
def test_a_wrong_application_is_named(wrong: Any, kind: type[Exception], message: str) -> None:
    with pytest.raises(kind, match=message):
        Registration.of(wrong)

"""What the DCH knows: applications with their groups, attributes and help."""

from __future__ import annotations

import warnings
from collections.abc import Mapping
from dataclasses import dataclass

from . import _requests
from ._calls import call
from .registration import Attribute

_TRUNCATED = "#truncated"


@dataclass(frozen=True)
class Application:
    """An application that is registered.

    name, key, type: as it registered
    online:          how many of its sources are on line; a source counts once for each of its groups
    help:            its help text, which may be empty
    groups:          {GROUP: {ATTRIBUTE: Attribute}}, in the order of the registration
    """

    name: str
    key: str
    type: str
    online: int
    help: str
    groups: Mapping[str, Mapping[str, Attribute]]


def applications(name: str | None = None, *, timeout: int = 30) -> list[Application]:
    """The applications that the DCH knows, or the one of that name; empty when there is none.

    timeout: seconds to wait for each answer, 1 to 32767: one for the list, then two for each
             application

    Raises NoAnswer, and StatusError for a question that could not be asked. A RuntimeWarning tells
    when the DCH cut a list as it was too long; what was cut is not there.
    """
    if not 1 <= timeout <= 32767:
        raise ValueError(f"the timeout {timeout} is not 1 to 32767 seconds")
    return call(lambda: _applications(name, timeout))


def _applications(name: str | None, timeout: int) -> list[Application]:
    found = []
    for line in _lines("dc_getApplications", name, timeout):
        # The groups between are asked for with their attributes: their names may hold blanks.
        application, key, kind, rest = line.split(",", 3)
        online = int(rest.rpartition(",")[2])
        groups: dict[str, dict[str, Attribute]] = {}
        for attribute in _lines("dc_getApplAttributes", application, timeout):
            group, each, letter, size, text = attribute.split(",", 4)
            groups.setdefault(group, {})[each] = Attribute(letter, int(size), text)
        if groups:  # else it went in the meantime
            text = _requests.ask_catalogue("dc_getApplHelp", application, timeout).rstrip("\n")
            found.append(Application(application, key, kind, online, text, groups))
    return found


def _lines(function: str, application: str | None, timeout: int) -> list[str]:
    lines = _requests.ask_catalogue(function, application, timeout).split("\n")
    if _TRUNCATED in lines:
        warnings.warn(f"the DCH cut its answer to {function}: it is not whole", RuntimeWarning, stacklevel=5)
        lines = lines[: lines.index(_TRUNCATED)]
    return [line for line in lines if line]

"""The requests, a function each: they take and give Python's values, wait for the answer, and raise
StatusError or NoAnswer. To be run by _calls.call."""

from __future__ import annotations

import ctypes
import time
from ctypes import byref, c_int, c_void_p

from ._library import library, libc
from .errors import Status, StatusError, status_error
from .values import Encoded

_PULSE_SECONDS = 1


def register(text: str) -> None:
    status = c_int()
    _require_done("registration", library().dp_register(byref(status), text.encode()), status)


def go_online(application: str, group: str, source: str) -> int:
    """Takes a source on line; returns its handle."""
    status, handle = c_int(), c_int()
    result = library().dp_online(byref(status), byref(handle), application.encode(), group.encode(), source.encode())
    _require_done("going on line", result, status)
    return handle.value


def go_offline(handle: int) -> None:
    status = c_int()
    _require_done("going off line", library().dp_offline(byref(status), handle), status)


def unregister(application: str) -> None:
    status = c_int()
    _require_done("unregistration", library().dp_unregister(byref(status), application.encode()), status)


class WorkBuffer:
    """Where one row after the other is built. One thread at a time.

    The library takes the buffer with each row that is sent. One that it leaves, as it had no memory,
    is used again: there is no other way to give it back.
    """

    def __init__(self) -> None:
        self._buffer = c_void_p()

    def send(self, handle: int, row: list[Encoded]) -> None:
        loaded = library()
        status, size = c_int(), c_int(0)
        buffer = byref(self._buffer)
        for name, letter, value in row:
            result = loaded.dp_formatData(byref(status), buffer, byref(size), name, value, len(value), letter)
            _require_done("building a row", result, status)
        _require_done("sending a row", loaded.dp_data(byref(status), handle, 0, buffer), status)


def _require_done(request: str, result: int, status: c_int) -> None:
    if result == 0 and status.value == Status.OK:
        return
    # Without memory for the request the status says nothing.
    raise status_error(request, status.value or Status.NO_STORAGE)


def pulse() -> bool:
    """Whether the DCH is there. Waits at most a second, or a little more."""
    # No application has an empty name, so that the answer is empty, which counts as a failure: the
    # time that it takes tells it from none.
    start = time.monotonic()
    length, buffer = c_int(), c_void_p()
    library().dc_getApplHelp(byref(length), byref(buffer), b"", _PULSE_SECONDS)
    libc.free(buffer)
    return time.monotonic() - start < _PULSE_SECONDS


def ask_catalogue(function: str, application: str | None, seconds: int) -> str:
    """What one of the dc_get functions answers; it may be empty. Raises StatusError or NoAnswer."""
    length, buffer = c_int(), c_void_p()
    name = None if application is None else application.encode()
    start = time.monotonic()
    result = getattr(library(), function)(byref(length), byref(buffer), name, seconds)
    if result == 0:
        if not buffer:
            raise StatusError("question", Status.NO_STORAGE)
        try:
            return ctypes.string_at(buffer, length.value).decode("utf-8", "surrogateescape")
        finally:
            libc.free(buffer)
    if time.monotonic() - start >= seconds:
        raise status_error("question", Status.NO_ANSWER)
    # An empty answer counts as a failure too. It was one when the DCH can be reached: no source has
    # the handle 0.
    try:
        go_offline(0)
    except StatusError as error:
        if error.status != Status.UNKNOWN_HANDLE:
            raise
    return ""


def start_action(kind: int, owner: str, node: str, subnode: str, name: str, number: int, parameters: str | None) -> bool:
    """Asks for an action. Whether the request was sent. There is no answer, so that it does not wait."""
    texts = [text.encode() for text in (owner, node, subnode, name)]
    encoded = None if parameters is None else parameters.encode()
    result: int = library().dc_provideAction(kind, *texts, number, encoded)
    return result == 0


def action_result(number: int) -> int:
    """The result of an action, -1 when none came."""
    result: int = library().dc_waitForActionResults(number)
    return result

"""What can go wrong, as exceptions with the number and the name of the status."""

from __future__ import annotations

import enum


class Status(enum.IntEnum):
    """The status values of the channel. 1 to 5 arise on this side, those from 100 on are the DCH's."""

    OK = 0
    BAD_ARGUMENT = 1
    MISSING_FIELD = 2
    NULL_ARGUMENT = 3
    NO_STORAGE = 4
    NO_ANSWER = 5
    MALFORMED = 100
    UNKNOWN_APPLICATION = 101
    UNKNOWN_GROUP = 102
    UNKNOWN_ATTRIBUTE = 103
    UNKNOWN_HANDLE = 104
    NOT_STORED = 105
    UNKNOWN_ACTION = 106


STATUS_TEXTS = {
    Status.OK: "done",
    Status.BAD_ARGUMENT: "bad argument, or no status in the answer",
    Status.MISSING_FIELD: "not sent whole, or a field missing in the answer",
    Status.NULL_ARGUMENT: "a required text is null",
    Status.NO_STORAGE: "no memory, or no work buffer",
    Status.NO_ANSWER: "no answer from the DCH",
    Status.MALFORMED: "malformed message",
    Status.UNKNOWN_APPLICATION: "unknown application",
    Status.UNKNOWN_GROUP: "unknown attribute group",
    Status.UNKNOWN_ATTRIBUTE: "unknown attribute",
    Status.UNKNOWN_HANDLE: "unknown handle",
    Status.NOT_STORED: "not stored",
    Status.UNKNOWN_ACTION: "unknown action",
}


class Error(Exception):
    """The base of all that this module raises, but for ValueError and TypeError on what the caller
    gave, TimeoutError where a time-out was given, and RuntimeError after a fork."""


class SettingsError(Error):
    """The library cannot be used: it is not there, or a setting in the environment is wrong."""


class SubscriptionError(Error):
    """A subscription could not be sent."""


class StatusError(Error):
    """A request that the DCH refused or that failed on this side.

    request: what was asked for, such as "registration"
    status:  the number, as of `Status`, or one that it does not know
    name:    its name there, such as "UNKNOWN_GROUP", or "UNKNOWN_STATUS"
    """

    def __init__(self, request: str, status: int) -> None:
        self.request = request
        self.status = status
        try:
            known = Status(status)
            self.name, text = known.name, STATUS_TEXTS[known]
        except ValueError:
            self.name, text = "UNKNOWN_STATUS", "unknown status"
        super().__init__(request, status)
        self._message = f"{request} failed: status {status} ({text})"

    def __str__(self) -> str:
        return self._message


class NoAnswer(StatusError):
    """The DCH did not answer in time. The request may have been done nevertheless."""

    def __init__(self, request: str, status: int = Status.NO_ANSWER) -> None:
        super().__init__(request, status)


def status_error(request: str, status: int) -> StatusError:
    """The exception for a status that is not 0."""
    return NoAnswer(request) if status == Status.NO_ANSWER else StatusError(request, status)

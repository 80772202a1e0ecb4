"""Changes of the status of providers, as an iterator."""

from __future__ import annotations

import ctypes
import threading
import time
from ctypes import byref, c_ulong, c_void_p
from dataclasses import dataclass

from . import _requests
from ._calls import call
from ._feed import Feed
from ._library import library, libc
from ._upkeep import CHECK_SECONDS, Upkeep
from .errors import SubscriptionError

# Each renewal makes the DCH tell of all that is on line once more, so it is not done too often.
_SILENCE_SECONDS = 30.0
_CHANGES_WAITING = 100_000
# Each subscription that cannot be sent leaves a socket behind.
_TRIES = 3
# So often the end is looked for.
_LOOK_SECONDS = 0.25
# For so long a change that has come may be on its way through the thread that waits for it: in short
# looks, of which a process that stands still loses one. Much longer, and what is on line might fill a
# new handle that nobody reads.
_SETTLE_LOOKS = 4
_SETTLE_SECONDS = 0.025
_CHANGES = {"4112": "registered", "4117": "online", "4133": "offline", "4128": "unregistered"}


class Timespec(ctypes.Structure):
    """struct timespec."""

    _fields_ = [("seconds", ctypes.c_long), ("nanoseconds", ctypes.c_long)]


_CLOCK_MONOTONIC = 1
_CANCELLED = c_void_p(-1).value  # PTHREAD_CANCELED
libc.pthread_create.argtypes = [ctypes.POINTER(c_ulong), c_void_p, c_void_p, c_void_p]
libc.pthread_clockjoin_np.argtypes = [c_ulong, ctypes.POINTER(c_void_p), ctypes.c_int, ctypes.POINTER(Timespec)]
libc.pthread_cancel.argtypes = [c_ulong]
libc.pthread_join.argtypes = [c_ulong, ctypes.POINTER(c_void_p)]


@dataclass(frozen=True)
class StatusChange:
    """What became of a provider.

    change: "registered", "online", "offline" or "unregistered", or the number of a request that this
            version does not know
    group, source: empty where the change is one of the application as a whole
    """

    change: str
    application: str
    group: str
    source: str


class _Wait:
    """A wait for the next change. No call breaks one, and Python's threads cannot be cancelled: so it
    is a thread of the system's, which runs the library's function and nothing else."""

    def __init__(self, handle: int) -> None:
        self._thread = c_ulong()
        function = ctypes.cast(library().dc_waitForDPStatus, c_void_p)
        error = libc.pthread_create(byref(self._thread), None, function, handle)
        if error != 0:
            raise SubscriptionError(f"no thread to wait for a change of status: {error}")

    def result(self, seconds: float) -> str | None:
        """The text of the change, empty after a failure; None when it has not come in that time."""
        until = time.monotonic() + seconds
        end = Timespec(int(until), int(until % 1 * 1e9))
        text = c_void_p()
        if libc.pthread_clockjoin_np(self._thread, byref(text), _CLOCK_MONOTONIC, byref(end)) != 0:
            return None
        return _copied(text)

    def cancel(self) -> str | None:
        """Ends the wait. Returns the change that had come by then."""
        text = c_void_p()
        libc.pthread_cancel(self._thread)
        libc.pthread_join(self._thread, byref(text))
        return None if text.value == _CANCELLED else _copied(text)


def _copied(text: c_void_p) -> str:
    return ctypes.string_at(text).decode("utf-8", "surrogateescape") if text else ""


class StatusChanges(Feed[StatusChange]):
    """Changes of status as they come: what `status_changes` gives. An iterator and a context manager.
    Any thread may iterate or close."""

    def __init__(self, timeout: float | None) -> None:
        super().__init__("change of status", _CHANGES_WAITING, timeout)
        self._upkeep = Upkeep("changes of status", _SILENCE_SECONDS)
        # What is known to be on line: a DCH that is asked again tells of it again.
        self._online: set[tuple[str, str, str]] = set()
        if not _only_one.acquire(blocking=False):
            raise SubscriptionError("another status_changes() of this process is open, and there can be only one")
        try:
            handle = call(_subscribe)
            if handle is None:
                raise SubscriptionError("the subscription to changes of status could not be sent")
            self._handle: int = handle
            try:
                call(_requests.pulse)  # the DCH has come to the subscription when it has answered
            except BaseException:
                library().dc_waitForDPStatusDestroy(handle)
                raise
            self._start(self._receive, "zord410 changes of status")
        except BaseException:
            _only_one.release()
            raise

    # On the thread that receives.

    def _receive(self) -> None:
        try:
            wait = _Wait(self._handle)
            while not self._closing.is_set():
                text = wait.result(_LOOK_SECONDS)
                if text is None:
                    if self._upkeep.is_due():
                        wait = self._renew(wait)
                    continue
                if text:
                    self._take(text)
                else:
                    self._replace(self._subscribe_again())
                wait = _Wait(self._handle)
            wait.cancel()
        except SubscriptionError as error:
            message = str(error)
            self._mailbox.fail(lambda: SubscriptionError(message))
        finally:
            library().dc_waitForDPStatusDestroy(self._handle)
            _only_one.release()

    def _take(self, text: str) -> None:
        self._upkeep.message_came()
        change = _parse(text)
        source = (change.application, change.group, change.source)
        if change.change != "online":
            self._online.discard(source)
        elif source in self._online:
            return
        else:
            self._online.add(source)
        self._mailbox.put(change)

    def _renew(self, wait: _Wait) -> _Wait:
        """Goes over to a new subscription, unless a change shows that the one before it lives.

        What comes over the old one before the DCH has the new one, comes over that alone; what comes
        later, over both. So it is the one or the other whose changes are told, and where the old one
        has some, it is the old one. What is on line is told again over the new one, and is no change.
        """
        handle = _subscribe()
        if handle is None:
            return wait  # the next silence is the next chance
        # The DCH may answer a question sooner than it takes a subscription that came shortly before, but
        # not one that is asked after that answer.
        if not (_requests.pulse() and _requests.pulse()):
            library().dc_waitForDPStatusDestroy(handle)
            return wait
        text = self._change_over(wait)
        if text:
            library().dc_waitForDPStatusDestroy(handle)
            self._take(text)
        else:
            self._replace(handle)
        return _Wait(self._handle)

    def _change_over(self, wait: _Wait) -> str | None:
        """The change that has come, if one has. Ends the wait."""
        for _ in range(_SETTLE_LOOKS):
            text = wait.result(_SETTLE_SECONDS)
            if text is not None:
                return text
        return wait.cancel()

    def _replace(self, handle: int) -> None:
        before, self._handle = self._handle, handle
        library().dc_waitForDPStatusDestroy(before)

    def _subscribe_again(self) -> int:
        for number in range(_TRIES):
            if number > 0:
                self._closing.wait(CHECK_SECONDS)
            handle = _subscribe()
            if handle is not None:
                return handle
        raise SubscriptionError("cannot subscribe to changes of status again")


# The library keeps the text of a change where the next wait, of whichever handle, overwrites it.
_only_one = threading.Lock()


def status_changes(*, timeout: float | None = None) -> StatusChanges:
    """Follows providers that come and go; begins with what is on line.

        with zord410.status_changes() as changes:
            for change in changes:
                print(change.change, change.application, change.group, change.source)

    timeout: seconds without a change after which iterating raises TimeoutError; None waits on

    A process can have one at a time: SubscriptionError when there is another. When the DCH dies and
    starts anew this subscribes again within some seconds, as it does after each silence of half a
    minute; changes before that are missed. Where the DCH lives no change is missed or comes twice for
    it. Ctrl-C, or `close` on any thread, ends the iteration.
    """
    return StatusChanges(timeout)


def _subscribe() -> int | None:
    handle: int | None = library().dc_waitForDPStatusInitialize()
    return handle


def _parse(text: str) -> StatusChange:
    # Commas inside names are as they are, but the first two names of a registration have none.
    application, group, rest = text.split(",", 2)
    source, _, code = rest.rpartition(",")
    return StatusChange(_CHANGES.get(code, code), application, group, source)

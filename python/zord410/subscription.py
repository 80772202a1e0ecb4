"""Data consumers: the rows of a group, as an iterator."""

from __future__ import annotations

import collections
import ctypes
import logging
import threading
import time

from . import _requests
from ._calls import call, start_quiet_thread
from ._feed import Feed
from ._library import MAX_APPL_NAME, MAX_ATTR_GROUP, library
from ._upkeep import CHECK_SECONDS, Upkeep
from .errors import SubscriptionError
from .values import MalformedRow, Row, decode_row, is_data

_log = logging.getLogger("zord410")

_SILENCE_SECONDS = 5.0
_BUFFER_BYTES = 32767  # as much as a wait can be given
_ROWS_WAITING = 10_000  # for whoever iterates; more are the system's to keep
# For so long a row may come twice, over the old subscription and over the one in its place.
_OVERLAP_SECONDS = 2.5
# The DCH answers a question sooner than it takes a subscription that has come to another of its
# sockets shortly before. Much longer, and rows that come at once might fill a handle that nobody reads.
_SETTLE_SECONDS = 0.01
# Each subscription that cannot be sent leaves two sockets behind.
_TRIES = 3


class Subscription(Feed[Row]):
    """The rows of a group as they come: what `subscribe` gives. An iterator and a context manager.

    Threads: what comes is received on a thread of its own, which keeps up to 10,000 rows for whoever
    iterates. Any thread may iterate or close; each row goes to one of those that iterate.
    """

    def __init__(self, application: str, group: str, timeout: float | None) -> None:
        _check_name("application", application, MAX_APPL_NAME)
        _check_name("group", group, MAX_ATTR_GROUP)
        super().__init__(f"row of {application} {group}", _ROWS_WAITING, timeout)
        self.application = application
        self.group = group
        self._names = application.encode(), group.encode()
        self._upkeep = Upkeep(f"rows of {application} {group}", _SILENCE_SECONDS)
        self._overlap: collections.deque[bytes] = collections.deque()
        self._overlap_end = 0.0
        self._since_renewal = _no_rows()  # what has come since a renewal began
        self._handle_lock = threading.Lock()  # held to cancel and to replace handles, not to wait
        self._next: int | None = None
        handle = call(self._subscribe)
        if handle is None:
            raise SubscriptionError(f"the subscription to {application} {group} could not be sent")
        self._handle: int | None = handle
        try:
            # Until the DCH has answered a question it may not have come to the subscription.
            call(_requests.pulse)
        except BaseException:
            library().dc_waitOnDataDestroy(handle)
            raise
        self._start(self._receive, f"zord410 rows of {application} {group}")
        self._checker = start_quiet_thread(self._check, f"zord410 upkeep of {application} {group}")

    def _subscribe(self) -> int | None:
        handle: int | None = library().dc_waitOnDataInitialize(*self._names)
        return handle

    def _break_wait(self) -> None:
        with self._handle_lock:
            if self._handle is not None:
                library().dc_waitOnDataCancel(self._handle)

    # On the thread that checks.

    def _check(self) -> None:
        while not self._closing.wait(CHECK_SECONDS) and self._receiver.is_alive():
            if self._upkeep.is_due():
                self._renew()

    def _renew(self) -> None:
        """Subscribes anew, and has the receiver go over to the new handle when the DCH has it: no row
        is missed. Where it does not answer all stays as it is, until the next time."""
        with self._handle_lock:
            if self._next is not None:
                return
            self._since_renewal = collections.deque(maxlen=_ROWS_WAITING)
        handle = self._subscribe()
        if handle is None:
            return
        is_there = _requests.pulse()
        if is_there:
            self._closing.wait(_SETTLE_SECONDS)
        with self._handle_lock:
            if is_there and self._handle is not None and self._next is None:
                self._next = handle
                library().dc_waitOnDataCancel(self._handle)
            else:
                library().dc_waitOnDataDestroy(handle)
                self._since_renewal = _no_rows()

    # On the thread that receives.

    def _receive(self) -> None:
        buffer = ctypes.create_string_buffer(_BUFFER_BYTES)
        while not self._closing.is_set():
            result, message = self._wait(buffer)
            if result == 0 or is_data(message):
                self._take(message)
            elif result == 1 and not self._subscribe_again():
                self._mailbox.fail(lambda: SubscriptionError(f"{self.application} {self.group}: cannot subscribe again"))
                break
            elif self._next is not None:
                self._go_over(buffer)
        with self._handle_lock:
            for handle in (self._handle, self._next):
                if handle is not None:
                    library().dc_waitOnDataDestroy(handle)
            self._handle = self._next = None

    def _wait(self, buffer: ctypes.Array[ctypes.c_char]) -> tuple[int, bytes]:
        """The next message. With 0 it came from the DCH. With -1 this or an earlier wait was broken:
        it is what broke it, or a row. With 1 there is none, and the handle is of no more use."""
        result: int = library().dc_waitOnData(self._handle, buffer, _BUFFER_BYTES)
        return result, b"" if result == 1 else ctypes.string_at(buffer, int.from_bytes(ctypes.string_at(buffer, 4), "big"))

    def _take(self, message: bytes) -> None:
        self._upkeep.message_came()
        self._since_renewal.append(message)
        if self._came_before(message):
            return
        try:
            self._mailbox.put(decode_row(message))
        except MalformedRow as error:
            _log.warning("%s %s: a malformed message was skipped: %s", self.application, self.group, error)

    def _came_before(self, message: bytes) -> bool:
        """Whether it came over the handle before this one too. There it stood in the same order."""
        if self._overlap and time.monotonic() > self._overlap_end:
            self._overlap.clear()
        while self._overlap:
            if self._overlap.popleft() == message:
                return True
        return False

    def _go_over(self, buffer: ctypes.Array[ctypes.c_char]) -> None:
        """To the next handle, when all is taken that lies in the one from before."""
        # A wait that is broken before it begins does not wait, and takes the rows before the break.
        self._break_wait()
        while is_data(message := self._wait(buffer)[1]):
            self._take(message)
        with self._handle_lock:
            library().dc_waitOnDataDestroy(self._handle)
            self._handle, self._next = self._next, None
            self._overlap, self._since_renewal = self._since_renewal, _no_rows()
        self._overlap_end = time.monotonic() + _OVERLAP_SECONDS

    def _subscribe_again(self) -> bool:
        """In place of a handle that is of no more use."""
        for number in range(_TRIES):
            if number > 0:
                self._closing.wait(CHECK_SECONDS)
            handle = self._subscribe()
            if handle is not None:
                with self._handle_lock:
                    library().dc_waitOnDataDestroy(self._handle)
                    self._handle = handle
                return True
        return False


def subscribe(application: str, group: str, *, timeout: float | None = None) -> Subscription:
    """Subscribes to the rows of a group; the application need not be registered yet.

        with zord410.subscribe("HOSTMON", "load", timeout=60) as rows:
            for row in rows:
                print(row.handle, row["load1"])

    timeout: seconds without a row after which iterating raises TimeoutError; None waits on

    When the DCH dies and starts anew this subscribes again within some seconds, as it does after a
    silence; rows that were taken before that are missed. Where it is there, it has the subscription
    when this returns. Ctrl-C, or `close` on any thread, ends the iteration. Raises ValueError for a
    name that is too long, and SubscriptionError.
    """
    return Subscription(application, group, timeout)


def _no_rows() -> collections.deque[bytes]:
    """Keeps nothing of what is added."""
    return collections.deque(maxlen=0)


def _check_name(what: str, name: str, longest: int) -> None:
    size = len(name.encode())
    if not 1 <= size <= longest or "\0" in name:
        raise ValueError(f"the {what} {name!r} has {size} bytes instead of 1 to {longest}, or a zero")

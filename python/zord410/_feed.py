"""What subscriptions have in common: an iterator that a thread of its own feeds, until it is closed."""

from __future__ import annotations

import atexit
import os
import threading
from collections.abc import Callable
from types import TracebackType
from typing import Any, Generic, Self, TypeVar

from ._calls import start_quiet_thread
from ._mailbox import Mailbox

Item = TypeVar("Item")


class Feed(Generic[Item]):
    """An iterator and a context manager. Any thread may iterate or close; each item goes to one of
    those that iterate."""

    def __init__(self, item: str, capacity: int, timeout: float | None) -> None:
        self._item = item  # what one is called
        self._timeout = timeout
        self._mailbox: Mailbox[Item] = Mailbox(capacity)
        self._closing = threading.Event()
        self._receiver: threading.Thread

    def _start(self, receive: Callable[[], None], name: str) -> None:
        """Has `receive` fill the mailbox, until `_closing` is set."""
        self._receiver = start_quiet_thread(receive, name)
        _open_feeds.add(self)

    def _break_wait(self) -> None:
        """Has the receiver look at `_closing`, where it does not do so by itself."""

    def __iter__(self) -> Self:
        return self

    def __next__(self) -> Item:
        """Waits for the next one. Raises TimeoutError when none came for `timeout` seconds, after
        which the next call waits again; SubscriptionError when the subscription was lost for good.
        A subscription that is closed ends the iteration."""
        try:
            return self._mailbox.get(self._timeout)
        except TimeoutError:
            raise TimeoutError(f"no {self._item} came for {self._timeout} s") from None

    def close(self) -> None:
        """Ends the subscription, and the wait of those that iterate. What nobody has taken is
        dropped. Takes up to two seconds while the DCH is away. Does nothing when that was done."""
        self._mailbox.close()
        self._closing.set()
        self._break_wait()
        self._receiver.join()
        _open_feeds.discard(self)

    def __enter__(self) -> Self:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None
    ) -> None:
        self.close()


_open_feeds: set[Feed[Any]] = set()
# A child has none of the threads.
os.register_at_fork(after_in_child=_open_feeds.clear)


@atexit.register
def _close_all() -> None:
    """So that the DCH hears of the end of the process."""
    for feed in list(_open_feeds):
        feed.close()

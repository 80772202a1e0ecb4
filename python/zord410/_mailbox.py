"""What one thread has received, for those that iterate over it."""

from __future__ import annotations

import collections
import threading
import time
from collections.abc import Callable
from typing import Generic, TypeVar

Item = TypeVar("Item")


class Mailbox(Generic[Item]):
    """Keeps so many items; who has more waits. Any thread."""

    def __init__(self, capacity: int) -> None:
        self._capacity = capacity
        self._changed = threading.Condition()
        self._items: collections.deque[Item] = collections.deque()
        self._is_closed = False
        self._error: Callable[[], Exception] | None = None

    def put(self, item: Item) -> None:
        """Waits for room. What is put into a closed mailbox is dropped."""
        with self._changed:
            self._changed.wait_for(lambda: self._is_closed or len(self._items) < self._capacity)
            if not self._is_closed:
                self._items.append(item)
                self._changed.notify_all()

    def get(self, timeout: float | None) -> Item:
        """Waits for an item. Raises StopIteration when the mailbox is closed, TimeoutError after so
        many seconds, and what was given to `fail`, when the items before it are taken."""
        deadline = None if timeout is None else time.monotonic() + timeout
        with self._changed:
            while not self._items or self._is_closed:
                if self._is_closed:
                    raise StopIteration
                if self._error is not None:
                    raise self._error()
                left = None if deadline is None else deadline - time.monotonic()
                if left is not None and left <= 0:
                    raise TimeoutError
                self._changed.wait(left)
            item = self._items.popleft()
            self._changed.notify_all()
            return item

    def fail(self, error: Callable[[], Exception]) -> None:
        """Nothing more will come, for the reason that `error` makes."""
        with self._changed:
            self._error = error
            self._changed.notify_all()

    def close(self) -> None:
        """Whoever waits, or comes later, is told that it is over."""
        with self._changed:
            self._is_closed = True
            self._changed.notify_all()

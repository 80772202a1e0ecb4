"""What is open at the end of the process is closed, so that the DCH hears of it."""

from __future__ import annotations

import atexit
import os
from typing import Protocol


class Feed(Protocol):
    def close(self) -> None: ...


open_feeds: set[Feed] = set()
# A child has none of the threads.
os.register_at_fork(after_in_child=open_feeds.clear)


@atexit.register
def _close_all() -> None:
    for feed in list(open_feeds):
        feed.close()

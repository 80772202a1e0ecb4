"""Whether a subscription has to be made anew.

A DCH that has started anew knows no subscribers, and nobody tells them: they hear nothing. So a
subscriber that hears nothing asks each second whether the DCH is there, and subscribes again when it is
back, and after a longer silence, for the case that it died and came back between two questions.
"""

from __future__ import annotations

import logging
import time

from . import _requests

_log = logging.getLogger("zord410")

CHECK_SECONDS = 1.0
# One that is busy may leave a question for later.
_QUESTIONS_UNTIL_AWAY = 2


class Upkeep:
    """`message_came` is for the thread that receives, the rest for the one that checks."""

    def __init__(self, what: str, silence_seconds: float) -> None:
        self._what = what
        self._silence_seconds = silence_seconds
        self._heard = time.monotonic()
        self._checked = self._heard
        self._renewed = self._heard
        self._unanswered = 0  # questions in a row

    def message_came(self) -> None:
        self._heard = time.monotonic()

    def is_due(self) -> bool:
        """Asks after each second of silence, which takes up to a second. True when the subscription
        is to be made anew."""
        now = time.monotonic()
        if now - self._heard < CHECK_SECONDS:
            self._answered()
            return False
        if now - self._checked < CHECK_SECONDS:
            return False
        self._checked = now
        if not _requests.pulse():
            self._unanswered += 1
            if self._unanswered == _QUESTIONS_UNTIL_AWAY:
                _log.warning("%s: the DCH does not answer; trying again", self._what)
            return False
        is_back = self._answered()
        now = time.monotonic()
        if not is_back and now - max(self._heard, self._renewed) < self._silence_seconds:
            return False
        self._renewed = now
        return True

    def _answered(self) -> bool:
        """Whether it did not before."""
        if self._unanswered >= _QUESTIONS_UNTIL_AWAY:
            _log.warning("%s: the DCH answers again: subscribed again", self._what)
        was_away, self._unanswered = self._unanswered > 0, 0
        return was_away

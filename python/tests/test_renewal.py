"""Changes of status that come while the subscription to them is made anew."""

from __future__ import annotations

import threading
import time

import pytest
from scripted_dch import OFFLINE, ONLINE, REGISTERED, ScriptedDch
from server import PATIENCE_SECONDS, Program

# It is made anew at every silence, however short.
FOLLOWING = """
import zord410
from zord410 import _upkeep, changes
_upkeep.CHECK_SECONDS = 0.05
changes._SILENCE_SECONDS = 0
for change in zord410.status_changes():
    print(change.change, change.source)
"""
# Each is told at once of both subscriptions where there are two. The same comes twice, and a source that
# goes comes back, so that what is missed or told twice cannot be taken for something else.
CHANGES = [(OFFLINE, "a"), (ONLINE, "a"), (OFFLINE, "b"), (REGISTERED, ""), (REGISTERED, ""), (ONLINE, "b")]
LINES = ["offline a", "online a", "offline b", "registered", "registered", "online b"]


def start(dch: ScriptedDch, child: Program) -> None:
    for source in ("a", "b"):
        dch.tell(ONLINE, source)
        assert child.wait_for_line("").strip() == f"online {source}"


def lines_until_end(dch: ScriptedDch, child: Program) -> list[str]:
    dch.tell(REGISTERED, "end")
    lines = []
    while (line := child.wait_for_line("").strip()) != "registered end":
        lines.append(line)
    return lines


@pytest.mark.parametrize(("moment", "times"), [("asked", 1), ("taken", 1), ("answered", 10)])
def test_a_change_in_the_middle_of_a_renewal_is_told_once(moment: str, times: int) -> None:
    with ScriptedDch() as dch, Program(FOLLOWING, ZORA_DCH_PORT=str(dch.port)) as child:
        start(dch, child)
        told = []
        all_told = threading.Event()

        def tell_changes(now: str) -> None:
            if now != moment or len(told) == times:
                return
            for change in CHANGES:
                dch.tell(*change)
            told.append(now)
            if len(told) == times:
                all_told.set()
            time.sleep(0.1)  # mostly they have come over the old subscription before anything else

        dch.moment = tell_changes
        assert all_told.wait(PATIENCE_SECONDS)
        assert lines_until_end(dch, child) == LINES * times


def test_a_renewal_finds_what_came_on_line_while_the_subscription_was_lost() -> None:
    with ScriptedDch() as dch, Program(FOLLOWING, ZORA_DCH_PORT=str(dch.port)) as child:
        start(dch, child)
        dch.forget_subscribers()
        dch.tell(ONLINE, "new")
        assert child.wait_for_line("").strip() == "online new"
        for change in CHANGES:
            dch.tell(*change)
        assert lines_until_end(dch, child) == LINES

"""The catalogue, changes of status, and actions."""

from __future__ import annotations

import pytest
from server import Server, wait_until

import zord410
from zord410 import Action, NoAnswer, StatusChange, _requests, number, text

CATALOGUE = {
    "name": "CATALOGUE",
    "key": "CAT",
    "type": "FILE",
    "help": "What it is",
    "groups": {"two words": {"n": number(4, "a help"), "t": text(8, letter="R")}, "air": {"i": number(2, letter="I")}},
}


def test_applications_are_as_they_were_registered(server: Server) -> None:
    del server
    assert zord410.applications("CATALOGUE") == []
    with zord410.Provider(CATALOGUE) as provider:
        provider.source("one", "air")
        (found,) = zord410.applications("CATALOGUE")
        registration = provider.registration
        assert (found.name, found.key, found.type, found.help, found.online) == ("CATALOGUE", "CAT", "FILE", "What it is", 1)
        assert found.groups == registration.groups
        assert found in zord410.applications()
    with pytest.raises(ValueError, match="the timeout 0 is not 1 to 32767 seconds"):
        zord410.applications(timeout=0)


def test_an_answer_that_was_cut_is_told(server: Server, monkeypatch: pytest.MonkeyPatch) -> None:
    del server
    ask = _requests.ask_catalogue
    monkeypatch.setattr(_requests, "ask_catalogue", lambda function, *rest: ask(function, *rest) + "#truncated\n")
    with zord410.Provider(CATALOGUE), pytest.warns(RuntimeWarning, match="the DCH cut its answer to dc_getApplications"):
        assert [each.name for each in zord410.applications("CATALOGUE")] == ["CATALOGUE"]


def test_changes_of_status_begin_with_what_is_on_line(server: Server) -> None:
    del server
    with zord410.Provider("appl:COMES,COM; group:load; attr:n,N,4;") as provider:
        provider.source("one, two")
        with zord410.status_changes(timeout=60) as changes:
            assert next(changes) == StatusChange("online", "COMES", "load", "one, two")
            provider.source("three").close()
            assert next(changes) == StatusChange("online", "COMES", "load", "three")
            assert next(changes) == StatusChange("offline", "COMES", "load", "three")
            with pytest.raises(zord410.SubscriptionError, match="there can be only one"):
                zord410.status_changes()
            provider.close()
            assert next(changes) == StatusChange("offline", "COMES", "load", "one, two")
            assert next(changes) == StatusChange("unregistered", "COMES", "", "")
    with zord410.status_changes(timeout=0.1) as changes:
        with pytest.raises(TimeoutError, match="no change of status came for 0.1 s"):
            next(changes)


def test_changes_go_on_after_renewals(server: Server, monkeypatch: pytest.MonkeyPatch) -> None:
    before = server.log().count(" to provider status")
    with zord410.Provider("appl:RENEWED,REN; group:load; attr:n,N,4;") as provider:
        provider.source("before")
        with zord410.status_changes(timeout=60) as changes:
            assert next(changes) == StatusChange("online", "RENEWED", "load", "before")
            asked = []
            monkeypatch.setattr(changes._upkeep, "is_due", lambda: asked.append(1) or len(asked) <= 5)
            # Whoever asks once more has made it anew five times.
            wait_until(lambda: len(asked) > 5, "five renewals")
            provider.source("after").close()
            assert server.log().count(" to provider status") >= before + 6
            # What is on line was told anew each time, and is no change.
            assert next(changes) == StatusChange("online", "RENEWED", "load", "after")
            assert next(changes) == StatusChange("offline", "RENEWED", "load", "after")


def test_actions_have_results(server: Server) -> None:
    assert zord410.action("true", node="web1", owner="me").wait() == 0
    assert zord410.action("three", id=77).wait() == 3
    assert Action(77).wait() == 3, "the result is kept"
    assert zord410.action("no such").wait() == zord410.Status.UNKNOWN_ACTION
    zord410.action("three", parameters="LOGONID=x PASSWORD=y", kind=-5, subnode="web1:HMN00", id=-2147483648).wait()
    server.wait_for_log("-2147483648")


def test_a_result_that_does_not_come(server: Server, monkeypatch: pytest.MonkeyPatch) -> None:
    del server
    monkeypatch.setattr(_requests, "action_result", lambda number: -1)
    with pytest.raises(TimeoutError, match="no result of action 5 came in time"):
        Action(5).wait()
    monkeypatch.setattr(_requests, "pulse", lambda: False)
    with pytest.raises(NoAnswer, match=r"waiting for an action failed: status 5 \(no answer from the DCH\)"):
        Action(5).wait()


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        ({"kind": 32768}, "the kind 32768 is out of range, -32768 to 32767"),
        ({"id": 2**31}, "the id 2147483648 is out of range, -2147483648 to 2147483647"),
        ({"owner": "a\0"}, "the owner of the action holds a zero"),
        ({"parameters": "x" * 4028}, "the texts of the action have 4032 bytes, and at most 4031 can be sent"),
    ],
)
def test_what_no_action_can_have(arguments: dict[str, object], message: str) -> None:
    with pytest.raises(ValueError, match=message):
        zord410.action("true", **arguments)  # type: ignore[arg-type]


def test_the_longest_action_is_sent(server: Server) -> None:
    del server
    assert zord410.action("true", parameters="x" * 4027).wait() == 0

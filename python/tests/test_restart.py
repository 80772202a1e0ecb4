"""What goes on when the server dies and starts anew."""

from __future__ import annotations

import itertools
from pathlib import Path

import pytest
from server import Program, Server

import zord410

# The tests are about requests that get no answer; those that do get it, also from a machine that stands
# still for two seconds.
TIMEOUT = {"ZORA_DCH_TIMEOUT": "3"}

LOG = "import logging, sys, time, zord410\nlogging.basicConfig(stream=sys.stdout, format='%(message)s')\n"
SENDING = (
    LOG
    + """
with zord410.Provider("appl:RESTART,RST; group:load; attr:n,N,4;", "s", keep=True) as provider:
    other = provider.source("other")
    n = 0
    while True:
        provider.send(n=n)
        other.send(n=n)
        n += 1
        print("sent", n)
        if n >= 500 and sys.argv[1:] == ["ends"]: break
        time.sleep(0.005)
"""
)


def dead_until_noticed(server: Server, child: Program) -> None:
    server.kill()
    child.wait_for_line("the DCH does not answer; trying again")
    server.start()
    child.wait_for_line("the DCH answers again")


def without_repetitions(values: list[int]) -> list[int]:
    return [value for value, _ in itertools.groupby(values)]


def test_every_row_that_was_sent_is_kept(server: Server) -> None:
    with Program(SENDING, "ends", **TIMEOUT) as child:
        child.wait_for_line("sent 20")
        dead_until_noticed(server, child)
        for _ in range(2):
            child.wait_for_line("sent")
            server.kill()
            server.start()
        status, _, errors = child.finish()
        assert status == 0, errors
    rows = server.rows("RESTART", "load", "source", "n")
    for source in ("s", "other"):
        sent = [n for name, n in rows if name == source]
        assert without_repetitions(sent) == list(range(500)), "all are there, in their order"
        assert len(sent) <= 510, "few are there twice"


def test_a_server_that_forgot_all_is_told_again(server: Server, tmp_path: Path) -> None:
    del server
    forgetful = Server(tmp_path, "memory")
    forgetful.start()
    try:
        with Program(SENDING, **TIMEOUT, ZORA_DCH_PORT=str(forgetful.port)) as child:
            child.wait_for_line("sent 20")
            forgetful.kill()
            child.wait_for_line("the DCH does not answer; trying again")
            forgetful.start()
            child.wait_for_line("RESTART: the DCH has started anew: registered again")
            child.wait_for_line("sent")
            child.wait_for_line("sent")
            forgetful.wait_for_log("on line: RESTART load s,", 2)
            forgetful.wait_for_log("on line: RESTART load other,", 2)
    finally:
        forgetful.end()


def test_patience_ends(server: Server, tmp_path: Path) -> None:
    del server
    mortal = Server(tmp_path, "memory")
    mortal.start()
    program = LOG + (
        "with zord410.Provider('appl:A,KEY; group:g; attr:n,N,4;', 's', patience=4) as provider:\n"
        "    provider.send(n=1)\n    print('sent')\n"
        "    try:\n        while True: provider.send(n=2); time.sleep(0.01)\n"
        "    except zord410.NoAnswer as error: print(error)\n"
    )
    try:
        with Program(program, **TIMEOUT, ZORA_DCH_PORT=str(mortal.port)) as child:
            child.wait_for_line("sent")
            mortal.kill()
            child.wait_for_line("A: the DCH does not answer; trying again")
            child.wait_for_line("failed: status 5 (no answer from the DCH)")
            status, output, errors = child.finish()
            assert (status, output) == (0, ""), errors
    finally:
        mortal.end()


def test_a_server_that_is_not_there_is_told_at_once(server: Server, tmp_path: Path) -> None:
    del server
    gone = Server(tmp_path, "memory")
    gone.start()
    gone.kill()
    program = (
        "import zord410\n"
        "for ask in (lambda: zord410.applications(timeout=1), lambda: zord410.applications('A', timeout=1),\n"
        "            lambda: zord410.action('a').wait(), lambda: zord410.Provider('appl:A,KEY; group:g; attr:n,N,4;')):\n"
        "    try: ask()\n    except zord410.NoAnswer as error: print(error)\n"
    )
    with Program(program, ZORA_DCH_TIMEOUT="1", ZORA_DCH_PORT=str(gone.port)) as child:
        status, output, _ = child.finish()
    assert status == 0
    requests = ("question", "question", "waiting for an action", "registration")
    assert output.splitlines() == [f"{request} failed: status 5 (no answer from the DCH)" for request in requests]


@pytest.mark.parametrize("is_noticed", [True, False], ids=["away for long", "back at once"])
def test_a_subscription_goes_on(server: Server, is_noticed: bool) -> None:
    program = LOG + "for row in zord410.subscribe('ALIVE', 'load'): print('row', row['n'])"
    subscribed = " to ALIVE load"
    before = server.log().count(subscribed)
    with zord410.Provider("appl:ALIVE,ALV; group:load; attr:n,N,4;", "s") as provider, Program(program) as child:
        server.wait_for_log(subscribed, before + 1)
        for n in range(10):
            provider.send(n=n)
            assert child.wait_for_line("row") == f"row {n}\n"
        before = server.log().count(subscribed)
        if is_noticed:
            dead_until_noticed(server, child)
        else:
            server.kill()
            server.start()
        server.wait_for_log(subscribed, before + 1)
        for n in range(10, 20):
            provider.send(n=n)
            assert child.wait_for_line("row") == f"row {n}\n"


def test_changes_of_status_go_on(server: Server) -> None:
    program = LOG + "for change in zord410.status_changes(): print(change.change, change.source)"
    with zord410.Provider("appl:STATUS,STS; group:load; attr:n,N,4;") as provider, Program(program) as child:
        provider.source("before")
        assert child.wait_for_line("online") == "online before\n"
        before = server.log().count(" to provider status")
        dead_until_noticed(server, child)
        server.wait_for_log(" to provider status", before + 1)
        provider.source("after")
        assert child.wait_for_line("online") == "online after\n"

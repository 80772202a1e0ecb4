"""What docs/python.md shows, and examples/hostmon.py, as their reader runs them."""

from __future__ import annotations

import re

import pytest
from server import SOURCE, Program, Server

import zord410

PAGE = (SOURCE / "docs/python.md").read_text(encoding="utf-8")
PIECES = dict(re.findall(r"<!-- run: (\w+) -->\n```python\n(.*?)```", PAGE, re.S))
# Starts what a piece goes on from, or ends what would go on for ever.
BEFORE = {
    "sources": "import zord410\n",
    "consumer": "import threading, zord410\n"
    + "def send():\n"
    + "    with zord410.Provider('appl:WEATHER,WTH; group:air; attr:celsius,N,4; attr:sky,D,16;', 'roof') as air:\n"
    + "        while True: air.send(celsius=21, sky='blue')\n"
    + "threading.Thread(target=send, daemon=True).start()\n",
}
AFTER = {"consumer": "        break\n"}
OUTPUT = {"consumer": r"\d+ 21 blue\n", "catalogue": r"WEATHER WTH FILE \d+\n  air celsius 4 Temperature\n  air sky 16 \n", "action": r"0\n"}


def test_the_page_has_its_pieces() -> None:
    assert set(PIECES) == {"provider", "sources", "consumer", "catalogue", "changes", "action", "errors"}


@pytest.mark.parametrize("piece", PIECES)
def test_a_piece_of_the_page_runs(server: Server, piece: str) -> None:
    with zord410.Provider("appl:BESIDE,BES; group:g; attr:n,N,4;", "s"):  # so that there is a change to tell
        kept = zord410.Provider(
            "appl:WEATHER,WTH;type:FILE;group:air;attr:celsius,N,4,Temperature;attr:sky,D,16;", keep=True
        )
        with Program(BEFORE.get(piece, "") + PIECES[piece] + AFTER.get(piece, "")) as child:
            if piece == "changes":
                child.wait_for_line("online BESIDE g s")
                return
            status, output, errors = child.finish()
        kept.close()
    assert status == 0, errors
    assert re.fullmatch(OUTPUT.get(piece, ".*"), output, re.S), output
    if piece == "provider":
        rows = server.rows("WEATHER", "air", "source", "celsius", "sky")
        assert rows[-2:] == [("roof", 21, "blue"), ("roof", 19, None)]


def test_hostmon(server: Server) -> None:
    with Program(SOURCE / "examples/hostmon.py", "--count", "2", "--interval", "0.01") as child:
        status, output, errors = child.finish()
    assert (status, errors) == (0, ""), errors
    assert output.endswith(" is on line\n")
    loads = server.rows("HOSTMON", "load", "load1", "load5", "load15")
    memories = server.rows("HOSTMON", "memory", "total", "available", "swapfree")
    assert len(loads) == len(memories) == 2
    assert all(each >= 0 for row in loads for each in row)
    for total, available, swapfree in memories:
        assert 1000 < available <= total and swapfree >= 0


def test_ctrl_c_ends_hostmon_in_good_order(server: Server) -> None:
    before = server.log().count("unregistered HOSTMON")
    with Program(SOURCE / "examples/hostmon.py") as child:
        child.wait_for_line(" is on line")
        child.interrupt()
        assert child.finish() == (0, "", "")
    server.wait_for_log("unregistered HOSTMON", before + 1)

"""What a stand-in has in most tests: a machine's load, the weather, and names full of markup."""

import math

from stand_in import iso, now_us

SECOND = 1_000_000
LARGE = 18_446_744_073_709_551_615  # of 64 bits: no double holds it
HOSTILE = "<img src=x onerror=alert(1)>&\"'"
HOST = ("HOST", "load", "web1")


def load_row(second, large=False):
    wave = 40 + 20 * math.sin(second / 170) + (second * 7919 % 13 - 6)
    return {"load1": int(wave), "load5": int(40 + 18 * math.sin(second / 170)),
            "memory": LARGE if large else 8_000_000_000 + second * 1_000_000,
            "note": "all quiet" if second % 600 else "backup began"}


def machines(stand_in, seconds=3600, silent=True, ahead=0):
    """Three machines at a row a second, with a hole; one fell silent; one is off line. Rows may be
    ahead of the clock, so that on a slow machine the others are not silent, too."""
    stand_in.register("HOST", {"load": [("load1", "G", 4, "Load of the last minute"), ("load5", "G", 4, "Load of the last 5 minutes"),
                                        ("memory", "L", 8, "Bytes in use"), ("note", "D", 20, "What the operator wrote")]},
                      key="HMN", type="SNMP", help="Machines and their load")
    now = now_us() + ahead * SECOND
    for source, rows, age in (("web1", seconds, 0), ("web2", 60, 0), ("db1", 60, 500 + ahead if silent else 0), ("old1", 20, 9000)):
        stand_in.online("HOST", "load", source, tell=False)
        for second in range(rows, 0, -1):
            if not 1200 < second < 1500:
                stand_in.row("HOST", "load", source, load_row(second, source == "web2"), at=now - (second + age) * SECOND, live=False)
    stand_in.online("HOST", "load", "old1", online=False, tell=False)


def weather(stand_in):
    stand_in.register("WEATHER", {"air": [("celsius", "N", 4, "Temperature"), ("sky", "D", 16, "What one sees")], "rain": [("mm", "N", 4, "")]},
                      key="WTH", help="Weather stations")
    for station in ("roof", "garden"):
        stand_in.online("WEATHER", "air", station, tell=False)
        stand_in.row("WEATHER", "air", station, {"celsius": -3, "sky": "clear"}, live=False)


def sites(stand_in):
    """One is silent, one is behind, one has its state in memory."""
    for name, state, seconds, behind in (("north", "silent", 300, 12), ("east", "here", 7_800, 123_456), ("lab", "stopping", 4, None)):
        stand_in.state["sites"].append({"site": name, "state": state, "since": iso(now_us() - seconds * SECOND), "changes_behind": behind,
                                        "changes_uncollected": None, "version": "4.1.0"})


def hostile(stand_in):
    stand_in.register(HOSTILE, {HOSTILE: [(HOSTILE, "D", 40, HOSTILE), ("constructor", "N", 4, ""), ("__proto__", "N", 4, HOSTILE), ("raw", "D", 4, "")]}, help=HOSTILE)
    stand_in.online(HOSTILE, HOSTILE, HOSTILE, tell=False)
    stand_in.row(HOSTILE, HOSTILE, HOSTILE, {HOSTILE: HOSTILE, "__proto__": 5, "raw": "0x00ff"})

"""Nothing is left behind: memory, descriptors and threads stay as they are over many requests."""

from __future__ import annotations

from server import Program, Server

PROGRAM = """
import gc, os, threading, zord410

def used():
    gc.collect()
    with open("/proc/self/statm") as file:
        kilobytes = int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") // 1024
    return kilobytes, len(os.listdir("/proc/self/fd")), threading.active_count()

def work(rounds, rows):
    for _ in range(rounds):
        with zord410.Provider("appl:MEMORY,MEM; group:load; attr:n,N,8; attr:t,D,2000;", "s") as provider:
            with zord410.subscribe("MEMORY", "load", timeout=60) as came, zord410.status_changes() as changes:
                for n in range(rows):
                    provider.send(n=n, t="x" * 1999)
                    next(came)
                next(changes)
                zord410.applications("MEMORY")

work(5, 200)
before = used()
work(12, 500)
after = used()
print(after[0] - before[0], after[1] - before[1], after[2] - before[2])
"""


def test_nothing_is_left_behind(server: Server) -> None:
    del server
    with Program(PROGRAM) as child:
        status, output, errors = child.finish()
    assert status == 0, errors
    kilobytes, descriptors, threads = map(int, output.split())
    # 6,000 rows: a row, or a buffer of 4 KB for it, that was not given back would be 12 MB and more.
    assert kilobytes < 3000
    assert (descriptors, threads) == (0, 0)

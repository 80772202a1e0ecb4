#!/usr/bin/python3
"""A data provider in Python: what this host is doing, in two groups.

  load    the load averages           one row
  memory  the memory in kilobytes     one row

Watch it with `zordc watch HOSTMON load`. Ctrl-C ends it.
"""

from __future__ import annotations

import argparse
import os
import socket
import time

import zord410


class Hostmon:
    """What a host is doing"""

    key = "HMN"
    type = "SOCK"

    class load:
        load1 = zord410.number(4, "hundredths over 1 minute", letter="G")
        load5 = zord410.number(4, "hundredths over 5 minutes", letter="G")
        load15 = zord410.number(4, "hundredths over 15 minutes", letter="G")

    class memory:
        total = zord410.number(8, "kilobytes", letter="G")
        available = zord410.number(8, "kilobytes", letter="G")
        swapfree = zord410.number(8, "kilobytes", letter="G")


def load() -> dict[str, int]:
    averages = zip(("load1", "load5", "load15"), os.getloadavg())
    return {name: round(average * 100) for name, average in averages}


def memory() -> dict[str, int]:
    names = {"MemTotal": "total", "MemAvailable": "available", "SwapFree": "swapfree"}
    with open("/proc/meminfo", encoding="ascii") as lines:
        words = [line.replace(":", "").split() for line in lines]
    return {names[line[0]]: int(line[1]) for line in words if line[0] in names}


def main() -> None:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--interval", type=float, default=1, help="seconds between samples (1)")
    parser.add_argument("--count", type=int, default=0, help="samples to send; without it no end")
    options = parser.parse_args()

    # The source tells this host's rows from those of others.
    name = socket.gethostname()[:32]
    with zord410.Provider(Hostmon) as provider:
        loads, memories = provider.source(name, "load"), provider.source(name, "memory")
        print(f"hostmon: {name} is on line", flush=True)
        samples = 0
        while True:
            # Each returns when the server has the row, also one that starts anew meanwhile.
            loads.send(load())
            memories.send(memory())
            samples += 1
            if samples == options.count:
                break
            time.sleep(options.interval)


if __name__ == "__main__":
    try:
        main()
    except zord410.Error as error:
        raise SystemExit(f"hostmon: {error}") from None
    except KeyboardInterrupt:
        pass

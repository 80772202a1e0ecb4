"""The server that the tests talk to, and child processes that use the module."""

from __future__ import annotations

import json
import os
import re
import signal
import subprocess
import sys
import time
import urllib.parse
import urllib.request
from collections.abc import Callable
from pathlib import Path
from typing import Any

PROGRAMS = Path(os.environ["ZORD410_PROGRAMS"])
SOURCE = Path(__file__).resolve().parent.parent.parent
PATIENCE_SECONDS = 60


def wait_until(condition: Callable[[], bool], what: str) -> None:
    end = time.monotonic() + PATIENCE_SECONDS
    while not condition():
        assert time.monotonic() < end, f"waited too long for: {what}"
        time.sleep(0.01)


class Server:
    """zordchd with a store, a page and actions. After `kill`, `start` has it on the same port again."""

    def __init__(self, folder: Path, store: str = "") -> None:
        self.port = 0
        self.page = ""
        self._log = folder / "log"
        self._folder = folder
        self._store = store or str(folder / "state.db")
        (folder / "actions").write_text(
            f"true /usr/bin/true\nthree {folder}/three\nslow {folder}/slow\n", encoding="ascii"
        )
        for name, text in {"three": "exit 3", "slow": "exec sleep 600"}.items():
            (folder / name).write_text(f"#!/bin/sh\n{text}\n", encoding="ascii")
            (folder / name).chmod(0o755)
        self._process: subprocess.Popen[str] | None = None

    def start(self) -> None:
        options = ["--store", self._store, "--actions", self._folder / "actions", "--verbose"]
        with self._log.open("a", encoding="utf-8") as log:
            self._process = subprocess.Popen(
                [PROGRAMS / "zordchd", "--port", str(self.port), "--web", "127.0.0.1:0", *options],
                stdout=subprocess.PIPE,
                stderr=log,
                text=True,
            )
        assert self._process.stdout
        lines = [self._process.stdout.readline() for _ in range(3)]
        found = re.search(r" port (\d+)$", lines[0])
        assert found, (lines, self.log())
        self.port = int(found[1])
        self.page = lines[2].split()[-1]

    def kill(self) -> None:
        assert self._process
        self._process.kill()
        self._process.communicate()

    def end(self) -> None:
        if self._process and self._process.poll() is None:
            self._process.terminate()
            self._process.communicate()

    def log(self) -> str:
        return self._log.read_text(encoding="utf-8")

    def wait_for_log(self, text: str, times: int = 1) -> None:
        try:
            wait_until(lambda: self.log().count(text) >= times, f"{times} times {text!r} in the log")
        except AssertionError as error:
            raise AssertionError(f"{error}\n{self.log()[-4000:]}") from None

    def rows(self, application: str, group: str, *columns: str) -> list[tuple[Any, ...]]:
        """These columns of all rows that are kept, in the order in which they came."""
        query = urllib.parse.urlencode({"application": application, "group": group})
        with urllib.request.urlopen(f"{self.page}api/rows?{query}", timeout=PATIENCE_SECONDS) as answer:
            found = json.load(answer)
        places = [found["columns"].index(column) for column in columns]
        return [tuple(row[place] for place in places) for row in found["rows"]]


class Program:
    """A process that runs Python's text in `program`, or the file that it names."""

    def __init__(self, program: str | Path, *arguments: str, **environment: str) -> None:
        what = [str(program)] if isinstance(program, Path) else ["-c", program]
        self._process = subprocess.Popen(
            [sys.executable, "-u", *what, *arguments],
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
            env={**os.environ, "PYTHONDONTWRITEBYTECODE": "1", **environment},
        )

    def __enter__(self) -> Program:
        return self

    def __exit__(self, *_: object) -> None:
        self._process.kill()
        self._process.communicate()

    def wait_for_line(self, text: str) -> str:
        """The next line that holds the text."""
        assert self._process.stdout
        for line in self._process.stdout:
            if text in line:
                return line
        raise AssertionError(f"no {text!r}: {self._process.communicate()}")

    def interrupt(self) -> None:
        self._process.send_signal(signal.SIGINT)

    def finish(self) -> tuple[int, str, str]:
        """Exit status, the rest of the output, and errors."""
        output, errors = self._process.communicate(timeout=PATIENCE_SECONDS)
        return self._process.returncode, output, errors

"""The module and its example are typed."""

from __future__ import annotations

import subprocess
import sys

from server import SOURCE


def test_types_are_strict() -> None:
    checked = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--cache-dir=/dev/null", "python/zord410", "examples/hostmon.py"],
        cwd=SOURCE,
        env={"MYPYPATH": str(SOURCE / "python")},
        capture_output=True,
        text=True,
        check=False,
    )
    assert checked.returncode == 0, checked.stdout + checked.stderr
    assert "no issues found" in checked.stdout

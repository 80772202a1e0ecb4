"""A server for all tests of a run, which run in one process: the library reads once per process where
the server is. Takes the folder of the programs from ZORD410_PROGRAMS; the library is found as it is by
any program, by LD_LIBRARY_PATH."""

from __future__ import annotations

import os
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parent))
sys.dont_write_bytecode = True

# pylint: disable=wrong-import-position
from server import Server  # noqa: E402


@pytest.fixture(scope="session")
def server(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Server]:
    folder = tmp_path_factory.mktemp("server")
    for name in [name for name in os.environ if name.startswith(("ZORA_", "ZOR0_"))]:
        del os.environ[name]
    os.environ["ZOR0_PRODUCT_SPEC"] = str(folder / "settings")
    running = Server(folder)
    try:
        running.start()
        os.environ["ZORA_DCH_PORT"] = str(running.port)
        yield running
    finally:
        running.end()

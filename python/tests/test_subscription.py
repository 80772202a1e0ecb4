"""Subscriptions: time-outs and ends, and that making them anew loses and doubles nothing."""

from __future__ import annotations

import os
import socket
import threading
import time

import pytest
from server import Program, Server

import zord410
from zord410 import values

APPLICATION = "appl:ROWS,ROW; group:load; attr:load1,G,4;"


def test_a_time_out_is_told_and_the_subscription_goes_on(server: Server) -> None:
    del server
    with zord410.Provider(APPLICATION, "s") as provider, zord410.subscribe("ROWS", "load", timeout=0.2) as rows:
        with pytest.raises(TimeoutError, match="no row of ROWS load came for 0.2 s"):
            next(rows)
        provider.send(load1=1)
        for _ in range(300):  # a machine that stands still is no failure
            try:
                row = next(rows)
                break
            except TimeoutError:
                continue
        assert row["load1"] == 1
        assert repr(row) == f"Row(handle={row.handle}, code=0, values={{'load1': 1}})"


def test_close_on_another_thread_ends_the_iteration(server: Server) -> None:
    rows = zord410.subscribe("CLOSING", "load")
    ended = []
    waiting = threading.Thread(target=lambda: ended.append(list(rows)))
    waiting.start()
    time.sleep(0.05)  # mostly it waits by then; either way it has to end
    rows.close()
    waiting.join()
    assert ended == [[]]
    rows.close()
    assert list(rows) == []
    server.wait_for_log(" from CLOSING load")


def test_renewals_lose_and_double_nothing(server: Server) -> None:
    count = 500
    done = threading.Event()
    with zord410.Provider(APPLICATION, "s") as provider, zord410.subscribe("ROWS", "load", timeout=60) as rows:

        def renew() -> None:
            while not done.wait(0.005):
                rows._renew()  # as after a silence

        def send() -> None:
            for value in range(count):
                provider.send(load1=value)
                # So that the system has room for what comes while a handle is not read yet.
                time.sleep(0.003)

        before = server.log().count(" to ROWS load")
        threads = [threading.Thread(target=each) for each in (renew, send)]
        for thread in threads:
            thread.start()
        received = [next(rows)["load1"] for _ in range(count)]
        threads[1].join()
        done.set()
        threads[0].join()
        assert received == list(range(count))
        assert server.log().count(" to ROWS load") > before + 3, "it was made anew meanwhile"


def test_a_datagram_that_is_no_row_does_no_harm(server: Server, caplog: pytest.LogCaptureFixture) -> None:
    """One that is a message but no row is skipped; one that is none ends the library's handle."""
    before = server.log().count(" to ROWS load")
    with zord410.Provider(APPLICATION, "s") as provider, zord410.subscribe("ROWS", "load", timeout=60) as rows:
        server.wait_for_log(" to ROWS load", before + 1)
        port = int(server.log().rpartition(" to ROWS load")[0].rpartition(":")[2])
        sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        with sender:
            sender.sendto(bytes.fromhex("0000000c 0011 00000002 0000"), ("127.0.0.1", port))
            provider.send(load1=1)
            assert next(rows)["load1"] == 1
            assert "a malformed message was skipped" in caplog.text
            before = server.log().count(" to ROWS load")
            sender.sendto(b"", ("127.0.0.1", port))
            server.wait_for_log(" to ROWS load", before + 1)
        provider.send(load1=2)
        assert next(rows)["load1"] == 2


@pytest.mark.parametrize(
    ("message", "reason"),
    [
        ("00000004", "begins with fields []"),
        ("0000000c 0010 00000002 1030", "begins with fields [16]"),
        ("00000008 0010 0000", "ends in a header"),
        ("0000000c 0010 00000003 1030", "leads out of the message"),
        ("0000001e 0010 00000002 1025 0080 00000004 00000001 0070 00000002 0000", "has request 1025"),
        ("00000026 0010 00000002 1030 0080 00000004 00000001 0070 00000002 0000 0050 00000002 6100", "do not take turns"),
        ("00000000 0010 00000002 1030 0080 00000004 00000001 0070 00000002 0000 0050 00000002 6100 0051 00000000", "has no letter"),
        (
            "00000000 0010 00000002 1030 0080 00000004 00000001 0070 00000002 0000"
            + "0050 00000002 6100 0051 00000003 4e0100" * 2,
            "attribute 'a' stands twice",
        ),
    ],
)
def test_malformed_rows_are_told_from_rows(message: str, reason: str) -> None:
    with pytest.raises(values.MalformedRow) as error:
        values.decode_row(bytes.fromhex(message))
    assert reason in str(error.value)


def test_a_value_of_no_known_size_is_bytes() -> None:
    row = values.decode_row(
        bytes.fromhex(
            "00000000 0010 00000002 1030 0080 00000004 00000007 0070 00000002 fffe"
            "0050 00000002 6100 0051 00000004 4e010203 0050 00000002 6200 0051 00000002 4eff 0050 00000002 6300 0051 00000003 446869"
        )
    )
    assert dict(row) == {"a": b"\1\2\3", "b": -1, "c": "hi"}
    assert (row.handle, row.code) == (7, -2)


@pytest.mark.parametrize(("application", "group"), [("", "load"), ("A" * 21, "load"), ("A", "g" * 33), ("A\0", "load")])
def test_names_that_no_group_has(application: str, group: str) -> None:
    with pytest.raises(ValueError, match="bytes instead of 1 to"):
        zord410.subscribe(application, group)


WAITING = {
    "rows": ("rows = zord410.subscribe('NOBODY', 'load')", "next(rows)"),
    "changes": ("changes = zord410.status_changes()", "for change in changes: pass"),
    "action": ("action = zord410.action('slow')", "action.wait()"),
}


@pytest.mark.parametrize("waiting", WAITING)
def test_ctrl_c_ends_a_wait(server: Server, waiting: str) -> None:
    """Long before any time-out; and the process ends in good order."""
    first, wait = WAITING[waiting]
    program = f"import zord410\n{first}\ntry:\n    print('waits')\n    {wait}\nexcept KeyboardInterrupt:\n    print('interrupted')\n"
    with zord410.Provider(APPLICATION, "s"), Program(program, ZORA_DCH_TIMEOUT="600") as child:
        child.wait_for_line("waits")
        time.sleep(0.1)  # mostly it waits by then; either way it has to end
        start = time.monotonic()
        child.interrupt()
        child.wait_for_line("interrupted")
        status, _, errors = child.finish()
        assert (status, errors) == (0, "")
        assert time.monotonic() - start < 30
    if waiting == "rows":
        server.wait_for_log(" from NOBODY load")


def test_ctrl_c_ends_a_request_that_is_not_answered() -> None:
    """As there is nobody on that port."""
    nobody = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    with nobody:
        nobody.bind(("127.0.0.1", 0))
        program = "import zord410\nprint('asks')\nzord410.Provider('appl:A,KEY; group:g; attr:a,N,4;')"
        with Program(program, ZORA_DCH_TIMEOUT="600", ZORA_DCH_PORT=str(nobody.getsockname()[1])) as child:
            nobody.settimeout(60)
            nobody.recv(8192)
            start = time.monotonic()
            child.interrupt()
            status, _, errors = child.finish()
    assert status != 0 and errors.endswith("KeyboardInterrupt\n")
    assert time.monotonic() - start < 30


def test_a_forked_child_is_refused(server: Server) -> None:
    del server
    zord410.applications()
    child = os.fork()
    if child == 0:
        try:
            zord410.applications()
        except RuntimeError as error:
            os._exit(7 if "before this process was forked" in str(error) else 1)
        finally:
            os._exit(2)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7


@pytest.mark.parametrize(
    ("environment", "message"),
    [
        ({"ZORA_DCH_ADDR": "no.such.host.invalid"}, "ZORA_DCH_ADDR names an unknown host: 'no.such.host.invalid'"),
        ({"ZORA_DCH_ADDR": ""}, "ZORA_DCH_ADDR names an unknown host: ''"),
        ({"ZORA_DCH_IPCTYPE": "2"}, "ZORA_DCH_IPCTYPE is 2, but the DCH is reached over sockets only (1)"),
        ({"LD_LIBRARY_PATH": "/nonexistent"}, "libzord410.so"),
    ],
)
def test_settings_with_which_nothing_works(environment: dict[str, str], message: str) -> None:
    program = "import zord410\ntry:\n    zord410.applications()\nexcept zord410.SettingsError as error:\n    print(error)"
    with Program(program, **environment) as child:
        status, output, _ = child.finish()
    assert status == 0 and message in output


def test_answers_are_strict_unless_the_environment_says_otherwise(server: Server) -> None:
    del server
    program = "import os, zord410\nzord410.applications()\nprint(os.environ['ZOR0_STRICT_ANSWERS'])"
    for environment, expected in (({}, "Y"), ({"ZOR0_STRICT_ANSWERS": "N"}, "N")):
        kept = {name: os.environ.pop(name) for name in ("ZOR0_STRICT_ANSWERS", "ZORA_TRACE") if name in os.environ}
        try:
            with Program(program, **environment) as child:
                assert child.finish() == (0, f"{expected}\n", "")
        finally:
            os.environ.update(kept)

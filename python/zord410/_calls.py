"""Calls into the library, so that signals neither break them nor have to wait for them.

A signal that interrupts a request counts as a missing answer there, or makes it wait on without limit.
So requests run where all signals are blocked: on a thread of their own when the main thread, which is
the one that Python's signal handlers run on, asks for one, so that Ctrl-C ends its wait at once. The
request itself then goes on to its end, and nobody takes its result.
"""

from __future__ import annotations

import ctypes
import os
import queue
import signal
import threading
from collections.abc import Callable
from typing import Any, Generic, TypeVar

from ._library import libc

Result = TypeVar("Result")

# The C library's own function: the one of Python's signal module takes ten times as long.
_SIGNAL_SET_BYTES = 128
libc.pthread_sigmask.restype = ctypes.c_int
libc.pthread_sigmask.argtypes = [ctypes.c_int, ctypes.c_char_p, ctypes.c_char_p]
libc.sigfillset.restype, libc.sigfillset.argtypes = ctypes.c_int, [ctypes.c_char_p]
_all_signals = ctypes.create_string_buffer(_SIGNAL_SET_BYTES)
libc.sigfillset(_all_signals)


class _ThreadState(threading.local):
    signals_blocked = False


_thread = _ThreadState()


class _Job(Generic[Result]):
    def __init__(self, function: Callable[[], Result]) -> None:
        self._function = function
        self._done = threading.Lock()
        self._done.acquire()
        self._result: Result
        self._error: BaseException | None = None

    def run(self) -> None:
        try:
            self._result = self._function()
        except BaseException as error:  # pylint: disable=broad-exception-caught
            self._error = error
        self._done.release()

    def result(self) -> Result:
        self._done.acquire()  # a signal handler that raises ends this wait
        if self._error is not None:
            raise self._error
        return self._result


class _Worker:
    """A thread that does one job after the other."""

    def __init__(self) -> None:
        self._jobs: queue.SimpleQueue[_Job[Any]] = queue.SimpleQueue()
        start_quiet_thread(self._serve, "zord410 requests")

    def run(self, function: Callable[[], Result]) -> Result:
        job = _Job(function)
        self._jobs.put(job)
        return job.result()

    def _serve(self) -> None:
        while True:
            self._jobs.get().run()


_idle_workers: list[_Worker] = []  # of the main thread
# A child has none of the threads.
os.register_at_fork(after_in_child=_idle_workers.clear)


def start_quiet_thread(function: Callable[[], None], name: str) -> threading.Thread:
    """Starts a thread on which no signal is handled. It holds up no end of the process."""

    def run() -> None:
        libc.pthread_sigmask(signal.SIG_SETMASK, _all_signals, None)
        _thread.signals_blocked = True
        function()

    thread = threading.Thread(target=run, name=name, daemon=True)
    thread.start()
    return thread


def call(function: Callable[[], Result]) -> Result:
    """Runs `function`, which asks the DCH, and returns what it returns. KeyboardInterrupt, or what
    else a signal handler raises, ends the main thread's wait for it; `function` still runs to its
    end. Any thread."""
    if _thread.signals_blocked:
        return function()
    if threading.current_thread() is not threading.main_thread():
        before = ctypes.create_string_buffer(_SIGNAL_SET_BYTES)
        libc.pthread_sigmask(signal.SIG_SETMASK, _all_signals, before)
        _thread.signals_blocked = True
        try:
            return function()
        finally:
            _thread.signals_blocked = False
            libc.pthread_sigmask(signal.SIG_SETMASK, before, None)
    worker = _idle_workers.pop() if _idle_workers else _Worker()
    try:
        result = worker.run(function)
    except Exception:
        _idle_workers.append(worker)
        raise
    # After an interrupted call the worker is still busy, and is left to itself.
    _idle_workers.append(worker)
    return result

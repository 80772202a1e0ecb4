"""Data providers: applications, their sources, and the rows that they send."""

from __future__ import annotations

import logging
import threading
import time
from collections.abc import Callable, Mapping
from types import TracebackType

from . import _requests
from ._calls import call
from ._library import MAX_SOURCE_NAME
from .errors import NoAnswer, Status, StatusError
from .registration import Registration, RegistrationLike
from .values import Encoded, Sendable, encode_row

_log = logging.getLogger("zord410")

# No server is replaced by another one in less.
_HANDLE_LASTS_SECONDS = 1.0
# Between tries that come to nothing at once.
_PAUSE_SECONDS = 0.5
# A request that is under way for longer at the end is not waited for.
_LAST_REQUEST_SECONDS = 2.0
# What a DCH answers that knew the source or its application once.
_FORGOTTEN = (Status.UNKNOWN_HANDLE, Status.UNKNOWN_APPLICATION, Status.UNKNOWN_GROUP)


class Source:
    """A source of an application with one of its groups: what `Provider.source` gives, on line. Any
    thread may send; the rows of one thread keep their order."""

    def __init__(self, provider: Provider, name: str, group: str) -> None:
        self.name = name
        self.group = group
        self._provider = provider
        self._attributes = provider.registration.groups[group]
        self._is_open = True
        self._lock = threading.Lock()  # held by each request; it guards what follows
        self._buffer = _requests.WorkBuffer()
        self._handle = 0
        # When the DCH was last seen to know the handle, and how often the application had been
        # registered by then. A DCH that has started anew may have given it to another source, whose
        # rows ours would become: after a while it is asked for once more.
        self._confirmed: float | None = None
        self._registrations = 0

    def send(self, values: Mapping[str, Sendable] | None = None, /, **more: Sendable) -> None:
        """Sends a row and returns when the DCH has it. Attributes may be left out.

        values, more: names of attributes with whole numbers or texts; in `values` stand those whose
                      names are no names in Python

        ValueError, TypeError: a value that its attribute cannot take, or a source that is off line;
                               nothing is sent
        StatusError:           the DCH refused the row, or there was no memory for it
        NoAnswer:              it did not answer for the provider's `patience`; it may have the row

        While the DCH is away this goes on trying. Where it has started anew and knows neither source
        nor application, both are made known again. A row whose answer got lost is there twice then.
        """
        row = encode_row(self.group, self._attributes, {**(values or {}), **more})
        if not self._is_open:
            raise ValueError(f"the source {self.name!r} is off line")
        self._provider._send(lambda: self._send_once(row))

    def close(self) -> None:
        """Takes the source off line, when it is on line. A DCH that does not know it any more is
        content. Raises StatusError or NoAnswer."""
        if not self._is_open:
            return
        self._is_open = False
        if self._provider._is_there():
            call(self._go_offline)

    # What follows are requests: run by `call`, and they raise StatusError.

    def _start(self) -> None:
        with self._lock:
            self._renew()

    def _send_once(self, row: list[Encoded]) -> bool:
        """Returns whether the DCH has the row; it is to be sent again when not."""
        with self._lock:
            if not self._handle_is_fresh():
                self._renew()
            self._confirmed = None
            try:
                self._buffer.send(self._handle, row)
            except StatusError as error:
                if error.status not in _FORGOTTEN:
                    raise
                self._renew()
                return False
            self._confirmed = time.monotonic()
            return True

    def _renew(self) -> None:
        """Asks for the handle, which is the same as before as long as the DCH is the same."""
        try:
            self._go_online()
        except StatusError as error:
            if error.status not in _FORGOTTEN:
                raise
            self._provider._register_again()
            self._go_online()

    def _go_online(self) -> None:
        registrations = self._provider._registrations
        self._handle = _requests.go_online(self._provider.registration.name, self.group, self.name)
        self._confirmed = time.monotonic()
        self._registrations = registrations

    def _go_offline(self) -> None:
        if not self._lock.acquire(timeout=_LAST_REQUEST_SECONDS):
            return  # an interrupted request still waits: the DCH does not answer
        try:
            if not self._handle_is_fresh():
                self._go_online()
            _requests.go_offline(self._handle)
        except StatusError as error:
            if error.status not in _FORGOTTEN:
                raise
        finally:
            self._lock.release()

    def _handle_is_fresh(self) -> bool:
        return (
            self._confirmed is not None
            and time.monotonic() - self._confirmed < _HANDLE_LASTS_SECONDS
            and self._registrations == self._provider._registrations
        )


class Provider:
    """An application that is registered, and its sources. Any thread may use it.

        with zord410.Provider("appl:DEMO,DMO; group:load; attr:load1,G,4;", "web1") as provider:
            provider.send(load1=17)

    application: a registration text, a mapping or a class: see `Registration.of`
    source:      with a name, that source is taken on line for `send`
    group:       of that source; may be left out where the application has one alone
    keep:        at the end the application stays registered, its sources are off line
    patience:    seconds for which `send` tries again while the DCH does not answer, and at least one
                 try; None is without end. A try takes up to ZORA_DCH_TIMEOUT seconds (30)

    Where the DCH is not there or refuses, making a provider raises NoAnswer or StatusError.
    """

    def __init__(
        self,
        application: RegistrationLike,
        source: str | None = None,
        group: str | None = None,
        *,
        keep: bool = False,
        patience: float | None = None,
    ) -> None:
        self.registration = Registration.of(application)
        if group is not None or source is not None:
            self.registration.group(group)
        self._keep = keep
        self._patience = patience
        self._sources: dict[tuple[str, str], Source] = {}
        self._lock = threading.Lock()  # guards what follows
        self._registrations = 0
        self._is_away = False
        self._default: Source | None = None
        self._is_open = True
        call(self._register)
        if source is not None:
            try:
                self._default = self.source(source, group)
            except BaseException:
                self._end_quietly()
                raise

    def source(self, name: str, group: str | None = None) -> Source:
        """Takes a source on line with a group, which may be left out where the application has one
        alone. The same names give the same source again. Raises ValueError, StatusError or NoAnswer."""
        group, _ = self.registration.group(group)
        size = len(name.encode())
        if not 1 <= size <= MAX_SOURCE_NAME or "\0" in name:
            raise ValueError(f"the source name {name!r} has {size} bytes instead of 1 to {MAX_SOURCE_NAME}, or a zero")
        with self._lock:
            if not self._is_open:
                raise ValueError(f"the provider of {self.registration.name} is closed")
            source = self._sources.get((name, group))
        if source is not None and source._is_open:
            return source
        source = Source(self, name, group)
        call(source._start)
        with self._lock:
            self._sources[name, group] = source
        return source

    def send(self, values: Mapping[str, Sendable] | None = None, /, **more: Sendable) -> None:
        """`Source.send` of the source that the provider was made with."""
        if self._default is None:
            raise ValueError("the provider was made without a source: take one on line with source()")
        self._default.send(values, **more)

    def close(self) -> None:
        """Takes the sources off line and, without `keep`, unregisters the application. Does nothing
        when that was done. Raises StatusError or NoAnswer; but a DCH that did not answer before and
        is still away is not waited for."""
        with self._lock:
            was_open, self._is_open = self._is_open, False
            sources = list(self._sources.values())
        if not was_open:
            return
        for source in sources:
            source.close()
        if self._keep or not self._is_there():
            return
        try:
            call(lambda: _requests.unregister(self.registration.name))
        except StatusError as error:
            if error.status not in _FORGOTTEN:
                raise

    def __enter__(self) -> Provider:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None
    ) -> None:
        if error is None:
            self.close()
        else:
            self._end_quietly()

    def _end_quietly(self) -> None:
        """For whoever has an exception of its own to tell."""
        try:
            self.close()
        except StatusError as error:
            _log.warning("%s: %s", self.registration.name, error)

    def _register(self) -> None:
        _requests.register(self.registration.text)
        with self._lock:
            self._registrations += 1

    def _register_again(self) -> None:
        self._register()
        _log.warning("%s: the DCH has started anew: registered again", self.registration.name)

    def _is_there(self) -> bool:
        """False for a DCH that did not answer last and does not answer now."""
        return not self._is_away or call(_requests.pulse)

    def _send(self, send_once: Callable[[], bool]) -> None:
        """Tries until the row is taken, or until patience ends."""
        start = time.monotonic()
        was_away = False
        while True:
            try_start = time.monotonic()
            self._is_away = True  # also for an interrupted call
            try:
                is_taken = call(send_once)
            except NoAnswer:
                if self._patience is not None and time.monotonic() - start >= self._patience:
                    raise
                if not was_away:
                    _log.warning("%s: the DCH does not answer; trying again", self.registration.name)
                was_away = True
                if time.monotonic() - try_start < _PAUSE_SECONDS:
                    time.sleep(_PAUSE_SECONDS)
                continue
            except StatusError:
                self._is_away = False
                raise
            self._is_away = False
            if is_taken:
                break
        if was_away:
            _log.warning("%s: the DCH answers again", self.registration.name)

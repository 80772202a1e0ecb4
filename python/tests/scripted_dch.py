"""A DCH that tells of changes of status at moments that a test chooses."""

from __future__ import annotations

import contextlib
import socket
import struct
import threading
from collections.abc import Callable

Address = tuple[str, int]

REQUEST, STATUS, RESPONSE, APPLICATION, SOURCE, GROUP = 0x10, 0x11, 0x12, 0x20, 0x22, 0x23
REGISTERED, ONLINE, OFFLINE, STATUS_SUBSCRIPTION = 0x1010, 0x1015, 0x1025, 0x2070
START = 1


def field(code: int, value: bytes) -> bytes:
    return struct.pack(">HI", code, len(value)) + value


def message(*fields: bytes) -> bytes:
    content = b"".join(fields)
    return struct.pack(">I", 4 + len(content)) + content


def event(code: int, source: str) -> bytes:
    names = ((APPLICATION, b"SCRIPTED"), (GROUP, b"load" if source else b""), (SOURCE, source.encode()))
    return message(*(field(name, text + b"\0") for name, text in names), field(REQUEST, struct.pack(">H", code)))


class ScriptedDch:
    """Keeps who has subscribed, and tells them in the order of their addition. Every other request is a
    question, whose answer is empty. Calls `moment` with "asked" when somebody wants to subscribe, "taken"
    when he is told, and "answered" when a question is."""

    def __init__(self) -> None:
        self.moment: Callable[[str], None] = lambda name: None
        self.subscriptions = 0  # so many were asked for
        self.online: list[str] = []
        self._subscribers: list[Address] = []
        self._lock = threading.RLock()
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind(("127.0.0.1", 0))
        self._socket.settimeout(0.05)
        self.port: int = self._socket.getsockname()[1]
        self._is_ending = False
        self._thread = threading.Thread(target=self._serve)
        self._thread.start()

    def __enter__(self) -> ScriptedDch:
        return self

    def __exit__(self, *_: object) -> None:
        self._is_ending = True
        self._thread.join()
        self._socket.close()

    def tell(self, code: int, source: str) -> None:
        with self._lock:
            if code == ONLINE:
                self.online.append(source)
            elif code == OFFLINE:
                self.online.remove(source)
            for subscriber in self._subscribers:
                self._socket.sendto(event(code, source), subscriber)

    def forget_subscribers(self) -> None:
        """As one that has started anew."""
        with self._lock:
            self._subscribers.clear()

    def _serve(self) -> None:
        while not self._is_ending:
            with contextlib.suppress(TimeoutError):
                request, client = self._socket.recvfrom(8192)
                with self._lock:
                    self._handle(request, client)

    def _handle(self, request: bytes, client: Address) -> None:
        (code,) = struct.unpack_from(">H", request, 10)
        if code != STATUS_SUBSCRIPTION:
            self._socket.sendto(message(field(RESPONSE, b"")), client)
            self.moment("answered")
        elif struct.unpack_from(">i", request, 18)[0] == START:
            self.subscriptions += 1
            self.moment("asked")
            self._subscribers.append(client)
            for source in self.online:
                self._socket.sendto(event(ONLINE, source), client)
            self.moment("taken")
        elif client in self._subscribers:
            self._subscribers.remove(client)

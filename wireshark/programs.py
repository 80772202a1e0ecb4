"""A server, programs that talk to it, and what they say to each other."""

import os
import selectors
import socket
import subprocess
import sys
import threading
import time
from dataclasses import dataclass
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(SOURCE / "tests" / "support"))

# pylint: disable=wrong-import-position
from messages import code_of  # noqa: E402
from patience import PATIENCE, wait_for  # noqa: E402
from running_program import RunningProgram, RunningServer  # noqa: E402

PROGRAMS = Path(os.environ["ZORD410_PROGRAMS"])
LOOPBACK = "127.0.0.1"


class Program(RunningProgram):
    """One to which input goes with `say`."""

    def __init__(self, *arguments, environment, **options):
        super().__init__(*arguments, env=environment, stdin=subprocess.PIPE, **options)

    def say(self, words):
        self.process.stdin.write(words)
        self.process.stdin.flush()

    def wait(self, expected=0):
        """Until it ends by itself."""
        if not self.process.stdin.closed:
            self.process.stdin.close()
        status = self.process.wait(PATIENCE)
        self.reader.join()
        if status != expected:
            raise AssertionError(f"{self.process.args} ended with {status}: {self.output}")
        return self.output

    def end(self):
        super().end()
        self.process.stdin.close()


@dataclass
class Said:
    """A datagram that came through the relay."""

    at: int  # nanoseconds, by a clock that is never set
    client: int  # which one, from 0 on
    to_server: bool
    is_pushed: bool  # from a port that is not the server's own
    content: bytes


class Relay:
    """Passes datagrams on between clients and the server, and keeps them. Each client has a socket of its own to the
    server, to which rows are pushed."""

    def __init__(self, server_port):
        self.server = (LOOPBACK, server_port)
        self.said = []
        self.clients = {}  # by address: socket and number
        self.selector = selectors.DefaultSelector()
        self.front = self.bound()
        self.port = self.front.getsockname()[1]
        self.selector.register(self.front, selectors.EVENT_READ)
        self.is_ending = False
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    @staticmethod
    def bound():
        opened = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        opened.bind((LOOPBACK, 0))
        return opened

    def run(self):
        while not self.is_ending:
            for key, _ in self.selector.select(0.05):
                if key.fileobj is self.front:
                    self.to_server()
                else:
                    self.to_client(key.fileobj, key.data)

    def to_server(self):
        content, client = self.front.recvfrom(65536)
        if client not in self.clients:
            back = self.bound()
            self.clients[client] = (back, len(self.clients))
            self.selector.register(back, selectors.EVENT_READ, client)
        back, number = self.clients[client]
        at = time.monotonic_ns()  # before an answer can have come
        back.sendto(content, self.server)
        self.said.append(Said(at, number, True, False, content))

    def to_client(self, back, client):
        content, sender = back.recvfrom(65536)
        at = time.monotonic_ns()
        self.front.sendto(content, client)
        self.said.append(Said(at, self.clients[client][1], False, sender != self.server, content))

    def end(self):
        self.is_ending = True
        self.thread.join()
        for opened in (self.front, *(back for back, _ in self.clients.values())):
            opened.close()
        self.selector.close()


class Channel:
    """A server, and a folder and environment for programs that talk to it, through the relay where they use datagrams."""

    def __init__(self, folder):
        self.folder = folder
        self.environment = {name: value for name, value in os.environ.items() if not name.startswith(("ZORA_", "ZOR0_"))}
        self.environment["ZOR0_PRODUCT_SPEC"] = str(folder / "settings")
        actions = folder / "actions"
        actions.write_text("restart /bin/false\n")  # its result is 1
        server = RunningServer("--actions", actions, env=self.environment, cwd=folder)
        self.started = [server]
        self.port = server.port
        self.relay = Relay(self.port)
        self.environment["ZORA_DCH_PORT"] = str(self.relay.port)

    def start(self, name, *arguments):
        program = Program(PROGRAMS / name, *arguments, environment=self.environment, cwd=self.folder)
        self.started.append(program)
        return program

    def run(self, name, *arguments, expected=0):
        return self.start(name, *arguments).wait(expected)

    def wait_for_requests(self, code, count=1):
        """Until so many with this code have gone to the server."""
        def found():
            return sum(said.to_server and code_of(said.content) == code for said in list(self.relay.said)) >= count

        wait_for(lambda: f"{count} requests 0x{code:04x}; {[each.output for each in self.started]}", found)

    def end(self):
        for program in reversed(self.started):
            program.end()
        self.relay.end()

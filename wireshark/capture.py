"""Captures: packets of datagrams and connections, and the file that they are written to."""

import struct

SERVER, SERVER_PORT, PUSH_PORT = bytes((10, 0, 0, 1)), 1919, 46001
CLIENT = bytes((10, 0, 0, 2))
FIRST_CLIENT_PORT = 41000
START_NS = 1_700_000_000 * 10**9
FIN, SYN, PSH, ACK = 1, 2, 8, 16


def internet(protocol, to_server, payload):
    source, destination = (CLIENT, SERVER) if to_server else (SERVER, CLIENT)
    return struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(payload), 1, 0, 64, protocol, 0, source, destination) + payload


def datagram(to_server, client_port, content, server_port=SERVER_PORT):
    ports = (client_port, server_port) if to_server else (server_port, client_port)
    return internet(17, to_server, struct.pack(">HHHH", *ports, 8 + len(content), 0) + content)


class Capture:
    """Packets with their times in nanoseconds. Frames count from 1, as Wireshark's do."""

    def __init__(self):
        self.packets = []

    def add(self, packet, at=None):
        """Returns the number of the frame."""
        if at is None:
            at = (self.packets[-1][0] if self.packets else START_NS) + 1_000_000
        self.packets.append((at, packet))
        return len(self.packets)

    def add_datagram(self, to_server, content, client_port=FIRST_CLIENT_PORT, server_port=SERVER_PORT, at=None):
        return self.add(datagram(to_server, client_port, content, server_port), at)

    def write(self, path, longest=262144):
        """`longest`: as many bytes of each packet are kept."""
        with open(path, "wb") as file:
            file.write(struct.pack("<IHHiIII", 0xA1B23C4D, 2, 4, 0, 0, longest, 101))
            for at, packet in self.packets:
                kept = packet[:longest]
                file.write(struct.pack("<IIII", at // 10**9, at % 10**9, len(kept), len(packet)) + kept)


class Stream:
    """A connection in a capture: what is said goes into segments."""

    def __init__(self, capture, client_port, server_port=SERVER_PORT):
        self.capture, self.client_port, self.server_port = capture, client_port, server_port
        self.numbers = {True: 1000, False: 5000}  # of the next byte of each side
        self.segment(True, b"", SYN)
        self.segment(False, b"", SYN | ACK)
        self.segment(True, b"", ACK)

    def make(self, to_server, content, flags=PSH | ACK):
        ports = (self.client_port, self.server_port) if to_server else (self.server_port, self.client_port)
        acknowledged = 0 if flags == SYN else self.numbers[not to_server]
        header = struct.pack(">HHIIBBHHH", *ports, self.numbers[to_server], acknowledged, 5 << 4, flags, 65535, 0, 0)
        self.numbers[to_server] += len(content) + (flags & (SYN | FIN) != 0)
        return internet(6, to_server, header + content)

    def segment(self, to_server, content, flags=PSH | ACK, at=None):
        return self.capture.add(self.make(to_server, content, flags), at)

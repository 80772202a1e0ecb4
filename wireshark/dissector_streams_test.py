"""The dissector with connections: in segments of every kind, out of order, with losses, with what is no message. Takes
it from ZORD410_DISSECTOR, and the folder of the programs from ZORD410_PROGRAMS."""

import random
import socket
import struct
import sys
import unittest

sys.dont_write_bytecode = True

import messages  # noqa: E402  pylint: disable=wrong-import-position
from capture import FIRST_CLIENT_PORT, Capture, Stream  # noqa: E402  pylint: disable=wrong-import-position
from case import Case  # noqa: E402  pylint: disable=wrong-import-position
from messages import status_of  # noqa: E402  pylint: disable=wrong-import-position
from programs import LOOPBACK, PATIENCE  # noqa: E402  pylint: disable=wrong-import-position

SEED = 410
MALFORMED = 100


class Streams(Case):
    def answered(self):
        """What a client says over a connection, and what a real server answers to each."""
        channel = self.open_channel()
        opened = socket.create_connection((LOOPBACK, channel.port), PATIENCE)
        self.addCleanup(opened.close)
        reading = opened.makefile("rb")
        self.addCleanup(reading.close)

        def ask(content):
            opened.sendall(content)
            length = reading.read(4)
            return content, length + reading.read(int.from_bytes(length, "big") - 4)

        demo = messages.text(32, "DEMO")
        yield ask(messages.registration("DEMO", "DMO", "help:For tests;group:load;attr:load1,G,4;"))
        online, answer = ask(messages.online("DEMO", "load", "web1"))
        yield online, answer
        handle = int.from_bytes(answer[20:24], "big")
        for i in range(20):
            yield ask(messages.row(handle, ("load1", "G", struct.pack("<i", i))))
        for content in (messages.request(0x2040), messages.request(0x2040, demo), messages.request(0x2045, demo), messages.request(0x2050, demo),
                        messages.documented()["action"] + messages.request(0x2090, messages.long(288, 42)),
                        messages.documented()["deferral"] + messages.documented()["data subscription start"],
                        messages.documented()["status subscription start"], messages.request(0x9999),
                        messages.request(0x1025, messages.long(128, handle)), messages.request(0x1020, demo), b"\0\0\0\0"):
            yield ask(content)

    def expected(self, said):
        """How often each message has to be seen, and how many have answers."""
        requests = sum(content.count(bytes((0, 16, 0, 0, 0, 2))) for content, _ in said) + 1
        return requests, len(said)

    def seen(self, capture, options=()):
        frames = self.shark.frames(self.written(capture), "zord410.message", "zord410.response_to", "zord410.response_in", "zord410.malformed", "zord410.attribute.number", "tcp.stream", options=options)
        streams = {}
        for frame in frames:
            streams.setdefault(int(frame["tcp.stream"][0]), []).append(frame)
        return streams

    def test_streams_in_segments_of_every_kind(self):
        said = list(self.answered())
        self.assertEqual(MALFORMED, status_of(said[-1][1]))
        generator = random.Random(SEED)
        capture = Capture()
        for sizes in ((1 << 15,), (1,), (2,), (3,), (7,), (19,), range(1, 60)):
            stream = Stream(capture, FIRST_CLIENT_PORT + len(capture.packets) % 1000)
            for to_server, content in ((True, b"".join(each for each, _ in said)), (False, b"".join(each for _, each in said))):
                while content:
                    size = generator.choice(sizes)
                    stream.segment(to_server, content[:size])
                    content = content[size:]
        streams = self.seen(capture)
        self.assertEqual(7, len(streams))
        requests, answers = self.expected(said)
        for frames in streams.values():
            told = [message for frame in frames for message in frame["zord410.message"]]
            self.assertEqual(requests, sum(not each.startswith("Answer") for each in told))
            self.assertEqual(answers, sum(each.startswith("Answer to ") for each in told))
            self.assertEqual(answers, sum(len(frame["zord410.response_to"]) for frame in frames))
            self.assertEqual(answers, sum(len(frame["zord410.response_in"]) for frame in frames))
            self.assertEqual([str(i) for i in range(20)], [number for frame in frames for number in frame["zord410.attribute.number"]])
            # Two subscriptions, which are no datagrams, what has no code that is known, and a length of 0.
            self.assertEqual(4, sum(len(frame["zord410.malformed"]) for frame in frames))

    def test_streams_out_of_order_and_with_losses(self):
        said = list(self.answered())[:-1]
        content = b"".join(each for each, _ in said)
        capture = Capture()
        generator = random.Random(SEED)
        for i in range(60):
            stream = Stream(capture, FIRST_CLIENT_PORT + i)
            segments = []
            at = 0
            while at < len(content):
                size = generator.randrange(1, 100)
                segments.append(stream.make(True, content[at:at + size]))
                at += size
            if i % 3 == 0:
                for _ in range(5):
                    first = generator.randrange(len(segments) - 1)
                    segments[first:first + 2] = reversed(segments[first:first + 2])
            elif i % 3 == 1:
                del segments[generator.randrange(len(segments))]
            else:
                twice = generator.randrange(len(segments))
                segments.insert(twice, segments[twice])
            for segment in segments:
                capture.add(segment)
        ordered = self.seen(capture, options=("-o", "tcp.reassemble_out_of_order:TRUE"))
        requests = self.expected(said)[0] - 1
        for number, frames in ordered.items():
            if number % 3 != 1:
                self.assertEqual(requests, sum(len(frame["zord410.message"]) for frame in frames), number)
        self.assertEqual(60, len(self.seen(capture)))

    def test_streams_of_random_bytes_and_of_lengths_that_no_message_has(self):
        generator = random.Random(SEED)
        capture = Capture()
        for i in range(100):
            stream = Stream(capture, FIRST_CLIENT_PORT + i)
            for _ in range(5):
                stream.segment(generator.random() < 0.5, generator.randbytes(generator.randrange(1, 300)))
        broken = []
        for i, length in enumerate((0, 3, 1048577, 0xFFFFFFFF)):
            stream = Stream(capture, FIRST_CLIENT_PORT + 200 + i)
            broken.append(stream.segment(True, length.to_bytes(4, "big") + bytes(20)))
        frames = self.shark.frames(self.written(capture), "zord410.malformed")
        self.assertEqual([], [frame for frame in broken if not frames[frame - 1]["zord410.malformed"]])

    def test_a_message_with_more_fields_than_are_shown(self):
        capture = Capture()
        stream = Stream(capture, FIRST_CLIENT_PORT)
        content = messages.message(messages.short(16, 0x1030), *[messages.field(999, b"")] * 170_000)
        self.assertLess(len(content), 1048576)
        for at in range(0, len(content), 60_000):
            last = stream.segment(True, content[at:at + 60_000])
        frames = self.shark.frames(self.written(capture), "zord410.malformed", "zord410.message")
        self.assertEqual(["Request data"], frames[last - 1]["zord410.message"])
        self.assertTrue(frames[last - 1]["zord410.malformed"])


if __name__ == "__main__":
    unittest.main()

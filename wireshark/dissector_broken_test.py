"""The dissector with what nobody should send: it never fails, and marks as malformed what a real server refuses as
malformed. Takes the dissector from ZORD410_DISSECTOR, and the folder of the programs from ZORD410_PROGRAMS."""

import random
import socket
import struct
import sys
import unittest

sys.dont_write_bytecode = True

import messages  # noqa: E402  pylint: disable=wrong-import-position
from capture import FIRST_CLIENT_PORT, PUSH_PORT, Capture, Stream  # noqa: E402  pylint: disable=wrong-import-position
from case import Case  # noqa: E402  pylint: disable=wrong-import-position
from messages import code_of, status_of  # noqa: E402  pylint: disable=wrong-import-position
from programs import LOOPBACK, PATIENCE  # noqa: E402  pylint: disable=wrong-import-position
from shark import DISSECTOR, Shark  # noqa: E402  pylint: disable=wrong-import-position

SEED = 410
MALFORMED, UNKNOWN_ATTRIBUTE, UNKNOWN_HANDLE = 100, 103, 104
CLAUSES = "type:SOCK;help:For tests;group:load;attr:load1,G,4,one minute;attr:small,I,2;attr:note,T,20;attr:raw,C,6;"
ROW = [("load1", "G", struct.pack("<i", 17)), ("small", "I", struct.pack("<h", -2)), ("note", "T", b"quiet\0"), ("raw", "C", b"\x01\x02\x03\x04\x05\x06")]


def cut_and_flipped(content):
    """Cut at every length, and every byte changed in turn, in all its bits and in one."""
    yield from (content[:size] for size in range(1, len(content)))
    for i, byte in enumerate(content):
        for bits in (0xFF, 0x01):
            yield content[:i] + bytes((byte ^ bits,)) + content[i + 1:]


def arranged(content):
    """The same fields in other numbers and orders, with other types and lengths."""
    fields, at = [], 4
    while at < len(content):
        size = 6 + int.from_bytes(content[at + 2:at + 6], "big")
        fields.append(content[at:at + size])
        at += size
    for i in range(len(fields)):
        yield messages.message(*fields[:i], *fields[i + 1:])
        yield messages.message(*fields[:i + 1], *fields[i:])
        yield messages.message(*fields[:i], *fields[i + 1:], fields[i])
        for code in messages.field_types():
            yield messages.message(*fields[:i], messages.field(code, fields[i][6:]), *fields[i + 1:])
            yield messages.message(*fields[:i], messages.field(code, b""), *fields[i + 1:])


def random_messages(generator):
    codes = [*messages.field_types(), 0, 1, 999]
    requests = [*messages.request_codes().values(), 0x1011]
    for _ in range(1000):
        yield generator.randbytes(generator.randrange(1, 200))
        values = [generator.choice((generator.randbytes(generator.choice((0, 2, 4, 30))), b"text\0")) for _ in range(generator.randrange(6))]
        yield messages.request(generator.choice(requests), *(messages.field(generator.choice(codes), value) for value in values))


def registrations():
    """Texts that break a rule, or nearly do."""
    base = "appl:CASE,CAS;"
    attribute = "attr:load1,G,4;"
    for clauses in ("", "group:load", "group:load;", attribute, "group:load;group:more;" + attribute, f"group:load;{attribute}{attribute}",
                    f"group:load;{attribute}group:load;{attribute}", "group:;" + attribute, f"group:{'g' * 32};{attribute}", f"group:{'g' * 33};{attribute}",
                    "group:a,b;" + attribute, "group:load;attr:load1,Q,4;", "group:load;attr:load1,GG,4;", "group:load;attr:load1,G,0;", "group:load;attr:load1,G,4096;",
                    "group:load;attr:load1,G,4097;", "group:load;attr:load1,G,x;", "group:load;attr:load1,G,-4;", "group:load;attr:load1,G,0004;", "group:load;attr:load1,G;",
                    "group:load;attr:load1,G,4,a,b;", "group:load;attr:load1,G,4,;", f"group:load;attr:{'a' * 33},G,4;", "group:load;attr:,G,4;",
                    f"type:NONE;group:load;{attribute}", f"type:FILE;type:FILE;group:load;{attribute}", f"help:a;help:b;group:load;{attribute}", f"help:;group:load;{attribute}",
                    f"help:it's;group:load;{attribute}", f"help:a,b;group:load;{attribute}", f"other:a;group:load;{attribute}", f";group:load;{attribute}",
                    f" group : load ;\n\t{attribute} ", f"group:lo\tad;{attribute}", f"group:load;{attribute}x", f"group:load;{attribute}  ", f"appl:CASE,CAS;group:load;{attribute}",
                    f"group:lo\0ad;{attribute}", f"group:load;attr:load1,G, 4 , help ;", f"group:load;attr:load1,G,4{'0' * 30};", f"group:l\u00f6ad;{attribute}", f"group:load:x;{attribute}"):
        yield messages.request(0x1010, messages.text(32, "CASE"), messages.text(33, "CAS"), messages.field(18, (base + clauses).encode()))
    for appl in ("appl:CASE;", "appl:CASE,CAS,x;", "appl:,CAS;", "appl:CASE,CA;", "appl:CASE,CASE;", "appl:OTHER,CAS;", "appl:CASE,OTH;", " appl : CASE , CAS ;", "group:x;", ""):
        yield messages.request(0x1010, messages.text(32, "CASE"), messages.text(33, "CAS"), messages.field(18, f"{appl}group:load;{attribute}".encode()))
    long_name = "A" * 21
    for name in (long_name, long_name[1:]):
        yield messages.registration(name, "AAA", f"group:load;{attribute}")
    for size in (4096, 4097):
        spare = size - len(messages.registration("CASE", "CAS", f"help:;group:load;{attribute}"))
        yield messages.registration("CASE", "CAS", f"help:{'h' * spare};group:load;{attribute}")


class Conversation:
    """Says things to a server, one after the other, and learns which answers they get."""

    def __init__(self, case, port):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        case.addCleanup(self.socket.close)
        self.socket.settimeout(PATIENCE)
        self.socket.connect((LOOPBACK, port))
        self.last = messages.request(0x2045, messages.text(32, "LAST"))
        self.ask(messages.registration("LAST", "LST", "help:no more;group:g;attr:a,G,4;"))

    def ask(self, content):
        self.socket.send(content)
        return self.socket.recv(65536)

    def answer_to(self, content):
        """Nothing when there is none: the server answers in order, and then what is asked next."""
        self.socket.send(content)
        self.socket.send(self.last)
        answers = []
        while not answers or answers[-1][10:] != b"no more":
            answers.append(self.socket.recv(65536))
        return answers[0] if len(answers) > 1 else None


class Refused(Case):
    """A real server says what is malformed."""

    def prepare(self):
        channel = self.open_channel()
        conversation = Conversation(self, channel.port)
        capture = Capture()
        self.pairs = []  # frames of request and answer, with the answer's status

        def say(content):
            frame = capture.add_datagram(True, content)
            answer = conversation.answer_to(content)
            if answer is not None:
                self.pairs.append((frame, capture.add_datagram(False, answer), content, status_of(answer)))
            return answer

        say(messages.registration("DEMO", "DMO", CLAUSES))
        answer = say(messages.online("DEMO", "load", "web1"))
        return capture, say, int.from_bytes(answer[20:24], "big")

    def requests(self, handle):
        """One of each kind that is answered as a datagram. None takes the source of the rows away."""
        demo = messages.text(32, "DEMO")
        return [
            messages.row(handle, *ROW), messages.registration("CASE", "CAS", CLAUSES), messages.online("DEMO", "load", "web2"),
            messages.request(0x1025, messages.long(128, 0x7F7F7F7F)), messages.request(0x1020, messages.text(32, "NONE")),
            messages.request(0x2040), messages.request(0x2040, demo), messages.request(0x2045, demo), messages.request(0x2050, demo),
            messages.request(0x2090, messages.long(288, 1234)), messages.request(0x1011),
        ]

    def rows(self, handle):
        """Values that a registration has no room for, and some that it has."""
        for attributes in ([("load1", "G", b"\x01")], [("load1", "G", b"")], [("load1", "G", b"12345")], [("load1", "N", b"1234")], [("none", "G", b"1234")],
                           [("none", "G", b"1234"), ("load1", "X", b"1234")], [("load1", "G", b"1234"), ("load1", "G", b"1234")], [("note", "T", b"no zero")],
                           [("note", "T", b"\xff\xfe\0")], [("note", "T", b"t" * 20)], [("note", "T", b"t" * 21)], [("raw", "C", b"12345")], [("raw", "C", b"1234567")], []):
            yield messages.row(handle, *attributes)
        for size in (8192, 8193):
            spare = size - len(messages.row(handle, ("x", "T", b"")))
            yield messages.row(handle, ("x", "T", b"x" * spare))

    def test_marked_is_what_the_server_refuses_as_malformed(self):
        capture, say, handle = self.prepare()
        for content in self.requests(handle):
            for variant in (content, *cut_and_flipped(content), *arranged(content)):
                if code_of(variant) not in (0x2060, 0x2070):  # who subscribes is sent more than answers
                    say(variant)
        for variant in (*registrations(), *self.rows(handle)):
            say(variant)
        for variant in random_messages(random.Random(SEED)):
            if code_of(variant) not in (0x2060, 0x2070):
                say(variant)
        self.assertGreater(len(self.pairs), 4000)
        frames = self.shark.frames(self.written(capture), "zord410.malformed", "zord410.response_in", "zord410.response_to", "zord410.status")
        refused = 0
        for request, answer, content, status in self.pairs:
            marked = frames[request - 1]["zord410.malformed"] != []
            refused += marked
            what = f"frame {request}, answered with {status}: {content.hex()}"
            self.assertTrue(marked or status != MALFORMED, what)
            # The server stops at the first thing that is wrong with a row.
            self.assertTrue(not marked or status == MALFORMED or code_of(content) == 0x1030 and status in (UNKNOWN_ATTRIBUTE, UNKNOWN_HANDLE), what)
            self.assertEqual([str(answer)], frames[request - 1]["zord410.response_in"], what)
            self.assertEqual([str(request)], frames[answer - 1]["zord410.response_to"], what)
        self.assertGreater(refused, 2000)
        self.assertEqual([answer for _, answer, _, status in self.pairs if status and frames[answer - 1]["zord410.status"]], self.shark.matching(self.path, "zord410.status != 0 && udp.srcport == 1919"))
        self.assertTrue({"zord410.status != 0", "zord410.malformed"} <= set(messages.documented_filters()))


    def test_marked_is_what_the_server_refuses_over_a_connection(self):
        """Kinds that have no answer as datagrams, too."""
        channel = self.open_channel()
        opened = socket.create_connection((LOOPBACK, channel.port), PATIENCE)
        self.addCleanup(opened.close)
        reading = opened.makefile("rb")
        self.addCleanup(reading.close)
        last = messages.request(0x2045, messages.text(32, "LAST"))

        def answer():
            length = reading.read(4)
            return length + reading.read(int.from_bytes(length, "big") - 4)

        def answer_to(content):
            opened.sendall(content + last)
            first = answer()
            if first[10:] == b"no more":
                return None
            self.assertEqual(b"no more", answer()[10:])
            return first

        opened.sendall(messages.registration("LAST", "LST", "help:no more;group:g;attr:a,G,4;"))
        answer()
        capture, said = Capture(), []
        stream = Stream(capture, FIRST_CLIENT_PORT)
        variants = [variant for title in ("action", "deferral", "data subscription start", "status subscription stop", "offline")
                    for content in [messages.documented()[title]]
                    for variant in (content, *cut_and_flipped(content), *arranged(content)) if variant[:4] == len(variant).to_bytes(4, "big")]
        variants += [variant for variant in random_messages(random.Random(SEED)) if variant[:4] == len(variant).to_bytes(4, "big")]
        for content in variants:
            if code_of(content) == 0x2090:  # it may wait for an action to end
                continue
            answered = answer_to(content)
            said.append((stream.segment(True, content), content, answered and status_of(answered), answered and stream.segment(False, answered)))
        frames = self.shark.frames(self.written(capture), "zord410.malformed", "zord410.response_in")
        for request, content, status, answered in said:
            what = f"frame {request}, answered with {status}: {content.hex()}"
            self.assertEqual(status == MALFORMED, frames[request - 1]["zord410.malformed"] != [], what)
            self.assertEqual([str(answered)] if answered else [], frames[request - 1]["zord410.response_in"], what)
        self.assertGreater(sum(status is None for _, _, status, _ in said), 100)
        self.assertGreater(sum(status == MALFORMED for _, _, status, _ in said), 1000)


class Mangled(Case):
    """All messages that there are, in both directions."""

    def test_every_message_cut_and_changed_everywhere(self):
        capture, cut, generator = Capture(), [], random.Random(SEED)
        for title, content in messages.documented().items():
            for to_server in (True, False):
                for variant in (*cut_and_flipped(content), *arranged(content)):
                    frame = capture.add_datagram(to_server, variant, server_port=PUSH_PORT if generator.random() < 0.1 else 1919)
                    if len(variant) < len(content) and content.startswith(variant) and capture.packets[-1][1].find(struct.pack(">H", PUSH_PORT), 20, 24) < 0:
                        cut.append((frame, title))
        for variant in random_messages(generator):
            capture.add_datagram(generator.random() < 0.5, variant)
        frames = self.shark.frames(self.written(capture), "zord410.malformed", "zord410.message")
        self.assertEqual([], [each for each in cut if not frames[each[0] - 1]["zord410.malformed"]])
        self.assertGreater(len(cut), 1000)

    def test_captures_that_keep_little_of_each_packet(self):
        for longest in (28, 31, 33, 40, 50):
            capture = Capture()
            for content in messages.documented().values():
                capture.add_datagram(True, content)
                capture.add_datagram(False, content)
            stream = Stream(capture, FIRST_CLIENT_PORT)
            for content in messages.documented().values():
                stream.segment(True, content)
            frames = self.shark.frames(self.written(capture, longest=longest), "zord410.malformed", "zord410.not_whole", "zord410.message")
            whole = [len(packet) <= longest for _, packet in capture.packets]
            self.assertEqual([], [i for i, frame in enumerate(frames) if frame["zord410.message"] and not whole[i] and frame["zord410.malformed"]])
            if longest > 40:
                self.assertTrue(any(frame["zord410.not_whole"] for frame in frames))

    def test_long_answers_with_parts_lost_late_and_too_long(self):
        answer = messages.message(messages.field(18, b"GROUP,NAME,G,4,\n" * 1500))
        pieces = [answer[at:at + 8192] for at in range(0, len(answer), 8192)]
        self.assertEqual(3, len(pieces))
        capture = Capture()
        ask = messages.request(0x2050, messages.text(32, "DEMO"))

        def parts(*chosen, between=None):
            request = capture.add_datagram(True, ask)
            for piece in chosen:
                last = capture.add_datagram(False, piece)
                if between:
                    between()
            return request, last

        whole = parts(*pieces)
        lost = parts(pieces[0], pieces[2])
        again = parts(*pieces)
        asked_again = parts(*pieces, between=lambda: capture.add_datagram(True, ask))
        too_long = parts(pieces[0], pieces[1], pieces[1])
        late = parts(pieces[0])
        capture.add_datagram(False, pieces[1], at=capture.packets[-1][0] + 21 * 10**9)
        last = parts(*pieces)
        frames = self.shark.frames(self.written(capture), "zord410.response_in", "zord410.response_to", "zord410.part")
        for request, answered in (whole, again, last):
            self.assertEqual([str(answered)], frames[request - 1]["zord410.response_in"])
            self.assertEqual([str(answered - 2), str(answered - 1), str(answered)], frames[answered - 1]["zord410.part"])
        for request, _ in (lost, asked_again, too_long, late):
            self.assertEqual([], frames[request - 1]["zord410.response_in"])


class Failing(Case):
    def test_errors_of_the_dissector_do_not_stay_hidden(self):
        """Those of the first time a frame is dissected, nor those of later ones."""
        source = DISSECTOR.read_text()
        capture = Capture()
        capture.add_datagram(True, messages.request(0x2040))
        capture.add_datagram(False, messages.message(messages.field(18, b"")))
        path = self.written(capture)
        for number, place in enumerate(("local function learnAnswer(message, way, record)\n", "  if record.responseIn then")):
            self.assertEqual(1, source.count(place))
            failing = self.folder / "failing.lua"
            at = source.index(place) + (len(place) if place.endswith("\n") else 0)
            failing.write_text(source[:at] + ("" if place.endswith("\n") else "  if record.responseIn then") + " record.never.there = 1" + ("\n" if place.endswith("\n") else " end\n") + source[at:])
            shark = Shark(self.folder / f"failing{number}", failing)
            with self.assertRaisesRegex(AssertionError, "never|in frames .1., when"):
                shark.frames(path, "zord410.message")


if __name__ == "__main__":
    unittest.main()

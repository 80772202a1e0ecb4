"""The dissector with what a real server and real programs say to each other. Takes it from ZORD410_DISSECTOR, and the
folder of the programs from ZORD410_PROGRAMS."""

import json
import struct
import sys
import unittest

sys.dont_write_bytecode = True

import messages  # noqa: E402  pylint: disable=wrong-import-position
from capture import FIRST_CLIENT_PORT, PUSH_PORT, SERVER_PORT, START_NS, Capture, Stream, datagram, internet  # noqa: E402  pylint: disable=wrong-import-position
from case import Case  # noqa: E402  pylint: disable=wrong-import-position
from messages import code_of  # noqa: E402  pylint: disable=wrong-import-position

DEMO = "group:load;attr:load1,G,4,one minute;attr:small,I,2;attr:big,L,8;attr:note,T,20;"
CODES = messages.request_codes()
WORDS = messages.request_words()
DATA, SUBSCRIPTION, STATUS_SUBSCRIPTION = (CODES[f"DCH_REQUEST_{name}"] for name in ("DATA", "DATA_SUBSCRIPTION", "STATUS_SUBSCRIPTION"))
ACTION_RESULTS = CODES["DCH_REQUEST_ACTION_RESULTS"]


class Words(Case):
    """What the dissector says is what the sources say."""

    def values(self, name):
        page = self.shark.run("-G", "values")
        rows = [line.split("\t") for line in page.splitlines() if line.startswith(f"V\t{name}\t")]
        return {int(number, 0): words for _, _, number, words in rows}

    def test_requests_statuses_and_fields_have_the_words_of_the_sources(self):
        self.assertEqual(set(CODES.values()), set(WORDS))
        self.assertEqual(WORDS, self.values("zord410.request"))
        self.assertEqual(messages.statuses(), self.values("zord410.status"))
        self.assertEqual(messages.field_types(), self.values("zord410.field.type"))

    def test_every_documented_message_and_field_has_a_name(self):
        capture = Capture()
        for title, content in messages.documented().items():
            capture.add_datagram(not title.endswith(("answer", "event")), content, server_port=PUSH_PORT if title == "interrupt" else SERVER_PORT)
        frames = self.shark.frames(self.written(capture), "zord410.message", "zord410.field.type", "zord410.unknown", "zord410.malformed")
        self.assertEqual(set(messages.field_types()), {int(code) for frame in frames for code in frame["zord410.field.type"]})
        for title, frame in zip(messages.documented(), frames):
            expected = {"interrupt": "Interrupt", "status event": "Status event"}.get(title, "Answer" if title.endswith("answer") else "Request ")
            self.assertTrue(frame["zord410.message"] and frame["zord410.message"][0].startswith(expected), title)
            self.assertEqual(([], []), (frame["zord410.unknown"], frame["zord410.malformed"]), title)


class Programs(Case):
    """What the suite's own programs say to a real server, by datagrams."""

    def record(self):
        channel = self.open_channel()
        (self.folder / "demo.reg").write_text("appl:DEMO,DMO; type:SOCK; help:For tests;" + DEMO)
        attributes = "".join(f"attr:a{i},G,4;" for i in range(250))
        (self.folder / "large.reg").write_text(f"appl:LARGE,LRG; group:{'g' * 32};{attributes}")
        watch_status = channel.start("zordc", "status", "--format", "jsonl", "--count", "4")
        channel.wait_for_requests(STATUS_SUBSCRIPTION)
        watch = channel.start("zordc", "watch", "DEMO", "load", "--format", "jsonl", "--count", "2")
        channel.wait_for_requests(SUBSCRIPTION)
        provider = channel.start("zordp", "send", "-r", "demo.reg", "-g", "load", "-s", "web1", "--format", "jsonl")
        provider.say('{"load1": 17, "small": -2, "big": -9007199254740993, "note": "all qui\u00e9t"}\n{"load1": 25}\n')
        channel.wait_for_requests(DATA, 2)
        self.rows = [json.loads(line)["values"] for line in watch.wait().splitlines()]
        for arguments in (["apps"], ["apps", "DEMO"], ["attrs", "DEMO"], ["help", "DEMO"], ["defer", "--id", "42", "--key", "DMO", "--table", "LOAD", "--source", "web1", "--time", "1700000000"]):
            channel.run("zordc", *arguments)
        channel.run("zordc", "act", "restart", "--type", "257", "--node", "web1", "--subnode", "web1:DMO00", "--owner", "me", "--id", "7", "--parms", "now", "--wait", expected=1)
        provider.wait()
        watch_status.wait()
        channel.run("zordp", "send", "-r", "large.reg", "-g", "g" * 32, "-s", "web1", "--keep")
        self.large = channel.run("zordc", "attrs", "LARGE")
        said = channel.relay.said
        capture = Capture()
        for each in said:
            capture.add_datagram(each.to_server, each.content, FIRST_CLIENT_PORT + each.client, PUSH_PORT if each.is_pushed else SERVER_PORT, START_NS + each.at)
        self.written(capture)
        return said

    def test_what_programs_say(self):
        self.said = self.record()
        self.requests_have_all_codes()
        self.messages_are_told()
        self.answers_belong_to_requests()
        self.rows_are_as_programs_show_them()
        self.long_answers_are_put_together()
        self.filters_find()

    def requests_have_all_codes(self):
        self.assertEqual(set(CODES.values()), {code_of(each.content) for each in self.said if each.to_server})

    def messages_are_told(self):
        frames = self.shark.frames(self.path, "zord410.message", "zord410.request", "zord410.malformed", "zord410.length", "zord410.part")
        for each, frame in zip(self.said, frames):
            code = code_of(each.content)
            self.assertEqual([], frame["zord410.malformed"])
            if frame["zord410.message"] != ["Part of an answer"] and not frame["zord410.part"]:
                self.assertEqual([str(len(each.content))], frame["zord410.length"])
            if each.to_server:
                self.assertEqual([f"Request {WORDS[code]}"], frame["zord410.message"])
                self.assertEqual([hex(code)], [hex(int(value, 0)) for value in frame["zord410.request"]])
            elif each.is_pushed:
                self.assertEqual(["Pushed row" if code == DATA else "Status event"], frame["zord410.message"])

    def answers_belong_to_requests(self):
        """Each program asks one thing at a time."""
        frames = self.shark.frames(self.path, "zord410.response_in", "zord410.response_to", "zord410.time", "zord410.message")
        asked, answered = {}, 0
        for i, each in enumerate(self.said):
            if each.to_server and code_of(each.content):
                asked[each.client] = i
            elif not each.is_pushed and frames[i]["zord410.message"] != ["Part of an answer"]:
                request = asked.pop(each.client)
                self.assertEqual([str(request + 1)], frames[i]["zord410.response_to"])
                self.assertEqual([str(i + 1)], frames[request]["zord410.response_in"])
                expected = self.said[i].at - self.said[request].at
                self.assertEqual(expected, round(float(frames[i]["zord410.time"][0]) * 1e9))
                self.assertEqual([f"Answer to {WORDS[code_of(self.said[request].content)]}"], frames[i]["zord410.message"])
                answered += 1
            else:
                self.assertEqual([], frames[i]["zord410.response_to"])
        self.assertGreater(answered, 12)

    def rows_are_as_programs_show_them(self):
        names = [f"zord410.attribute.{name}" for name in ("name", "letter", "number", "text", "size", "help")]
        frames = self.shark.frames(self.path, *names, "zord410.application", "zord410.group", "zord410.source", "zord410.message", "zord410.code")
        for kind in ("Request data", "Pushed row"):
            first, second = [frame for frame in frames if frame["zord410.message"] == [kind]]
            self.assertEqual([["DEMO"], ["load"], ["web1"]], [first[f"zord410.{name}"] for name in ("application", "group", "source")])
            numbers, texts = list(first["zord410.attribute.number"]), list(first["zord410.attribute.text"])
            shown = {name: texts.pop(0) if letter == "T" else int(numbers.pop(0)) for name, letter in zip(first["zord410.attribute.name"], first["zord410.attribute.letter"])}
            self.assertEqual(self.rows[0], shown)
            self.assertEqual(self.rows[1], {second["zord410.attribute.name"][0]: int(second["zord410.attribute.number"][0])})
            self.assertEqual((["4"], ["one minute"]), (second["zord410.attribute.size"], second["zord410.attribute.help"]))

    def long_answers_are_put_together(self):
        frames = self.shark.frames(self.path, "zord410.reassembled_in", "zord410.part", "zord410.response")
        last = max(i for i, frame in enumerate(frames) if frame["zord410.part"])
        parts = [int(number) for number in frames[last]["zord410.part"]]
        self.assertEqual(last + 1, parts[-1])
        self.assertGreater(len(parts), 1)
        for part in parts[:-1]:
            self.assertEqual([str(last + 1)], frames[part - 1]["zord410.reassembled_in"])
        text = b"".join(self.said[part - 1].content for part in parts)[10:].decode()
        self.assertIn("a249", text)
        self.assertIn("a249", self.large)
        # Wireshark shows line ends as \n.
        self.assertTrue(frames[last]["zord410.response"][0].replace("\\n", "\n").startswith(text[:200]))

    def frames_of(self, condition):
        return [i + 1 for i, each in enumerate(self.said) if condition(each)]

    def filters_find(self):
        handle = [each for each in self.said if code_of(each.content) == DATA][0].content[18:22]
        number = struct.unpack(">i", handle)[0]
        has_handle = self.frames_of(lambda each: each.content[12:22] == bytes((0, 128, 0, 0, 0, 4)) + handle or each.content[14:24] == bytes((0, 128, 0, 0, 0, 4)) + handle)
        self.assertGreater(len(has_handle), 5)
        self.assertEqual(has_handle, self.shark.matching(self.path, f"zord410.handle == {number}"))
        self.assertEqual([], self.shark.matching(self.path, "zord410.status != 0"))
        result = self.shark.matching(self.path, "zord410.result == 1")
        self.assertEqual([ACTION_RESULTS], [code_of(self.said[int(frame["zord410.response_to"][0]) - 1].content)
                                            for frame in self.shark.frames(self.path, "zord410.response_to", options=("-Y", f"frame.number == {result[0]}"))])
        demo = self.shark.matching(self.path, 'zord410.application == "DEMO"')
        rows = self.frames_of(lambda each: code_of(each.content) == DATA)
        self.assertEqual([], sorted(set(rows) - set(demo)))
        self.assertEqual([], self.shark.matching(self.path, "zord410.malformed || zord410.not_whole || zord410.refused"))
        sent = self.frames_of(lambda each: each.to_server and code_of(each.content) == DATA)
        self.assertEqual(sent, self.shark.matching(self.path, 'zord410.attribute.name == "load1" && udp.dstport == 1919'))
        self.assertEqual(rows, self.shark.matching(self.path, 'zord410.request == "data"'))
        for expression in messages.documented_filters():
            if expression not in ("zord410.status != 0", "zord410.malformed"):  # nothing of that is here
                self.assertNotEqual([], self.shark.matching(self.path, expression), expression)
        deferred = self.shark.frames(self.path, "zord410.current_time", options=("-Y", 'zord410.current_time == "2023-11-14 22:13:20"'))
        self.assertEqual(1, len(deferred))


class Ports(Case):
    """Other ports than the usual one."""

    def capture(self):
        capture = Capture()
        message = messages.request(0x2040)
        for content in (message, message[:-1]):
            capture.add_datagram(True, content, server_port=5000)
        stream = Stream(capture, FIRST_CLIENT_PORT, 5000)
        stream.segment(True, message)
        return self.written(capture)

    def seen(self, *options):
        return self.shark.matching(self.capture(), "zord410", options)

    def test_whole_datagrams_are_found_on_any_port(self):
        self.assertEqual([1], self.seen())

    def test_the_preference_names_ports(self):
        self.assertEqual([1, 2, 6], self.seen("-o", "zord410.ports:1919,5000"))
        self.assertEqual([1, 2, 6], self.seen("-o", "zord410.ports:4999-5001"))

    def test_decode_as_takes_a_port(self):
        self.assertEqual([1, 2, 6], self.seen("-d", "udp.port==5000,zord410", "-d", "tcp.port==5000,zord410"))

    def test_the_usual_port_can_be_taken_away(self):
        capture = Capture()
        capture.add_datagram(True, b"no message")
        self.assertEqual([1], self.shark.matching(self.written(capture), "zord410"))
        self.assertEqual([], self.shark.matching(self.path, "zord410", ("-o", "zord410.ports:")))


class Registrations(Case):
    def test_rows_are_shown_by_the_registration_of_their_time_and_server(self):
        """Two servers with the same handle; one is told of another registration, and refuses a third."""
        done, refused = messages.message(messages.long(17, 0)), messages.message(messages.long(17, 100))
        capture, rows = Capture(), []

        def register(port, help_text, answer=done):
            capture.add_datagram(True, messages.registration("DEMO", "DMO", f"group:load;attr:load1,G,4,{help_text};"), server_port=port)
            capture.add_datagram(False, answer, server_port=port)

        def send_rows():
            for port in (1919, 5000):
                rows.append(capture.add_datagram(True, messages.row(1, ("load1", "G", b"1234")), server_port=port))

        for port, source in ((1919, "one"), (5000, "two")):
            register(port, source)
            capture.add_datagram(True, messages.online("DEMO", "load", source), server_port=port)
            capture.add_datagram(False, messages.message(messages.long(17, 0), messages.long(128, 1)), server_port=port)
        send_rows()
        register(5000, "three")
        send_rows()
        register(5000, "four", refused)
        send_rows()
        frames = self.shark.frames(self.written(capture), "zord410.source", "zord410.attribute.help", options=("-o", "zord410.ports:1919,5000"))
        shown = [(frames[row - 1]["zord410.source"], frames[row - 1]["zord410.attribute.help"]) for row in rows]
        one = (["one"], ["one"])
        self.assertEqual([one, (["two"], ["two"]), one, (["two"], ["three"]), one, (["two"], ["three"])], shown)

    def test_a_packet_that_came_back_with_an_error_counts_for_nothing(self):
        """The system quotes what it could not deliver."""
        capture = Capture()
        request = capture.add_datagram(True, messages.request(0x2040))
        quoted = datagram(True, FIRST_CLIENT_PORT, messages.request(0x2040))
        for size in (len(quoted), len(quoted) - 4, 28):
            capture.add(internet(1, False, struct.pack(">BBHI", 3, 3, 0, 0) + quoted[:size]))
        answer = capture.add_datagram(False, messages.message(messages.field(18, b"")))
        frames = self.shark.frames(self.written(capture), "zord410.response_in", "zord410.malformed", "zord410.message")
        self.assertEqual([str(answer)], frames[request - 1]["zord410.response_in"])
        self.assertEqual([[]] * len(frames), [frame["zord410.malformed"] for frame in frames])


if __name__ == "__main__":
    unittest.main()

"""What the programs themselves say to a shell that completes their command lines."""

import re
import subprocess
import sys
import time
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
sys.dont_write_bytecode = True

# pylint: disable=wrong-import-position
from programs import PLAIN, PROGRAMS, STRANGE, WithFolder, strange_group, strange_source  # noqa: E402

HELP_OPTION = re.compile(r"^  (?:(-\w)(?:,|\s))?(--[\w-]+)?", re.MULTILINE)
COMMANDS = {"zordchd": [], "zordp": ["send", "run"], "zordc": ["watch", "history", "apps", "attrs", "help", "status", "act", "defer"]}


class Programs(WithFolder):
    def run_program(self, program, *words, **environment):
        return subprocess.run([PROGRAMS / program, *words], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              env={**self.environment, **environment}, check=True)

    def answer(self, program, *words, **environment):
        """The lines that a shell gets, after which nothing else was said."""
        run = self.run_program(program, "--complete", *words, **environment)
        self.assertEqual("", run.stderr)
        return run.stdout.splitlines()

    def candidates(self, *words, **environment):
        return [line.split("\t")[0] for line in self.answer(*words, **environment)]

    def expect_names(self, names, *words):
        """It gives up when it is kept waiting."""
        deadline = time.monotonic() + 60
        while (found := self.candidates(*words)) != names and time.monotonic() < deadline:
            pass
        self.assertEqual(names, found)

    def options_in_help(self, program, *command):
        options = self.run_program(program, *command, "--help").stdout.split("Options:\n")[1]
        return {name for match in HELP_OPTION.finditer(options) for name in match.groups() if name}

    def test_every_option_of_the_help_is_offered_and_nothing_else(self):
        for program, commands in COMMANDS.items():
            for command in [[], *([each] for each in commands)]:
                with self.subTest(program=program, command=command):
                    shown = self.options_in_help(program, *command)
                    self.assertLessEqual({"-h", "--help"}, shown)
                    self.assertEqual(shown, set(self.candidates(program, *command, "-")))

    def test_every_command_of_the_help_is_offered_with_its_description(self):
        for program in ("zordp", "zordc"):
            commands = self.run_program(program, "--help").stdout.split("Subcommands:\n")[1].split("\n\n")[0]
            shown = [re.split(r"\s{2,}", line.strip()) for line in commands.splitlines()]
            self.assertEqual(COMMANDS[program], [name for name, _ in shown])
            self.assertEqual([f"{name}\t{description}" for name, description in shown], self.answer(program, ""))

    def test_the_help_does_not_tell_of_it(self):
        for program, commands in COMMANDS.items():
            for command in [[], *([each] for each in commands)]:
                self.assertNotIn("--complete", self.run_program(program, *command, "--help").stdout)

    def test_formats_are_those_that_the_help_names(self):
        self.assertEqual(["table", "csv", "jsonl"], self.candidates("zordc", "watch", "A", "g", "--format", ""))
        self.assertEqual(["csv", "jsonl"], self.candidates("zordp", "send", "--format", ""))

    def test_files_are_left_to_the_shell(self):
        for words in (("zordchd", "--config"), ("zordchd", "--actions"), ("zordchd", "--store"), ("zordp", "send", "-r"), ("zordp", "send", "-i"), ("zordp", "run"),
                      ("zordc", "history", "--token-file")):
            self.assertEqual(["\tfiles"], self.answer(*words, ""))

    def test_names_come_from_the_server(self):
        self.start_server()
        self.expect_names([], "zordc", "watch", "")
        self.register_all()
        applications = sorted([*PLAIN, *STRANGE], key=str.encode)
        for command in ("watch", "apps", "attrs", "help"):
            self.expect_names(applications, "zordc", command, "")
        for each in STRANGE:
            self.expect_names([strange_group(each), "other"], "zordc", "watch", each, "")
        self.expect_names([], "zordc", "watch", "NONE", "")
        # What history tells of is on the page.
        page = ("zordc", "history", "--web", self.page)
        self.expect_names(applications, *page, "")
        self.expect_names(PLAIN["DEMO"], *page, "DEMO", "")
        for each in STRANGE:
            self.expect_names([strange_source(each)], *page, each, strange_group(each), "--source", "")
        self.expect_names([f"--source={strange_source('~t#{u}')}"], *page, "~t#{u}", "--source=")

    def test_groups_to_send_come_from_the_registration(self):
        registration = self.folder / "demo.reg"
        registration.write_text("appl:DEMO,DMO; group:load; attr:a,G,4; group:of two words; attr:a,G,4;", encoding="ascii")
        for words in (("-r", str(registration)), (f"--registration={registration}",), ("-r", "~/demo.reg")):
            self.expect_names(["load", "of two words"], "zordp", "send", *words, "-g", "")
        for words in ((), ("-r", "/nowhere"), ("-r", "-"), ("-r", "/dev/tty"), ("-r", str(self.folder))):
            self.assertEqual([], self.answer("zordp", "send", *words, "-g", ""))

    def test_names_that_steer_a_terminal_are_left_out(self):
        self.start_server()
        for source in ("\x1b[2J", "two\nlines", "a\tb", "\u009b2J", "-x", "good"):
            self.register("DEMO", "DMO", ["load"], source)
        self.expect_names(["good"], "zordc", "history", "--web", self.page, "DEMO", "load", "--source", "")

    def test_who_does_not_answer_costs_a_moment_and_no_word(self):
        with self.silent_server():
            for words in (("watch",), ("watch", "DEMO"), ("history", "--web", self.page), ("history", "--web", self.page, "A", "g", "--source")):
                durations = []
                for _ in range(5):
                    start = time.monotonic()
                    self.assertEqual([], self.answer("zordc", *words, "", ZORA_TRACE="0xff", ZORA_TRACE_FILE=str(self.folder / "trace")))
                    durations.append(time.monotonic() - start)
                self.assertLess(min(durations), 0.9)
        self.assertEqual([], list(self.folder.iterdir()))

    def test_without_a_server_there_are_no_names_and_no_word(self):
        self.name_no_server()
        for environment in ({}, {"ZORA_TRACE": "0xff"}, {"ZORA_DCH_ADDR": "no such host"}, {"ZORA_DCH_IPCTYPE": "2"}, {"ZORA_DCH_TIMEOUT": "0"},
                            {"ZORA_DCH_UDP_SOCKETS_IN_POOL": "0"}, {"HOME": ""}):
            with self.subTest(environment):
                self.assertEqual([], self.answer("zordc", "watch", "", **environment))
                self.assertEqual([], self.answer("zordc", "history", "--web", self.page, "", **environment))
        self.assertEqual([], self.answer("zordc", "history", "--web", "no address", ""))
        self.assertEqual([], self.answer("zordc", "history", "--token-file", "/nowhere", ""))

    def test_by_hand_it_is_harmless(self):
        for program, commands in COMMANDS.items():
            self.assertEqual(commands or self.candidates(program, "-"), self.candidates(program))
            for words in ((), ("x",), ("x", "y", "z"), ("", ""), (" ", program), ("", ">")):
                run = self.run_program(program, "--complete-line", *words)
                self.assertEqual("", run.stderr)
                self.assertLessEqual(len(run.stdout.splitlines()), 1)


if __name__ == "__main__":
    unittest.main()

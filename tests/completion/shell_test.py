"""What Tab does in a real shell: shell_test.py bash|zsh|fish [unittest's arguments]."""

import subprocess
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
sys.dont_write_bytecode = True

# pylint: disable=wrong-import-position
from programs import COMPLETION, PLAIN, STRANGE, WithFolder, strange_group, strange_source  # noqa: E402
from shells import BareBash, Bash, Fish, Zsh  # noqa: E402

SHELL = {"bash": Bash, "zsh": Zsh, "fish": Fish}[sys.argv.pop(1)]


class InShell(WithFolder):
    def setUp(self):
        super().setUp()
        subprocess.run(["cmake", "--install", COMPLETION, "--prefix", self.folder], stdout=subprocess.DEVNULL, check=True)
        self.home = self.folder / "home"
        self.home.mkdir()

    def start_shell(self, kind=SHELL):
        self.shell = kind(self.home, self.folder / "share", self.environment)
        self.addCleanup(self.shell.close)

    def expect_completed(self, typed, *words):
        self.shell.expect_completed(typed, list(words))

    def expect_command_lines(self):
        self.expect_completed("zordc wat", "zordc", "watch")
        self.expect_completed("zordp se", "zordp", "send")
        self.expect_completed("zordp send --reg", "zordp", "send", "--registration")
        self.expect_completed("zordchd --inst", "zordchd", "--instance")
        self.expect_completed("zordchd --verbose --ver", "zordchd", "--verbose", "--version")
        self.expect_completed("zordc watch A g --format j", "zordc", "watch", "A", "g", "--format", "jsonl")
        self.expect_completed("zordc watch A g -F c", "zordc", "watch", "A", "g", "-F", "csv")
        self.expect_completed("zordc watch A g --format=j", "zordc", "watch", "A", "g", "--format=jsonl")
        self.shell.expect_shown("zordc ", "watch", "history", "apps", "attrs", "help", "status", "act", "defer")
        self.shell.expect_shown("zordc act --", "--node", "--subnode", "--owner", "--type", "--parms", "--id", "--wait")

    def test_command_lines(self):
        self.start_shell()
        self.expect_command_lines()

    if SHELL is Bash:
        def test_command_lines_without_bash_completion(self):
            self.start_shell(BareBash)
            self.expect_command_lines()
    else:
        def test_descriptions(self):
            self.start_shell()
            self.shell.expect_shown("zordc ", "Print every row of an attribute group", "Ask for an action")
            self.shell.expect_shown("zordchd --ver", "Tell each event on standard error", "Print the version and exit")

    def test_a_program_that_is_not_in_the_path(self):
        (self.home / "away").mkdir()
        (self.home / "away" / "zordc").write_text("#!/bin/sh\nexec zordp \"$@\"\n", encoding="ascii")
        (self.home / "away" / "zordc").chmod(0o755)
        self.start_shell()
        self.expect_completed("away/zordc se", "away/zordc", "send")
        self.expect_completed("~/away/zordc se", str(self.home / "away" / "zordc"), "send")

    def test_files(self):
        for name in ("plain.csv", "with blank.csv", "do$lar.csv"):
            (self.home / name).touch()
        self.start_shell()
        self.expect_completed("zordp send -i pl", "zordp", "send", "-i", "plain.csv")
        self.expect_completed("zordp send -i wi", "zordp", "send", "-i", "with blank.csv")
        self.expect_completed("zordp run pl", "zordp", "run", "plain.csv")
        self.expect_completed("zordp send --input do", "zordp", "send", "--input", "do$lar.csv")
        self.expect_completed("zordp send --input=wi", "zordp", "send", "--input=with blank.csv")
        self.expect_completed("zordchd --config pl", "zordchd", "--config", "plain.csv")
        self.expect_completed("zordchd --config ~/pl", "zordchd", "--config", str(self.home / "plain.csv"))
        self.shell.expect_silence("zordc act pl")
        self.expect_completed("zordc apps --format csv >pla", "zordc", "apps", "--format", "csv")
        self.expect_completed("zordc apps 2> plain.csv --format j", "zordc", "apps", "--format", "jsonl")
        self.assertFalse((self.home / "pla").exists())

    def test_names(self):
        self.start_server()
        self.register_all()
        self.start_shell()
        self.expect_completed("zordc watch DEM", "zordc", "watch", "DEMO")
        self.expect_completed("zordc watch DEMO lo", "zordc", "watch", "DEMO", "load")
        self.expect_completed("zordc watch --count 3 DEMO me", "zordc", "watch", "--count", "3", "DEMO", "memory")
        self.expect_completed("zordc help DES", "zordc", "help", "DESK")
        self.shell.expect_shown("zordc apps ", *PLAIN, "Übung")
        self.shell.expect_shown("zordc watch DEMO ", *PLAIN["DEMO"])
        for each in STRANGE:
            quoted = self.quoted(each)
            start = each[0] if each[0] not in "~^" else "\\" + each[0]
            self.expect_completed(f"zordc watch {start}", "zordc", "watch", each)
            self.expect_completed(f"zordc watch '{each[0]}", "zordc", "watch", each)
            self.expect_completed(f'zordc watch "{each[0]}', "zordc", "watch", each)
            self.expect_completed(f"zordc watch {quoted} g", "zordc", "watch", each, strange_group(each))

    def test_sources(self):
        self.start_server()
        self.register_all()
        self.start_shell()
        for each in STRANGE:
            group, source = strange_group(each), strange_source(each)
            typed = f"zordc history --web {self.page} {self.quoted(each)} {self.quoted(group)}"
            words = ["zordc", "history", "--web", self.page, each, group]
            for start in ("", "it", '"it', "it\\'s", '"it\'s'):
                self.expect_completed(f"{typed} --source {start}", *words, "--source", source)
            self.expect_completed(f"{typed} --source=it", *words, f"--source={source}")

    def quoted(self, name):
        return "'" + (name.replace("\\", "\\\\") if SHELL is Fish else name) + "'"

    def test_some_names_that_begin_alike(self):
        self.start_server()
        for name in ("two words", "two $igns", "two:colons"):
            self.register("DEMO", "DMO", ["load"], name)
        self.start_shell()
        typed = f"zordc history --web {self.page} DEMO load --source "
        words = typed.split()
        self.shell.expect_shown(typed, "words", "igns", "colons")
        self.expect_completed(f"{typed}two:", *words, "two:colons")
        self.expect_completed(f"{typed}two\\ \\$", *words, "two $igns")
        self.expect_completed(f"{typed}'two w", *words, "two words")

    def test_no_server(self):
        self.name_no_server()
        self.start_shell()
        self.expect_silence_for_names()

    def test_a_server_that_does_not_answer(self):
        with self.silent_server():
            self.start_shell()
            self.expect_silence_for_names()

    def expect_silence_for_names(self):
        for typed in ("zordc watch ", "zordc watch DEM", "zordc apps ", "zordc watch DEMO ", f"zordc history --web {self.page} DEM"):
            self.shell.expect_silence(typed)


if __name__ == "__main__":
    unittest.main()

"""Real shells on a terminal of their own, of which one sees what a user sees."""

import signal
import time

import pexpect
import pyte

PATIENCE = 60  # s, for what takes a moment
PROMPT = "ready> "
ROWS, COLUMNS = 60, 160
LONGEST_ATTEMPT = 5  # s; a completion gives up much sooner, and another attempt follows
CTRL_A = "\x01"  # to the beginning of the line

# What stands before a line to see how the shell takes it apart.
WORDS = """#!/bin/sh
for word; do printf '%s\\0' "$word"; done >"$HOME/words.new"
mv "$HOME/words.new" "$HOME/words"
"""


class Shell:
    """One at work in `home`, with the completions of `share` and no settings but those of its class."""

    def __init__(self, home, share, environment):
        self.home = home
        self.words_file = home / "words"
        self.last_attempt = None
        (home / "bin").mkdir(exist_ok=True)
        words = home / "bin" / "words"
        words.write_text(WORDS, encoding="utf-8")
        words.chmod(0o755)
        self.prepare(share)
        self.environment = {**environment, "HOME": str(home), "PATH": f"{home}/bin:{environment['PATH']}", "TERM": "xterm", "XDG_DATA_DIRS": f"{share}:/usr/share"}
        self.start()

    def start(self):
        self.screen = pyte.Screen(COLUMNS, ROWS)
        self.stream = pyte.Stream(self.screen)
        self.process = pexpect.spawn(self.command[0], self.command[1:], env=self.environment, cwd=str(self.home), dimensions=(ROWS, COLUMNS),
                                     encoding="utf-8", codec_errors="replace", timeout=PATIENCE)
        self.process.delaybeforesend = None
        self.wait(lambda: "the prompt", lambda: self.lines()[-1:] == [PROMPT.rstrip()])

    def close(self):
        self.process.kill(signal.SIGKILL)  # close() by itself expects a process to end in no time
        self.process.wait()
        self.process.close()

    def lines(self):
        """What the screen shows, without empty lines."""
        try:
            self.stream.feed(self.process.read_nonblocking(65536, timeout=0.02))
        except pexpect.TIMEOUT:
            pass
        return [line.rstrip() for line in self.screen.display if line.strip()]

    def comes(self, condition, seconds):
        deadline = time.monotonic() + seconds
        while not (met := condition()) and time.monotonic() < deadline:
            pass
        return met

    def wait(self, what, condition):
        if not self.comes(condition, PATIENCE):
            raise AssertionError(f"{self.command[0]}: not in {PATIENCE} s: {what()}\nIts screen:\n{self.screen_text()}")

    def screen_text(self):
        return "\n".join(self.lines())

    def tab(self, typed):
        """Types it and Tab at the prompt of an empty screen."""
        self.screen.reset()
        self.process.send("clear\r")
        self.wait(lambda: "an empty screen", lambda: self.lines() == [PROMPT.rstrip()])
        self.process.send(typed + "\t")

    def words(self):
        """Ends the line that was typed. Returns its words, and leaves the next prompt below it. None
        when it does not end, because of a quote that the completion was to close; another shell has
        a prompt then."""
        self.words_file.unlink(missing_ok=True)
        self.process.send(CTRL_A + "words \r")
        if self.comes(lambda: self.words_file.exists() and self.lines()[-1:] == [PROMPT.rstrip()], LONGEST_ATTEMPT):
            return self.words_file.read_text(encoding="utf-8").split("\0")[:-1]
        self.close()
        self.start()
        return None

    def expect(self, what, attempt):
        """A completion gives up when it takes too long, as it may on a busy machine: there may be
        several attempts. Each returns whether it was as expected."""
        self.wait(lambda: f"{what}. The last attempt:\n{self.last_attempt}", attempt)

    def expect_completed(self, typed, words):
        """Tab makes these words of what is typed."""
        def attempt():
            self.tab(typed)
            self.last_attempt = self.words()
            return self.last_attempt == words
        self.expect(f"{typed!r} becomes {words}", attempt)

    def expect_shown(self, typed, *texts):
        """Tab shows all of these below what is typed."""
        def attempt():
            self.tab(typed)
            shown = self.comes(lambda: all(each in self.screen_text() for each in texts), LONGEST_ATTEMPT)
            self.last_attempt = self.screen_text()
            self.words()
            return shown
        self.expect(f"{typed!r} shows {texts}", attempt)

    def expect_silence(self, typed):
        """Tab changes and shows nothing."""
        def attempt():
            self.tab(typed)
            self.words()
            self.last_attempt = self.screen_text()
            return self.last_attempt.split("\n") == [f"{PROMPT}words {typed}".rstrip(), PROMPT.rstrip()]
        self.expect(f"{typed!r} is left alone", attempt)


class Bash(Shell):
    command = ["bash", "--noprofile", "--rcfile", "rc", "-i"]
    settings = ". /usr/share/bash-completion/bash_completion"

    def prepare(self, share):
        (self.home / "rc").write_text(f"PS1='{PROMPT}'\n{self.settings.format(share=share)}\n", encoding="utf-8")
        (self.home / ".inputrc").write_text("set show-all-if-ambiguous on\nset completion-query-items 0\nset page-completions off\n", encoding="utf-8")


class BareBash(Bash):
    """Without bash-completion, which finds the file by itself."""
    settings = "for each in {share}/bash-completion/completions/*; do . $each; done"


class Zsh(Shell):
    command = ["zsh", "-d", "-i"]

    def prepare(self, share):
        (self.home / ".zshrc").write_text(f"PS1='{PROMPT}'\nfpath=({share}/zsh/vendor-completions $fpath)\nautoload -Uz compinit\ncompinit -u\nunsetopt list_ambiguous\n", encoding="utf-8")


class Fish(Shell):
    command = ["fish", "-i"]

    def prepare(self, share):
        del share  # fish finds it
        configuration = self.home / ".config" / "fish"
        configuration.mkdir(parents=True)
        (configuration / "config.fish").write_text(f"function fish_prompt; echo -n '{PROMPT}'; end\nset -g fish_greeting\n", encoding="utf-8")

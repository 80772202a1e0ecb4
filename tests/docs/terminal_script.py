"""A script of this project on a terminal of its own, in a folder where everything is there and built. Takes the
folder of the programs from ZORD410_PROGRAMS: nothing is installed or built."""

import contextlib
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "tests" / "support"))
sys.dont_write_bytecode = True

from patience import PATIENCE, wait_for  # noqa: E402  pylint: disable=wrong-import-position

PROGRAMS = Path(os.environ["ZORD410_PROGRAMS"])
# What is started in the background or for long may be started with these ignored, and that is handed on.
for each_signal in (signal.SIGHUP, signal.SIGINT):
    signal.signal(each_signal, signal.SIG_DFL)


class ScriptTest(unittest.TestCase):
    """What a script shows, and that it leaves nothing behind."""

    command: list[str] = []  # the script's name in scripts/, and what follows it

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix=f"zord410-{self.command[0]}-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.scratch = self.folder / "scratch"
        library = self.folder / "scripts" / "lib"
        for each in (library, self.folder / "build" / "release", self.scratch):
            each.mkdir(parents=True)
        shutil.copy(SOURCE / "scripts" / self.command[0], self.folder / "scripts")
        shutil.copy(SOURCE / "scripts" / "lib" / "processes.sh", library)
        (library / "packages.sh").write_text("build_packages=()\ninstall_packages() { :; }\n")
        (library / "build.sh").write_text("build_preset() { :; }\n")
        (self.folder / "build" / "release" / "bin").symlink_to(PROGRAMS)
        self.addCleanup(self.kill_what_is_left)
        self.start()

    def start(self):
        self.terminal, its_end = os.openpty()
        environment = {"HOME": str(self.folder), "LANG": "C.UTF-8", "PATH": os.environ["PATH"], "TMPDIR": str(self.scratch)}
        # The script leads the terminal's session.
        self.script = subprocess.Popen(["setsid", "--ctty", self.folder / "scripts" / self.command[0], *self.command[1:]],
                                       stdin=its_end, stdout=its_end, stderr=its_end, env=environment)
        os.close(its_end)
        self.output = ""
        self.is_closing = False
        self.reader = threading.Thread(target=self.read)
        self.reader.start()

    def read(self):
        os.set_blocking(self.terminal, False)
        while not self.is_closing:
            with contextlib.suppress(OSError):  # nothing to read, or nobody has the terminal any more
                self.output += os.read(self.terminal, 65536).decode()
            time.sleep(0.02)
        os.close(self.terminal)

    def close_terminal(self):
        self.is_closing = True
        self.reader.join()

    def wait_for_output(self, pattern):
        return wait_for(lambda: f"{pattern} in {self.output}", lambda: re.search(pattern, self.output))

    def processes(self):
        """All that the script has started: whoever has its folder for temporary files."""
        found = []
        for each in Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):  # it has ended
                if f"TMPDIR={self.scratch}\0".encode() in (each / "environ").read_bytes():
                    found.append(int(each.name))
        return found

    def kill_what_is_left(self):
        for process in self.processes():
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGKILL)
        self.script.wait()
        self.close_terminal()

    def expect_nothing_left(self):
        # What prints the rows ends by itself when they end.
        wait_for(lambda: f"the end of {self.processes()}", lambda: not self.processes())
        self.assertEqual([], list(self.scratch.iterdir()))

    def end_by_ctrl_c(self):
        os.write(self.terminal, b"\x03")
        self.assertEqual(0, self.script.wait(PATIENCE), self.output)
        self.expect_nothing_left()

    def end_by_closing_the_terminal(self):
        self.close_terminal()
        # An interactive shell tells its jobs too, and once more the system does when that shell is gone.
        deadline = time.monotonic() + PATIENCE
        while self.script.poll() is None and time.monotonic() < deadline:
            os.killpg(self.script.pid, signal.SIGHUP)
            time.sleep(0.02)
        self.assertIsNotNone(self.script.returncode)
        self.expect_nothing_left()

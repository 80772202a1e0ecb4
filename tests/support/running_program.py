"""A program beside a test; the server is of the folder that ZORD410_PROGRAMS names."""

import os
import re
import signal
import subprocess
import threading
from pathlib import Path

from patience import PATIENCE, wait_for


class RunningProgram:
    """A program whose output is read until its end, and that is ended with all that it started."""

    def __init__(self, *arguments, **options):
        self.process = subprocess.Popen([str(each) for each in arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, start_new_session=True, **options)
        self.output = ""
        self.reader = threading.Thread(target=self.read)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            self.output += line

    def wait_for_output(self, pattern):
        """Until a line of it matches; answers the pattern's first group."""
        def found():
            if self.process.poll() is not None:
                raise AssertionError(f"{self.process.args} ended: {self.output}")
            return re.search(pattern, self.output, re.MULTILINE)

        return wait_for(lambda: f"{pattern} in {self.output}", found)[1]

    def end(self):
        if self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGTERM)
            try:
                self.process.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                os.killpg(self.process.pid, signal.SIGKILL)
                self.process.wait()
        self.reader.join()
        self.process.stdout.close()


class RunningServer(RunningProgram):
    """zordchd with a page, on ports that the system gives."""

    def __init__(self, *arguments, **options):
        server = Path(os.environ["ZORD410_PROGRAMS"]) / "zordchd"
        super().__init__(server, "--port", "0", "--web", "127.0.0.1:0", *arguments, **options)

    @property
    def port(self):
        return int(self.wait_for_output(r" port (\d+)$"))

    @property
    def page(self):
        return self.wait_for_output(r" page on (\S+)$")

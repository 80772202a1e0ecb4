"""A program beside a test."""

import os
import re
import signal
import subprocess
import threading

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

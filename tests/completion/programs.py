"""The programs whose command lines are completed, and a server that has something to name. Takes
the folder of the programs from ZORD410_PROGRAMS and the built folder of the completions from
ZORD410_COMPLETION."""

import contextlib
import os
import socket
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))

from running_program import RunningServer  # noqa: E402  pylint: disable=wrong-import-position

PROGRAMS = Path(os.environ["ZORD410_PROGRAMS"])
COMPLETION = Path(os.environ["ZORD410_COMPLETION"])
ENVIRONMENT = {"PATH": f"{PROGRAMS}:/usr/bin:/bin", "LANG": "C.UTF-8"}

# Registrations allow no quotes and colons in the names of applications and groups, but in those of
# sources is anything.
STRANGE = [r"b l$x\y`!", "~t#{u}", "Übung & (z)*?", "q=r@s%t|<>[", "^v+w"]
PLAIN = {"DEMO": ["load", "memory"], "DESK": ["lamp"]}


def strange_group(application):
    return f"group {application}"


def strange_source(application):
    return f"it's \"{application}\":1"


class WithFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="zord410-completion-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.environment = {**ENVIRONMENT, "HOME": str(self.folder), "ZOR0_PRODUCT_SPEC": str(self.folder / "settings")}

    def start_server(self):
        server = RunningServer(env=self.environment)
        self.addCleanup(server.end)
        self.environment["ZORA_DCH_PORT"] = str(server.port)
        self.page = server.page

    def register(self, application, key, groups, source):
        registration = self.folder / "registration"
        registration.write_text(f"appl:{application},{key};" + "".join(f"group:{each};attr:a,G,4;" for each in groups), encoding="utf-8")
        subprocess.run([PROGRAMS / "zordp", "send", "--registration", registration, "--group", groups[0], "--source", source, "--keep"],
                       input="a\n", text=True, env=self.environment, check=True)

    def register_all(self):
        for number, application in enumerate(PLAIN):
            self.register(application, f"P{number:02}", PLAIN[application], f"{application}1")
        for number, application in enumerate(STRANGE):
            self.register(application, f"S{number:02}", [strange_group(application), "other"], strange_source(application))

    def name_no_server(self):
        """The system gives this port to nobody."""
        self.environment["ZORA_DCH_PORT"] = "1"
        self.page = "http://127.0.0.1:1/"

    @contextlib.contextmanager
    def silent_server(self):
        """Takes what comes, on both of its ports, and never answers."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as datagrams, socket.create_server(("127.0.0.1", 0)) as page:
            datagrams.bind(("127.0.0.1", 0))
            self.environment["ZORA_DCH_PORT"] = str(datagrams.getsockname()[1])
            self.page = f"http://127.0.0.1:{page.getsockname()[1]}/"
            yield

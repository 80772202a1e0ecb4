"""tshark with the dissector of ZORD410_DISSECTOR, as somebody has it who put it into his folder for plugins, and no
other settings."""

import os
import shutil
import subprocess
from pathlib import Path

DISSECTOR = Path(os.environ["ZORD410_DISSECTOR"])
SEPARATOR, AGGREGATOR = "\x1e", "\x1f"
PATIENCE_SECONDS = 240  # a capture takes seconds


class Shark:
    def __init__(self, folder, dissector=DISSECTOR):
        plugins = folder / ".local" / "lib" / "wireshark" / "plugins"
        plugins.mkdir(parents=True)
        shutil.copy(dissector, plugins / "zord410.lua")
        self.environment = {"HOME": str(folder), "LANG": "C.UTF-8", "PATH": os.environ["PATH"], "TZ": "UTC"}
        self.expect_no_other(plugins / "zord410.lua")

    def expect_no_other(self, dissector):
        try:
            plugins = [line.split("\t")[-1] for line in self.run("-G", "plugins").splitlines()]
        except AssertionError as error:
            raise AssertionError("is the dissector installed for all users of this machine?") from error
        if str(dissector) not in plugins:
            raise AssertionError(f"{dissector} is not among {plugins}")

    def run(self, *arguments):
        result = subprocess.run(["tshark", *[str(each) for each in arguments]], env=self.environment, capture_output=True, timeout=PATIENCE_SECONDS, check=False)
        errors = "".join(line for line in result.stderr.decode(errors="replace").splitlines(True) if not line.startswith("Running as user"))
        if errors or result.returncode != 0:
            raise AssertionError(f"tshark {arguments} ended with {result.returncode}: {errors}")
        return result.stdout.decode(errors="replace")

    def frames(self, capture, *names, options=()):
        """For each frame the values of the fields `names`, a list each. Each frame is dissected twice, as when somebody
        looks at it; errors of the dissector are not let through, neither of the first time nor of the second."""
        self.expect_no_errors(capture, options)
        frames = self.fields(capture, ("_ws.lua.error", *names), ("-2", *options))
        failed = [number for number, frame in enumerate(frames, 1) if frame["_ws.lua.error"]]
        if failed:
            raise AssertionError(f"Lua Error in frames {failed}, when they are dissected again")
        return frames

    def expect_no_errors(self, capture, options):
        texts = self.fields(capture, ("frame.number", "_ws.expert.message"), (*options, "-Y", "_ws.lua.error"))
        if texts:
            raise AssertionError(f"{len(texts)} frames, the first one: {texts[0]}")

    def fields(self, capture, names, options):
        wanted = [word for name in names for word in ("-e", name)]
        output = self.run("-n", "-r", capture, "-T", "fields", "-E", f"separator={SEPARATOR}", "-E", f"aggregator={AGGREGATOR}", *options, *wanted)
        lines = output.removesuffix("\n").split("\n") if output else []
        return [dict(zip(names, ([value for value in part.split(AGGREGATOR) if part] for part in line.split(SEPARATOR)))) for line in lines]

    def matching(self, capture, expression, options=()):
        """The numbers of frames."""
        return [int(frame["frame.number"][0]) for frame in self.fields(capture, ("frame.number",), ("-2", *options, "-Y", expression))]

"""What the tests of the dissector have in common."""

import tempfile
import unittest
from pathlib import Path

from programs import Channel
from shark import Shark


class Case(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="zord410-dissector-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.shark = Shark(cls.folder / "home")
        cls.path = cls.folder / "capture.pcap"

    def written(self, capture, **options):
        capture.write(self.path, **options)
        return self.path

    def open_channel(self):
        channel = Channel(self.folder)
        self.addCleanup(channel.end)
        return channel

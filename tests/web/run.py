"""Runs the page's tests in one browser: run.py [unittest's arguments]. Pictures of the page go to
the folder that ZORD410_PAGE_ARTEFACTS names."""

import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
sys.dont_write_bytecode = True

# pylint: disable=wildcard-import,wrong-import-position,unused-wildcard-import
from data_test import *  # noqa: E402,F403
from live_test import *  # noqa: E402,F403
from looks_test import *  # noqa: E402,F403
from modules_test import *  # noqa: E402,F403
from source_test import *  # noqa: E402,F403
from views_test import *  # noqa: E402,F403

unittest.main(argv=sys.argv)

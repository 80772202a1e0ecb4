"""scripts/cluster shows rows of all sites in the hub, and leaves nothing behind however it ends."""

import os
import signal
import subprocess
import unittest

from terminal_script import ScriptTest

ROWS_OF_ALL = r"rows in the hub: [1-9]\d* of west, [1-9]\d* of east, [1-9]\d* of north\r\n"


class Cluster(ScriptTest):
    """Three nodes, three sites and a hub, until somebody ends them."""

    command = ["cluster"]

    def test_the_hub_has_rows_of_all_sites_and_ctrl_c_ends_everything(self):
        self.wait_for_output(ROWS_OF_ALL)
        query = self.wait_for_output(r"\n +(sqlite3 -readonly .*)\r\n")[1]
        lines = subprocess.run(["sh", "-c", query], check=True, capture_output=True, text=True).stdout.splitlines()
        self.assertTrue(0 < len(lines) <= 9, lines)
        self.end_by_ctrl_c()

    def test_what_stands_still_ends_with_its_terminal(self):
        self.wait_for_output(ROWS_OF_ALL)
        node = self.wait_for_output(r"\n +kill -STOP (\d+);")[1]
        os.kill(int(node), signal.SIGSTOP)
        self.end_by_closing_the_terminal()


unittest.main()

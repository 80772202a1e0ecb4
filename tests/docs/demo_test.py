"""scripts/demo shows the page, and leaves nothing behind however it ends."""

import unittest
import urllib.request

from terminal_script import PATIENCE, ScriptTest

ADDRESS = r"the page: (http://\S+/)\r\n"
ROW = r"\n\d{4}-\d\d-\d\dT\S+Z "


class Demo(ScriptTest):
    """The demonstration, until somebody ends it."""

    command = ["demo", "--keep"]

    def test_the_page_comes_first_and_ctrl_c_ends_everything(self):
        address = self.wait_for_output(ADDRESS)
        self.assertEqual("", self.output[: address.start()].strip())
        with urllib.request.build_opener(urllib.request.ProxyHandler({})).open(address[1], timeout=PATIENCE) as page:
            self.assertIn("<title>", page.read().decode())
        self.wait_for_output(ROW)
        self.end_by_ctrl_c()

    def test_the_end_of_its_terminal_ends_everything(self):
        self.wait_for_output(ROW)
        self.end_by_closing_the_terminal()


unittest.main()

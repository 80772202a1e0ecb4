"""The page's modules that need no page, in the browser that runs them."""

from page_case import PageCase


class Modules(PageCase):
    def test_modules(self):
        self.open("modules_test.html")
        self.browser.wait("document.title.includes(' tests, ')", "the tests of the modules")
        failed = [line.text for line in self.browser.all(".failed")]
        self.assertEqual(failed, [])
        self.assertRegex(self.browser.js("return document.title"), r"^2\d tests, 0 failed$")

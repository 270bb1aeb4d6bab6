"""Reads pages as a browser does, without one."""

import base64
import hashlib
from html.parser import HTMLParser


class Page(HTMLParser):
    """Knows which elements are open, what style and scripts hold, and what refers to something."""

    def __init__(self, text):
        super().__init__()
        self.open, self.raw, self.references, self.policy = [], [], [], ""
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        self.open += [tag] if tag not in ("meta", "input") else []
        self.references += [value for name, value in attributes if name in ("src", "href", "action", "style")]
        if ("http-equiv", "Content-Security-Policy") in attributes:
            self.policy = attributes[1][1]

    def handle_endtag(self, tag):
        assert self.open.pop() == tag, self.getpos()

    def handle_data(self, data):
        if self.open and self.open[-1] in ("style", "script"):
            self.raw.append(data)

    def check(self, test):
        """Nothing reaches outside, and no name ends the element that holds the data."""
        style, data, script = self.raw
        test.assertEqual((self.open, self.references, self.policy[:20]), ([], [], "default-src 'none'; "))
        test.assertNotRegex(style + script, r"//\w|url\(|@import|innerHTML")
        test.assertNotIn("<", data)
        for text in style, script:
            digest = base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()
            test.assertIn(f"'sha256-{digest}'", self.policy)

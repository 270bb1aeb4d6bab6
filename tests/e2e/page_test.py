"""The page of --report html: the JSON report of the same run, and nothing that reaches outside."""

import base64
import hashlib
import json
import re
import unittest
from html.parser import HTMLParser

from hoplar import EXAMPLE, PLUGIN, HoplarTest

NAME = "</script><img src=//a/b><!--<script> &quot;\\u003c"
HEAP_ADDRESS = re.compile(r"0x[0-9a-f]+")


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


class PageTest(HoplarTest):
    def test_page_holds_the_json_report_of_the_same_run_and_asks_for_nothing(self):
        self.file("features.cfg", "MPS=all:max\nECRC=all:+:+\n?")
        with open(EXAMPLE) as file:
            self.file("input", file.read().replace("Example SAS adapter", NAME))
        for status, options in (0, []), (0, ["--only", "changed", "-s", "6:"]), (3, ["--check"]):
            html, data = (HEAP_ADDRESS.sub("", self.hoplar(
                "-F", "input", "-m", f"{PLUGIN},--config=features.cfg", "--report", form, *options,
                status=status)[0]) for form in ("html", "json"))
            page = Page(html)
            style, report, script = page.raw
            self.assertEqual((page.open, page.references, page.policy[:20]), ([], [], "default-src 'none'; "))
            self.assertNotRegex(style + script, r"//\w|url\(|@import|innerHTML")
            self.assertNotIn("<", report)
            self.assertEqual(json.loads(report), json.loads(data))
            self.assertIn(NAME, [row["name"] for row in json.loads(report)["functions"]])
            for text in style, script:
                digest = base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()
                self.assertIn(f"'sha256-{digest}'", page.policy)


unittest.main()

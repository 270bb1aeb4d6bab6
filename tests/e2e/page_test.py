"""The page of --report html: the JSON report of the same run, and nothing that reaches outside."""

import json
import re
import unittest

from hoplar import EXAMPLE, PLUGIN, HoplarTest
from page import Page

NAME = "</script><img src=//a/b><!--<script> &quot;\\u003c"
HEAP_ADDRESS = re.compile(r"0x[0-9a-f]+")


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
            page.check(self)
            report = page.raw[1]
            self.assertEqual(json.loads(report), json.loads(data))
            self.assertIn(NAME, [row["name"] for row in json.loads(report)["functions"]])


unittest.main()

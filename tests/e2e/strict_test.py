"""The lines of feature files are judged by what they have reached on the example machine."""

import json
import re
import unittest

from hoplar import EXAMPLE, PLUGIN, HoplarTest

LIMIT = "the limit is 256 (of 07:00.0): write max or 256"
# Options; events; a feature file; for each line its status, how many of how many functions hold what
# it asks for, how many are listed, and how its reason ends.
ROWS = (
    ((), "", "MPS=all:max\nECRC=all:+:+\nMPS=7.0.0:256\nMPS=66.0.0:128 # one", [
        "reached 18/18 0", "reached 28/28 0", "reached 1/1 1", "reached 2/2 2"]),
    ((), "", "MPS=7.0.0:128\nMPS=all:max\nECRC=0:-:=\nECRC=0:+:+\nMPS=7.0.0:128\nMPS=8.0.0:512", [
        "replaced 0/0 0", "reached 19/19 0", "replaced 0/0 0", "reached 4/4 0",
        "not_reached 0/1 6 04:00.0 (line 2) is the first below the same root port, 00:02.0: write the "
        "size you want there", f"refused 0/1 6 {LIMIT}"]),
    ((), "", "MPS=all:1024\nMPS=4.0.0:128\nMPS=1.0.0:384\nECRC=0.31.4:+:+\nECRC=17:+:+\nASPM=1", [
        "refused 2/16 16 with max or 512", "reached 1/1 1", "refused 0/2 3 write 256 or 512",
        "refused 0/1 1 leave it out", "refused 0/0 0 leave it out", "refused 0/0 0 this version"]),
    ((), "", "MPS=01:00.0:256\nMPS=99.0.0:256\nMPS=16.0.0:256\nMPS all\nMSP=1\nECRC=all:=:=\nMPS=0.1.0:max\n"
     "ECRC=99:+:+\nMPS=0.8.0:max", ["dropped 0/0 0 "] * 9),
    ((), "", "MPS=all:max,1.0.0:128\nMPS=01z.0.0:512\nMPS=1.0.0:max:x\nMPS=all:max:x", [
        "replaced 0/0 0", "replaced 0/0 0", "replaced 0/0 0", "partly_read 21/21 0 leave it out"]),
    (("--manage", "40-ff"), "remove 40:02.0", "MPS=66.0.0:max\nECRC=0.1.0:+:+\nMPS=all:max", [
        "refused 0/0 0 removed", "refused 0/0 0 not managed", "reached 2/2 0"]),
    ((), "flr 04:00.0", "ECRC=4.0.0:=:+\nECRC=all:+:=\nMPS=all:max", [
        "not_reached 0/1 1 checking off on 04:00.0", "reached 27/27 0", "reached 21/21 0"]),
)


class StrictTest(HoplarTest):
    def run_on_example(self, *options, status):
        return self.hoplar("-F", EXAMPLE, "-q", "-e", "events", *options, status=status)

    def test_each_line_is_judged_by_the_registers(self):
        for options, events, content, expected in ROWS:
            self.file("input", content)
            self.file("events", events)
            options = ("-m", f"{PLUGIN},--config=input", "--report", "json", *options)
            requests = json.loads(self.run_on_example(*options, status=0)[0])["requests"]
            found = [f"{line['status']} {line['reached']}/{line['selected']} {len(line['functions'])} "
                     f"{line['reason'] or ''}".strip() for line in requests]
            pattern = [rf"{re.escape(text[:end])}.*{re.escape(text[end:])}" for text in expected
                       for end in [re.match(r"\S+ \S+ \d+ ?", text).end()]]
            for text, wanted in zip(found, pattern, strict=True):
                self.assertRegex(text, wanted + "$")
            faults = [line["line"] for line in requests if line["status"] not in ("reached", "replaced")]
            _, errors = self.run_on_example("--strict", *options, status=int(bool(faults)))
            self.assertEqual([int(line) for line in re.findall(r"/input:(\d+): ", "\n".join(errors))], faults)

    def test_warnings_are_about_functions_that_a_line_names(self):
        for lines, warned in ("", 0), ("ECRC=8.0.0:+:+", 2), ("MPS=8.0.0:max", 2), ("MPS=1.0.0:max", 0):
            self.file("input", "MPS=all:max\nECRC=all:+:+\n" + lines)
            _, messages = self.hoplar("-F", EXAMPLE, "-m", f"{PLUGIN},--config=input")
            self.assertEqual(["[08:00.0]" in line for line in messages], [True] * warned)

    def test_files_that_cannot_be_read(self):
        self.file("events", "")
        self.file("good", "MPS=all:max")
        for argument, error in (("--config=.", "is a directory"), ("--config=none", "cannot be read"),
                                ("--config=/dev/null", "is no regular file"), ("--conf=good", "is not --config")):
            for options, status in (((), 0), (("--strict",), 1), (("--strict", "--check"), 1)):
                _, errors = self.run_on_example("-m", f"{PLUGIN},{argument}", *options, status=status)
                self.assertEqual(error in "\n".join(errors), bool(status), errors)


unittest.main()

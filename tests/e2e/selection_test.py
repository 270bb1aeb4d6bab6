"""All forms of the report show the same functions with --only and -s."""

import json
import re
import unittest

from hoplar import EXAMPLE, PLUGIN, HoplarTest

LOST, BELOW_6 = ["01:00.0", "01:00.1"], ["06:00.0", "06:01.0", "07:00.0", "08:00.0"]
CHANGED_BELOW_2 = ["02:00.0", "03:00.0", "03:01.0", "04:00.0", "05:00.0", *BELOW_6]
# Options, the functions that they select, the bridges above these, and the warning.
ROWS = (
    (["-s", "0:1."], ["00:01.0", *LOST], [], []),
    (["-s", "6:.0", "-s", "0001::"], BELOW_6, ["00:02.0", "02:00.0", "03:01.0", "05:00.0"], [
        "warning: -s 0001::: no function of this machine matches"]),
    (["--only", "changed"], ["00:01.0", "00:02.0", *CHANGED_BELOW_2], [], []),
    (["--only", "problems"], LOST, ["00:01.0"], []),
    (["--only", "problems,changed", "-s", "0000::00.*"], LOST + CHANGED_BELOW_2, ["00:01.0", "00:02.0"],
     []),
    (["--only", "changed", "--only", "pcie", "-s", "12:"], [], [], []),
    (["-s", "0:1f"], ["00:1f.0", "00:1f.4"], [], []),
)
TABLE_ROW, DOT_CELL = (re.compile(row) for row in (
    r"(?m)^[* ] [ │├└─]*(\S+\.\d) ", r"(?:<B>|[>,] ?)(\w\w:\w\w\.\d)(?=[ ,<])"))


class SelectionTest(HoplarTest):
    def report(self, form, *options):
        text, messages = self.hoplar("-F", EXAMPLE, "-m", f"{PLUGIN},--config=features.cfg", "-e", "events",
                                     "-o", "output.lspci", "--report", form, *options)
        with open(self.output, "rb") as file:
            return text, messages, file.read()

    def test_all_forms_show_what_is_selected_and_nothing_else_changes(self):
        self.file("features.cfg", "MPS=7.0.0:256\nMPS=1.0.0:max\n")
        self.file("events", "remove 00:01.0\ninsert 00:01.0\n")
        _, usual, written = self.report("none")
        for options, selected, above, warning in ROWS:
            with self.subTest(options=options):
                texts = {}
                for form in "json", "table", "dot":
                    texts[form], messages, output = self.report(form, *options)
                    self.assertEqual(messages, warning + usual)
                    self.assertEqual(output, written)
                shown = {*selected, *above}
                report = json.loads(texts["json"])
                self.assertEqual([f["bdf"] for f in report["functions"]], sorted(selected))
                self.assertEqual(report["shown"], {"functions": len(selected), "of": 47})
                for form, address in ("table", TABLE_ROW), ("dot", DOT_CELL):
                    self.assertEqual({*address.findall(texts[form])}, shown)
                    self.assertIn(f"{len(shown)} of 47 functions shown; whole machine: 47 ", texts[form])
                self.assertEqual([f"{h['root_port']}: {h['text']}" for h in report["hierarchies"]],
                                 re.findall(r"(?m)^-- root port (.+)$", texts["table"]))
                errors = {f["function"] for f in report["findings"]["after"] if f["severity"] == "error"}
                self.assertEqual(errors, {*LOST} & shown)
                self.assertEqual("not shown: 2 errors" in texts["table"], not errors)


unittest.main()

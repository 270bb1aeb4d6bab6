"""The Ansible module hoplar_plan understands the reports of whole machines."""

import importlib
import json
import os
import sys
import types
import unittest
from pathlib import Path

from hoplar import EXAMPLE, PLUGIN, HoplarTest

DUMPS = [EXAMPLE, *sorted(Path(os.environ.get("MACHINES") or "none").glob("*.lspci"))]

# What it needs of Ansible is not for reading reports.
sys.modules["ansible.module_utils.basic"] = types.SimpleNamespace(AnsibleModule=None)
sys.path.append(os.path.join(os.path.dirname(__file__), "../../packaging/ansible/roles/hoplar/library"))
plan = importlib.import_module("hoplar_plan")


class AnsibleTest(HoplarTest):
    def test_the_difference_has_a_line_for_each_setting_that_changes(self):
        self.file("features.cfg", "MPS=all:max\nECRC=all:+:+\n")
        for dump in DUMPS:
            text, _ = self.hoplar("-q", "-F", dump, "-m", f"{PLUGIN},--config=features.cfg", "--report", "json")
            changed = [row for row in json.loads(text)["functions"] if row["changed"]]
            settings = [each for row in changed for each in (row["mps"], *(row["ecrc"] or {}).values()) if each]
            shown = plan.difference(changed)
            lines = zip(shown["before"].splitlines(), shown["after"].splitlines(), strict=True)
            self.assertEqual(sum(before != after for before, after in lines),
                             sum(each["before"] != each["after"] for each in settings), dump)


if __name__ == "__main__":
    unittest.main()

"""The remarks of hoplar-check on lines for real machines agree with what the module does with them."""

import os
import re
import subprocess
import unittest
from pathlib import Path

from hoplar import PLUGIN, HoplarTest

# Saved real machines, which may not be there.
MACHINES = Path(os.environ.get("MACHINES") or "none")
P6T6, PLX, ARI = (MACHINES / f"tree-{name}.lspci" for name in
                  ("asus-p6t6", "arm-n1sdp-plx-mps-256b", "intel-z890-arl-sriov-ari"))
# A machine; a file; for each remark the line, the first letter of its kind, and how its text begins. The
# module sets nothing with any of them.
ROWS = (
    (P6T6, "MPS=4.0.0:256\nMPS=0.3.0:256\nMPS=0.1.0:max\nECRC=0:+:+", [
        "1w 256 bytes are dropped for 04:00.0, below root port 00:03.0 the limit is 128 (of 02:00.0, "
        "03:00.0 and 03:02.0)", "2w 00:03.0 is a bridge, the line sets nothing: write an endpoint below "
        "it, the nearest is 04:00.0, written 4.0.0", "3w 00:01.0 is a bridge, the line sets nothing: "
        "no endpoint is below it, the nearest", "4w the line selects 26 functions, 0 of them"]),
    (PLX, "MPS=all:256", ["1w 256 bytes are dropped for 01:00.1, below"]),
    (ARI, "MPS=1.0.0:max\nMPS=83.0.0:max", ["1w the line sets nothing, 01:00.0 is an ARI "
        "function, which has two numbers: write 1.0 or 0x01.0", "2w there is no 53:00.0, the line sets "
        "nothing: numbers are decimal, lspci's 83:00.0 is written 131.0.0"]))


class CheckTest(HoplarTest):
    def test_remarks_agree_with_the_module(self):
        for machine, content, expected in (row for row in ROWS if os.path.exists(row[0])):
            self.file("input", content)
            done = subprocess.run([os.environ["CHECK"], "-F", machine, "input"], cwd=self.folder.name,
                                  check=False, capture_output=True, encoding="utf-8")
            texts = ["".join(found) for found in re.findall(r"(?m)^input:(\d+): (.)arning:( .*)$", done.stdout)]
            self.assertEqual([text[:len(start)] for text, start in zip(texts, expected, strict=True)], expected)
            self.assertEqual(done.returncode, 1)
            self.hoplar("-F", machine, "--check", "-m", f"{PLUGIN},--config=input", status=0)


unittest.main()

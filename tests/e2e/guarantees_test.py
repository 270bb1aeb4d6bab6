"""What holds whatever a feature file asks of the machine in $MACHINE: see docs/guarantees.md.

Knows where the registers are, and nothing of what the requests mean.
"""

import json
import os
import random
import re
import unittest

from expectation import Machine, read_dump
from hoplar import PLUGIN, HoplarTest

DUMP = os.environ["MACHINE"]
ROUNDS = int(os.environ.get("ROUNDS", 4))
FORMS = "table", "json", "html", "dot", "metrics"
# A terminal may obey these, or show what follows them elsewhere than it stands.
OBEYED = re.compile("[\0-\x09\x0b-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069\ufffe\uffff]")
ODD = (b"\x1b[2J", b"\x9b", "\u202e".encode(), b"\r", b"\0", b"\xff", b"MPS", b"=", b":", b"4294967297", b"#",
       b"9" * 300, b"%s%n", b"<script>", "ä".encode())


def random_line(choice, machine):
    if choice(range(8)) == 0:
        return b"".join(choice(ODD) for _ in range(choice(range(12))))
    name = machine.name(choice([*machine]))
    who = choice(["all", name, name, re.sub(r"\d+$", "*", name), name.split(".")[0]])
    size = choice(["max", "max", "4096", "512", "384", "256", "128", "1", "0x200", "-1"])
    line = choice([f"MPS={who}:{size}", f"ECRC={who}:{choice('+-=')}:{choice('+-=')}"]).encode()
    return line if choice(range(8)) else line + choice(ODD)


def writable(f):
    """The bits that may change, as {offset: bits}: Max_Payload_Size, and the two ECRC enables."""
    payload = {f.express + 8: 0xE0} if f.express else {}
    return payload | ({f.aer + 0x18: 0x40, f.aer + 0x19: 0x01} if f.aer else {})


class GuaranteesTest(HoplarTest):
    def run_form(self, form, *options, dump=DUMP):
        """The report, after a look at every byte that a terminal or a file gets."""
        module = f"{PLUGIN},--config={self.file('features.cfg')}"
        text, messages = self.hoplar("-F", dump, "--domain", "all", "-m", module, "--report", form,
                                     "-v", "-v", "-v", "-v", "-d", "-o", self.output, *options)
        if form != "html":  # the page escapes for a browser, and its test looks at that
            self.assertIsNone(OBEYED.search(text))
        messages = "\n".join(messages)
        self.assertIsNone(OBEYED.search(messages))
        return [re.sub("0x[0-9a-f]{9,}", "POINTER", each) for each in (text, messages)]

    def check_bits(self, before, after, changed):
        """`changed`: the addresses that the report says have changed."""
        for domain, functions in before.items():
            machine = Machine(functions)
            self.assertEqual(list(functions), list(after[domain]))
            for f in machine:
                mask, new = writable(f), after[domain][f.address]
                strayed = [at for at, (a, b) in enumerate(zip(f.data, new, strict=True)) if (a ^ b) & ~mask.get(at, 0)]
                self.assertEqual(strayed, [], f.address)
                self.assertEqual(f.data != new, (domain, *f.address) in changed, f.address)
                size = 128 << f.payload_in(after[domain]) if f.express else 0
                if f.express and size != f.mps:
                    above = [g for g in (f, *machine.path(f, end=None)) if g.express]
                    self.assertLessEqual(size, min(g.supported for g in above), f.address)

    def test_any_feature_file(self):
        choice = random.Random(DUMP).choice
        before = read_dump(DUMP)
        machines = [Machine(functions) for functions in before.values()]
        for _ in range(ROUNDS):
            lines = [random_line(choice, choice(machines)) for _ in range(choice((2, 10, 40)))]
            options = choice(((), ("--complete",)))
            self.file("features.cfg", b"\n".join(lines))
            with self.subTest(lines=lines, options=options):
                first = self.run_form("json", *options)
                after = read_dump(self.output)
                changed = {(int(f["domain"], 16), *(int(part, 16) for part in re.split("[:.]", f["bdf"])[-3:]))
                           for f in json.loads(first[0])["functions"] if f["changed"]}
                self.check_bits(before, after, changed)
                self.assertEqual(first, self.run_form("json", *options))
                self.run_form(choice(FORMS), *options)
                self.assertEqual(read_dump(self.output), after)
                os.rename(self.output, self.file("after.lspci"))
                self.run_form("json", *options, dump=self.file("after.lspci"))
                self.assertEqual(read_dump(self.output), after, "a second start has changed something")


if __name__ == "__main__":
    unittest.main()

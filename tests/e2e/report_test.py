"""The JSON reports about the machine in $MACHINE are as docs/report.schema.json describes them."""

import itertools
import json
import os
import subprocess
import sys
import unittest

try:
    from jsonschema import Draft202012Validator
except ImportError:
    if os.environ.get("HOPLAR_SKIP_NOTHING"):
        raise
    print("Skipped: needs python3-jsonschema; 'scripts/check packages' installs what checks need")
    sys.exit(77)

from expectation import Machine, read_dump
from hoplar import HOPLAR, PLUGIN, HoplarTest

DUMP = os.environ["MACHINE"]
with open(os.path.join(os.path.dirname(__file__), "../../docs/report.schema.json")) as file:
    SCHEMA = json.load(file)


def objects(schema):
    children = schema.values() if isinstance(schema, dict) else schema
    if isinstance(schema, dict) and "properties" in schema:
        yield schema
    for child in children:
        if isinstance(child, (dict, list)):
            yield from objects(child)


class ReportTest(HoplarTest):
    def test_schema_describes_every_field_and_allows_no_other(self):
        Draft202012Validator.check_schema(SCHEMA)
        for each in objects(SCHEMA):
            self.assertIs(each["additionalProperties"], False)
            self.assertEqual(each["required"], [*each["properties"]])
            self.assertEqual([name for name, field in each["properties"].items()
                              if not field.get("description")], [])

    def test_reports_are_as_the_schema_says(self):
        self.file("features.cfg", "MPS=all:max\nECRC=all:+:+\nMPS=all:4096\nECRC=0:-:+\nECRC=0.0.0:+:-\n?")
        removals = {domain: [f"remove %02x:%02x.%x\n" % port.address for port in Machine(functions).limits]
                    for domain, functions in read_dump(DUMP).items()}
        for domain, *options in itertools.product(removals, *(
                ((), (option,)) for option in ("--cold", "--check", "--complete", "-eevents"))):
            self.file("events", removals[domain][0] if removals[domain] else "")
            text = subprocess.run(
                [HOPLAR, "-F", DUMP, f"--domain={domain:x}", "-m", f"{PLUGIN},--config=features.cfg", "-d",
                 "--report=json", *sum(options, ())], capture_output=True, cwd=self.folder.name).stdout
            errors = Draft202012Validator(SCHEMA).iter_errors(json.loads(text))
            self.assertEqual([f"{error.json_path}: {error.message}" for error in errors][:9], [], options)


if __name__ == "__main__":
    unittest.main()

"""The JSON reports about the machine in $MACHINE are as docs/report.schema.json describes them."""

import itertools
import json
import os
import re
import subprocess
import sys
import time
import unittest
from collections import Counter

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


def read_metrics(text):
    """Each sample as ((name, value of each label), value)."""
    *families, end = re.split(r"(?m)^(?=# [HE])", text)[1:]
    assert end == "# EOF\n"
    for family in families:
        name, (_, kind, *samples) = family.split()[2], family.splitlines()
        assert kind == f"# TYPE {name} gauge"
        for sample in samples:
            labels, value = re.fullmatch(name + r'\{(domain(?:="(?:[^"\\]|\\["\\])*",?\w*)+)\} (\d+)', sample).groups()
            yield (name, *re.findall(r'="((?:[^"\\]|\\.)*)"', labels)), int(value)


def counted_rows(report):
    """For each row of a JSON report that a metric counts its name and labels."""
    for row in report["functions"]:
        silent = "no answer" in (row["gone"], row["type"])
        yield from [["functions"]] + [["functions_changed"]] * row["changed"] + [["functions_silent"]] * silent
        for name, control in ("generation", "gen"), ("checking", "chk"):
            ecrc = (row["ecrc"] or {}).get(control, {"after": None})
            if ecrc["after"] is not None:
                yield from [["functions_ecrc_capable", name]] * ecrc["capable"]
                yield from [["functions_ecrc_enabled", name]] * ecrc["after"]
    for row in report["hierarchies"]:
        for name, size in ("payload", row["after"]), ("path_max", row["path_max"]):
            yield f"hierarchies_by_{name}", str(size) if size and size <= 4096 else "unknown"
    yield from (("findings", row["code"], row["severity"]) for row in report["findings"]["after"])
    yield from (("modules", "failed" if row["result"] else "running") for row in report["modules"])
    yield from (("requests", row["status"]) for row in report["requests"])
    for severity in "error", "warning":
        yield from [["messages", severity]] * report["messages"][severity]


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

    def test_metrics_count_what_the_json_report_lists(self):
        features = self.file('f"\\.cfg', "MPS=all:max\nECRC=all:+:-\nECRC=all:=:=\nASPM=1\nMPS=9\nMPS=200.0.0:max")
        checksum = subprocess.check_output(["cksum", features], text=True).split()[-3]
        domains, events = read_dump(DUMP), ""
        for domain, functions in domains.items():
            events += "".join(f"remove {domain:04x}:%02x:%02x.%x\n" % port.address
                              for port in [*Machine(functions).limits][:1])
        self.file("events", events)
        arguments = ["-F", DUMP, "-m", f"{PLUGIN},--config={features}", "-e", "events"]
        text, _ = self.hoplar(*arguments, "--report", "json")
        report, begin = json.loads(text), int(time.time())
        self.hoplar(*arguments, "--report", "metrics", "--report-file", "hoplar.prom")
        with open(self.file("hoplar.prom"), encoding="utf-8") as file:
            samples = [*read_metrics(file.read())]
        found = Counter()
        for (name, _, *labels), value in samples:
            self.assertTrue(name != "hoplar_run_timestamp_seconds" or begin <= value <= time.time())
            found[name.removeprefix("hoplar_"), *labels] += value
        self.assertEqual(len(samples), len(dict(samples)))
        self.assertEqual({domain for (_, domain, *_), _ in samples},
                         {*(f"{domain:04x}" for domain in domains), *["none"] * (len(domains) > 1)})
        for name, kind, field, more in ("findings", "finding", "code", []), ("requests", "request", "status", ["absent"]):
            self.assertEqual({key[1] for key in found if key[0] == name},
                             {*SCHEMA["$defs"][kind]["properties"][field]["enum"], *more})
        wanted = Counter(map(tuple, counted_rows(report)))
        wanted["build_info", "3.0"] = wanted["requests", "absent"] = len(domains)
        wanted["requests", "dropped"] -= len(domains)
        wanted["feature_file_info", re.sub(r'(["\\])', r"\\\1", features), checksum] = len(domains)
        del found["run_timestamp_seconds",]
        self.assertEqual(+found, wanted)


if __name__ == "__main__":
    unittest.main()

"""How the scenarios of a virtual machine are run, and what they leave behind is read."""

import json
import os
import subprocess
import sys

import jsonschema

HERE = os.path.dirname(os.path.abspath(__file__))
OUT, RELEASE = (os.path.normpath(f"{HERE}/../../build/{name}") for name in ("vm/out", "release"))
for name, program in (("HOPLAR", "host/cli/hoplar"),
                      ("CHECK", "tools/check/hoplar-check"), ("OPS", "tools/ops/hoplar-ops"),
                      ("PLUGIN", "module/hoplar-enable_features.so")):
    os.environ.setdefault(name, f"{RELEASE}/{program}")
sys.path.append(f"{HERE}/../e2e")


def text(name):
    with open(f"{OUT}/{name}", encoding="utf-8") as file:
        return file.read()


def report(name):
    """The JSON report, which is as its schema says."""
    with open(f"{HERE}/../../docs/report.schema.json") as file:
        jsonschema.validate(found := json.loads(text(name)), json.load(file))
    return found


def boot(*parameters, **environment):
    """Returns the exit status of tests/vm/boot."""
    return subprocess.run([f"{HERE}/boot", *parameters],
                          env={**environment, **os.environ}).returncode


def check(scenarios, names):
    """Runs these tests of a class. Returns whether any has failed."""
    failures = 0
    for name in names:
        result = scenarios(name).run()
        faults = [trace for _, trace in result.errors + result.failures]
        failures += len(faults)
        print("FAIL" if faults else "PASS", name, *faults, flush=True)
    return failures > 0

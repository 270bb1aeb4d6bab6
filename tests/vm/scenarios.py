"""How the scenarios of a virtual machine are run, and what they leave behind is read."""

import os
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
OUT, RELEASE = (os.path.normpath(f"{HERE}/../../build/{name}") for name in ("vm/out", "release"))
for name, program in (("HOPLAR", "host/cli/hoplar"), ("OPS", "tools/ops/hoplar-ops"),
                      ("PLUGIN", "module/hoplar-enable_features.so")):
    os.environ.setdefault(name, f"{RELEASE}/{program}")
sys.path.append(f"{HERE}/../e2e")


def text(name):
    with open(f"{OUT}/{name}", encoding="utf-8") as file:
        return file.read()


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

"""Runs the tests on the mutants, in the sandbox: judge.py WORK SANDBOX JOBS. What it finds goes to
WORK/results, a line of JSON for each mutant."""

import collections
import concurrent.futures
import json
import os
import pathlib
import re
import subprocess
import sys
import threading
import time

WORK, SANDBOX, JOBS = pathlib.Path(sys.argv[1]), sys.argv[2], int(sys.argv[3])
RESULTS = WORK / "results"

# These look at the files of a release, not at what the programs do.
OTHER_LABELS = {"abi", "packages", "documents"}
OTHER_TESTS = {"rooms"}

# A mutant that takes longer than this, compared with the original, hangs.
LONGEST = 10
ADDED_SECONDS = 5

# The longer tests, in seconds, run when all mutants have seen the others.
QUICK = 2

REACHED, DIFFERS = 1, 2


class Test:
    def __init__(self, listed):
        values = {each["name"]: each["value"] for each in listed.get("properties", [])}
        self.name, self.command = listed["name"], listed.get("command")
        self.labels = set(values.get("LABELS", []))
        self.folder = values.get("WORKING_DIRECTORY", "/")
        self.environment = dict(each.split("=", 1) for each in values.get("ENVIRONMENT", []))
        self.skipped = values.get("SKIP_RETURN_CODE")
        self.seconds, self.passed = 0.0, set()

    def is_judge(self, without):
        is_other = self.labels & OTHER_LABELS or self.name in OTHER_TESTS
        return self.command and not is_other and not (without and re.search(without, self.name))

    def run(self, limit, **environment):
        """Returns "passed", or why it has not."""
        values = {**os.environ, **self.environment, **environment, "TMPDIR": "/tmp"}
        process = subprocess.Popen([SANDBOX, "--test", *self.command], cwd=self.folder, env=values,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, start_new_session=True)
        try:
            status = process.wait(limit)
        except subprocess.TimeoutExpired:
            # With it end all processes of its namespace.
            process.kill()
            process.wait()
            return "hangs"
        if status == 99:
            raise RuntimeError(f"{self.name}: the sandbox refuses")
        return "passed" if status in (0, self.skipped) else "fails"


def run_originals(tests, count):
    """Runs each test on the original: returns {test's name: what it sees of each mutant}."""
    seen = {}

    def run(test):
        file = RESULTS / f"seen.{test.name.replace('/', '_')}"
        file.write_bytes(bytes(count))
        begin = time.monotonic()
        result = test.run(3600, HOPLAR_MUTANTS_SEEN=str(file))
        test.seconds = time.monotonic() - begin
        seen[test.name] = file.read_bytes()
        file.unlink()
        return f"{test.name} {result}" if result != "passed" else None

    with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
        failures = [each for each in pool.map(run, tests) if each]
    if failures:
        sys.exit("without any mutant: " + ", ".join(failures))
    return seen


class Judge:
    """Runs mutants. Tests that have killed mutants of the same file come first."""

    def __init__(self, tests, seen, state):
        self.tests, self.seen, self.state = tests, seen, state
        self.killers = collections.defaultdict(collections.Counter)
        self.lock = threading.Lock()
        self.file = open(RESULTS / "results", "a", encoding="utf-8")

    def order(self, mutant, tests):
        """What a test takes, for each mutant that it is likely to kill."""
        killed = self.killers[mutant["file"]]
        total = sum(killed.values()) + 1
        return sorted(tests, key=lambda test: (0.05 + test.seconds) / (0.02 + killed[test.name] / total))

    def judge(self, mutant, longest):
        """Runs the tests that take up to so many seconds; returns whether there are more to run."""
        reaching, able = self.tests_of(mutant["number"])
        quick = [test for test in able if test.seconds <= longest]
        for test in self.order(mutant, [test for test in quick if mutant["number"] not in test.passed]):
            result = test.run(ADDED_SECONDS + LONGEST * test.seconds, HOPLAR_MUTANT=str(mutant["number"]))
            if result != "passed":
                with self.lock:
                    self.killers[mutant["file"]][test.name] += 1
                self.write(mutant, "killed", f"{test.name} {result}")
                return False
            test.passed.add(mutant["number"])
        if not able:
            result = "no difference" if reaching else "not reached"
            self.write(mutant, result, f"{len(reaching)} tests")
        elif quick == able:
            self.write(mutant, "survived", f"{len(able)} tests")
        else:
            self.write(mutant, "survived so far", f"{len(quick)} of {len(able)} tests")
        return quick != able

    def tests_of(self, number):
        """The tests that reach a mutant, and those of them in which its value differs."""
        reaching = [test for test in self.tests if self.seen[test.name][number] & REACHED]
        return reaching, [test for test in reaching if self.seen[test.name][number] & DIFFERS]

    def judge_all(self, mutants, longest):
        """Returns those that have longer tests to run."""
        left, begin = [], time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
            running = {pool.submit(self.judge, mutant, longest): mutant for mutant in mutants}
            for count, each in enumerate(concurrent.futures.as_completed(running), 1):
                if each.result():
                    left.append(running[each])
                if count % 200 == 0 or count == len(mutants):
                    print(f"{count} of {len(mutants)} mutants, {time.monotonic() - begin:.0f} s", flush=True)
        return left

    def write(self, mutant, result, by):
        with self.lock:
            print(json.dumps({"key": mutant["key"], "file": mutant["file"], "result": result, "by": by,
                              "tests": self.state}), file=self.file, flush=True)


def known_results(state):
    """{(file, key)} of what need not run again: the killed, and all that the same tests have seen."""
    known = set()
    if (RESULTS / "results").exists():
        for line in open(RESULTS / "results", encoding="utf-8"):
            each = json.loads(line)
            is_known = each["tests"] == state and each["result"] != "survived so far"
            if each["result"] == "killed" or is_known:
                known.add((each["file"], each["key"]))
    return known


def main():
    for path in ("/sys/bus", "/proc/bus/pci"):
        if os.path.exists(path):
            sys.exit(f"{path} is visible: this is not the sandbox")
    job = json.loads((WORK / "mutants.json").read_text())
    known = known_results(job["tests"])
    wanted = [each for each in job["wanted"] if (each["file"], each["key"]) not in known]
    print(f"{len(wanted)} mutants to run", flush=True)
    if not wanted:
        return
    listed = json.loads((WORK / "tests.json").read_text())["tests"]
    tests = [test for test in map(Test, listed) if test.is_judge(job["without"])]
    judge = Judge(tests, run_originals(tests, job["count"]), job["tests"])
    print(f"{len(tests)} tests take {sum(test.seconds for test in tests):.0f} s", flush=True)
    left = judge.judge_all(wanted, QUICK)
    left = [mutant for mutant in left if not mutant["is_equivalent"]]
    print(f"{len(left)} mutants survive all tests of up to {QUICK} s", flush=True)
    judge.judge_all(left, float("inf"))


main()

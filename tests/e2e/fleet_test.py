"""The sums of hoplar-fleet are compared with a count of the same reports in Python."""

import csv
import io
import json
import os
import subprocess
import unittest
from collections import Counter, defaultdict
from pathlib import Path

from hoplar import EXAMPLE, HOPLAR, PLUGIN, HoplarTest
from page import Page

DUMPS = [EXAMPLE, *sorted(Path(os.environ.get("MACHINES") or "none").glob("*.lspci"))]
EMPTY = {"format": 2, "functions": [], "hierarchies": [], "findings": {"after": []}, "requests": []}


def settings(report):
    """{(address, what): value} of all that machines of one model are compared by."""
    for row in report["functions"]:
        mps, ecrc = row["mps"] or {}, row["ecrc"] or {}
        for what, value in (("supported", mps.get("supported")), ("payload", mps.get("after")),
                            ("generation", ecrc and ("off", "on")[ecrc["gen"]["after"]]),
                            ("checking", ecrc and ("off", "on")[ecrc["chk"]["after"]])):
            if value:
                yield (row["bdf"], what), str(value)
    for finding in report["findings"]["after"]:
        yield (finding["function"], finding["code"]), finding["severity"]


def limits(reports):
    """{(vendor, device, size): [devices, machines, hierarchies, freed]}"""
    sums = defaultdict(lambda: [0, 0, 0, 0])
    for report in reports:
        rows = {row["bdf"]: row for row in report["functions"]}
        of_machine = set()
        for hierarchy in (each for each in report["hierarchies"] if each["possible"]):
            devices = defaultdict(set)
            for address in hierarchy["limiters"]:
                row = rows[address]
                devices[row["vendor"], row["device"], hierarchy["path_max"]].add(
                    address[:-5] if row["ari"] else address[:-2])
            for key, places in devices.items():
                counts = (len(places), key not in of_machine, 1, len(devices) == 1)
                sums[key] = [sum(pair) for pair in zip(sums[key], counts)]
            of_machine.update(devices)
    return sums


class FleetTest(HoplarTest):
    def fleet(self, *arguments, status=0, text=None):
        done = subprocess.run([os.environ["FLEET"], *arguments], cwd=self.folder.name, check=False,
                              capture_output=True, encoding="utf-8", input=text or "")
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stdout, done.stderr.splitlines()

    def make_fleet(self):
        """Three machines of each model, the last one with features set: {name: report}"""
        os.makedirs(self.file("r/rack"))
        self.file("features.cfg", "MPS=all:max\nECRC=all:+:-\nMPS=all:4096")
        reports = {}
        for dump in DUMPS:
            for name, options in (("a", ()), ("b", ()), ("c", ("-m", f"{PLUGIN},--config=features.cfg"))):
                text, _ = self.hoplar("-q", "-F", dump, "--report", "json", *options)
                name = f"rack/{name}-{Path(dump).stem}"
                self.file(f"r/{name}.json", text)
                reports[os.path.basename(name)] = json.loads(text)
        return reports

    def test_sums_are_those_of_the_reports(self):
        reports = self.make_fleet()
        result = json.loads(self.fleet("--form=json", "r")[0])
        every = [*reports.values()]
        below, limited = ([sum(map(is_counted, each["hierarchies"])) for each in every] for is_counted in (
            lambda row: (row["after"] or 9999) < (row["path_max"] or 0), lambda row: row["possible"] is not None))
        different = {name for name in reports if dict(settings(reports[name])) != dict(settings(reports["a" + name[1:]]))}
        self.assertTrue(different)
        self.assertEqual(result["totals"], {
            "machines": len(every), "models": len(DUMPS), "unreadable": 0, "partial": 0,
            "hierarchies": sum(len(each["hierarchies"]) for each in every),
            "below_machines": sum(map(bool, below)), "below_hierarchies": sum(below),
            "limited_machines": sum(map(bool, limited)), "limited_hierarchies": sum(limited),
            "different_machines": len(different), **{
                f"{name}_{what}": sum(row["ecrc"][control][field] for each in every for row in each["functions"]
                                      if row["ecrc"] and not row["physical_function"])
                for name, control in (("generation", "gen"), ("checking", "chk"))
                for what, field in (("capable", "capable"), ("on", "after"))}})
        self.assertEqual({(row["vendor"], row["device"], row["supported"]): [
            row[name] for name in ("devices", "machines", "hierarchies", "freed")] for row in result["limits"]},
            limits(every))
        found = Counter(finding["code"] for each in every for finding in each["findings"]["after"])
        self.assertEqual({row["code"]: row["findings"] for row in result["findings"]}, found)
        missed = Counter((row["keyword"], row["value"], row["status"]) for each in every
                         for row in each["requests"] if row["status"] not in ("reached", "replaced"))
        self.assertEqual({(row["keyword"], row["value"], row["status"]): row["requests"]
                          for row in result["requests"]}, missed)
        self.check_differences(reports, result["differences"])
        self.check_other_forms(reports, result)

    def check_differences(self, reports, rows):
        wanted = {}
        for name, report in reports.items():
            here, usual = dict(settings(report)), dict(settings(reports["a" + name[1:]]))
            for key in sorted({*here, *usual}):
                if here.get(key) != usual.get(key):
                    values = (name, key[1], here.get(key), usual.get(key))
                    count, first = wanted.get(values, (0, key[0]))
                    wanted[values] = (count + 1, first)
        self.assertEqual({(row["machine"], row["what"], row["here"], row["usual"]): (
            row["functions"], row["address"]) for row in rows}, wanted)
        self.assertEqual({(row["alike"], row["usual_machines"]) for row in rows}, {(3, 2)})

    def check_other_forms(self, reports, result):
        rows = [*csv.DictReader(io.StringIO(self.fleet("--form", "csv", "r")[0], newline=""))]
        for section in ("limits", "differences", "findings", "requests"):
            self.assertEqual([{name: row[name] for name in wanted} for row, wanted in zip(
                (row for row in rows if row["section"] == section), result[section], strict=True)],
                [{name: "" if value is None else f"{value:.15g}" if isinstance(value, float) else str(value)
                  for name, value in wanted.items()} for wanted in result[section]])
        lines = "\n".join(json.dumps(report) for report in reports.values())
        self.assertEqual(json.loads(self.fleet("-", "--form=json", text=lines)[0])["totals"], result["totals"])
        self.assertEqual(max(map(len, self.fleet("r")[0].splitlines())) <= 80, True)
        self.check_page(result)

    def check_page(self, result):
        """The page has what machines share once: told for each machine, it is the result again."""
        page = Page(self.fleet("--form=html", "r")[0])
        page.check(self)
        tables = {name: [dict(zip(table["columns"], row, strict=True)) for row in table["rows"]]
                  for name, table in json.loads(page.raw[1]).items()}
        self.assertEqual(tables["totals"], [result["totals"]])
        in_state = defaultdict(list)
        for machine in tables["machines"]:
            in_state[machine["state"]].append(machine["name"])
        self.assertCountEqual(
            [(machine, row["what"], row["here"], row["usual"], row["functions"], row["address"])
             for row in tables["state_differences"] for machine in in_state[row["state"]]],
            [tuple(row[name] for name in ("machine", "what", "here", "usual", "functions", "address"))
             for row in result["differences"]])
        code = {row["id"]: row["code"] for row in tables["devices"]}
        having, found, missed = Counter(), Counter(), Counter()
        for row in tables["state_limits"]:
            having[code[row["device"]], row["supported"]] += len(in_state[row["state"]])
        for row in tables["state_findings"]:
            found[row["code"]] += row["findings"] * len(in_state[row["state"]])
        for row in tables["machine_requests"]:
            missed[row["request"]] += 1
        self.assertEqual(having, {(f"{row['vendor']}:{row['device']}", row["supported"]): row["machines"]
                                  for row in result["limits"]})
        self.assertEqual(found, {row["code"]: row["findings"] for row in result["findings"]})
        self.assertCountEqual(missed.values(), [row["machines"] for row in result["requests"]])

    def test_reports_that_cannot_be_used_do_not_stop_the_others(self):
        good = json.dumps(EMPTY)
        row = '{"format": 2, "functions": ['
        for text, error in (
                ("", ":1: byte 0: has no report"), ("[]", ":1: byte 1: is no report"), ("\n7", ":2: byte 2: is no report"),
                ("{}", ":1: byte 2: is no report: it has no format"), ('{"format": 3}', ":1: byte 13: has format 3"),
                ('{"format":\n"2"}', ":2: byte 14: format has a value of another"),
                (good.replace("requests", "x"), f":1: byte {len(good) - 7}: the report has no requests[]"),
                (row + "{}]}", ":1: byte 30: a row of functions[] lacks what names it"),
                (row + '{"bdf": 1}]}', ":1: byte 38: functions[].bdf has a value of another"),
                (row + '\n{"mps":\n' + good, ":3: byte 38: the report ends behind functions[].mps, and another"),
                (good[:-1] + ', "\x1b[31m"', rf":1: byte {len(good) + 3}: syntax error"), (good[:9], ":1: byte 9: syntax"),
                ('{"x": ' + 999 * "9" + "}", ":1: byte 1006: number overflow parsing '9")):
            self.file("bad.json", text)
            self.file("good\x1b[31m.json", good)
            out, errors = self.fleet("bad.json", "good\x1b[31m.json", "none", "--form=csv", status=1)
            self.assertEqual([line[:len(begin)] for line, begin in zip(errors, (f"error: bad.json{error}", "error: none: "),
                                                                       strict=True)],
                             [f"error: bad.json{error}", "error: none: "])
            is_last = text.endswith(good)
            self.assertIn(f"\ntotals,{1 + is_last},1,2,0,", out.replace("\r", ""))
            self.assertNotIn("\x1b", out + "".join(errors))
            self.assertLess(max(map(len, errors)), 250)
            self.fleet("bad.json", status=1 if is_last else 2)

    def test_a_name_of_a_machine_is_no_order_to_the_terminal(self):
        usual = {**EMPTY, "functions": [{"bdf": "00:01.0", "vendor": "8086", "device": "1533", "name": "\x1b[2J",
                                         "ari": False, "mps": {"supported": 256, "after": 128}, "ecrc": None}]}
        other = json.loads(json.dumps(usual).replace('"after": 128', '"after": 256'))
        self.file("x.jsonl", "\n".join(map(json.dumps, (usual, usual))))
        self.file("\x1b\udc9b.json", json.dumps(other))
        for form in "table", "json", "csv", "html":
            out, _ = self.fleet(".", f"--form={form}")
            self.assertNotRegex(Page(out).raw[1] if form == "html" else out, r"[^ -~\r\n…]")
        self.assertIn("\\x1b\\x9b of 3: payload 256, usually 128: 00:01.0 (8086:1533)\n", self.fleet(".")[0])

    def test_unusable_options(self):
        for arguments, error in (([], "no report is named"), ([""], "REPORT: no file"), (["--form=x", "a"], "--form: x is none"),
                                 (["-x"], "The following"), (["."], ".: no file in it ends in .json")):
            self.assertEqual(self.fleet(*arguments, status=2)[1][0][:len(error) + 7], f"error: {error}")


unittest.main()

"""A machine of two domains: the example server in 0000, an emulated one in 0002."""

import json
import os
import re
import unittest

from hoplar import EXAMPLE, PLUGIN, HoplarTest

FAULTY = os.environ["FAULTY"]
TITLE = re.compile(r"(?m)^(?=[0-9a-f]{2}:[0-9a-f]{2}\.[0-7] )")
EVENTS = "flr 08:00.0\nflr 0002:01:00.0\n"


class DomainsTest(HoplarTest):
    def setUp(self):
        super().setUp()
        dumps = []
        for domain, file in (0, EXAMPLE), (2, os.path.join(os.path.dirname(EXAMPLE), "qemu-q35.lspci")):
            with open(file, encoding="utf-8") as text:
                dumps.append(TITLE.sub(f"{domain:04x}:", text.read()).strip())
        self.file("input", "\n\n".join(dumps))
        self.file("all.cfg", "MPS=all:max\nECRC=all:+:+")
        self.file("events", EVENTS)

    def run_on(self, form, *options, status=0):
        text, messages = self.hoplar("-F", "input", "-m", f"{PLUGIN},--config=all.cfg", "--report", form,
                                     *options, status=status)
        return text, messages

    def parts(self, form, *options):
        """The reports of one domain at a time, and their dumps."""
        dumps, reports = b"", []
        for number, line in enumerate(EVENTS.splitlines()):
            self.file("event", line)
            text, _ = self.run_on(form, "--domain", str(2 * number), "-o", "part", "-e", "event", *options)
            reports.append(text)
            with open(self.file("part"), "rb") as part:
                dumps += part.read()
        return reports, dumps

    def test_all_domains_give_what_each_gives(self):
        tables, dumps = self.parts("table")
        table, _ = self.run_on("table", "-o", "output", "-e", "events")
        self.assertEqual(table, "Domain 0000:\n{}\nDomain 0002:\n{}".format(*tables))
        with open(self.file("output"), "rb") as output:
            self.assertEqual(output.read(), dumps)
        first, second = map(json.loads, self.parts("json")[0])
        text, messages = self.run_on("json", "-e", "events", "-v", "-v", "-v", "-v")
        report = json.loads(text)
        for name in "functions", "hierarchies", "modules":
            self.assertEqual(report[name], first[name] + second[name])
        page, _ = self.run_on("html", "-e", "events")
        self.assertEqual(json.loads(re.search(r'id="report">(.*)</script>', page)[1])["shown"], report["shown"])
        self.assertEqual([report["messages"][name] for name in ("error", "warning", "info")],
                         [sum(line.startswith(name) for line in messages)
                          for name in ("error", "warning", "info")])
        self.assertEqual({message.split(": ")[1] for message in messages}, {"domain 0000", "domain 0002"})
        graph, drawn = self.graph("-F", "input", "-m", f"{PLUGIN},--config=all.cfg")
        self.assertEqual(graph.count("label=<<B>Root port"), len(report["hierarchies"]))
        self.assertIn("Domain 0002: ", " ".join(drawn))

    def test_a_domain_may_have_modules_of_its_own(self):
        self.file("gen.cfg", "ECRC=all:+:=")
        self.file("hoplar.cfg", f"[domain 2]\nHOPLAR_MODULE_LIST = {PLUGIN},--config=gen.cfg\n"
                                f"[domain 3]\n[runtime]\nHOPLAR_MODULE_LIST = {PLUGIN},--config=all.cfg\n")
        text, _ = self.hoplar("-F", "input", "-c", "hoplar.cfg", "--report", "json")
        checking = {f["domain"]: f["ecrc"]["chk"]["after"] for f in json.loads(text)["functions"]
                    if f["ecrc"] and f["ecrc"]["chk"]["capable"] and f["ecrc"]["gen"]["capable"]}
        self.assertEqual(checking, {"0000": True, "0002": False})

    def test_lines_are_for_the_domains_that_have_their_functions(self):
        self.file("all.cfg", "ECRC=1.0.0:=:-\nECRC=99.0.0:+:=\nECRC=0x10.0.0:+:=")
        _, messages = self.run_on("none", "--strict", status=1)
        own = [line.partition("all.cfg:")[2] for line in messages if ": domain " not in line]
        self.assertEqual([line[:40] for line in own], ["1: ECRC=1.0.0:=:- is taken for domains 0",
                                                       "2: ECRC=99.0.0:+:= (63:00.0, generation "])

    def test_nothing_is_done_where_one_domain_has_bad_input(self):
        for events, domains, message in (
                ("flr 0002:03:1f.0", "all", "error: domain 0002: {}no such function"),
                ("flr 0000:08:00.0", "2", "error: {}not in the domain that is served"),
                ("flr 0003:08:00.0", "0,2", "error: {}not in a domain that is served")):
            self.file("events", "\n" + events)
            _, messages = self.run_on("table", "-o", "output", "-e", "events", "--domain", domains, status=2)
            self.assertEqual(messages, [message.format("events:2: ") + f": {events}"])
            self.assertFalse(os.path.exists(self.file("output")))

    def test_machines_of_too_many_domains_are_refused(self):
        self.file("input", "".join(f"{domain:04x}:00:00.0 x\n" + "".join(
            f"{at:x}0:" + " 12" * 16 + "\n" for at in range(4)) + "\n" for domain in range(257)))
        _, messages = self.run_on("none", "-q", status=2)
        self.assertEqual(messages, ["error: 257 domains, and at most 256 are served at once: choose some "
                                    "with --domain"])
        self.run_on("none", "-q", "--domain", "0,100")

    def test_a_dump_that_cannot_be_written_costs_no_report(self):
        table, messages = self.run_on("table", "-o", "/dev/full", status=2)
        self.assertIn("Domain 0002:", table)
        self.assertEqual(messages, ["error: /dev/full: No space left on device"])

    def test_the_gravest_status_counts_and_the_others_report(self):
        listed = "[runtime]\nHOPLAR_MODULE_LIST = {},--config=all.cfg\n[domain {}]\nHOPLAR_MODULE_LIST = {}\n"
        for domain, module, status, rows in (9, "none.so", 3, 77), (2, "none.so", 1, 77), (0, FAULTY, 2, 30):
            self.file("hoplar.cfg", listed.format(PLUGIN, domain, f"{module},exit"))
            text, _ = self.hoplar("-F", "input", "-c", "hoplar.cfg", "--report", "json", "--check",
                                  "-o", f"output{status}", status=status)
            self.assertEqual(len(json.loads(text)["functions"]), rows)
            self.assertEqual(os.path.exists(self.file(f"output{status}")), status != 2)


unittest.main()

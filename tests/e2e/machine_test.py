"""One machine, the one in $MACHINE: what feature files of many forms, and events, make of it.

Each of its domains is served by runs of its own.
"""

import functools
import itertools
import os
import random
import re
import unittest

from expectation import BRIDGES, LARGEST, PORTS, ROOT_PORT, Machine, read_dump
from hoplar import PLUGIN, SHOWN_SETTINGS, HoplarTest, lspci

DUMP = os.environ["MACHINE"]
DOMAINS = read_dump(DUMP)
ROUNDS = int(os.environ.get("ROUNDS", 3))  # of random events, with and without --cold
EVERYTHING = ["MPS=all:max", "ECRC=all:+:+"]
read_original, show_original = functools.cache(read_dump), functools.cache(lspci)


def ecrc_capable(machine):
    return [f for f in machine if f.ecrc != [None, None]]


def ecrc_forms(machine):
    """Feature files that name a function in every way."""
    yield ["ECRC=all:+:+"]
    yield ["ECRC=all:+:+", "ECRC=all:=:-"]
    capable = ecrc_capable(machine) or list(machine)
    on_ari_bus = [f for f in capable if f.bus in machine.ari_buses]
    for f in {capable[0], capable[-1], *on_ari_bus[-1:]}:
        device = 0 if f.bus in machine.ari_buses else f.device
        yield [f"ECRC={machine.name(f)}:+:-"]
        yield [f"ECRC={f.bus}:=:+"]
        yield [f"ECRC={f.bus}.{device}.*:+:="]
        yield ["ECRC=all:+:+", f"ECRC={f.bus}.*:-:-"]


def payload_requests(machine):
    yield from (["MPS=all:max"], ["MPS=all:128"], ["MPS=all:256"], ["MPS=all:384"])
    for root, limit in machine.limits.items():
        below = [machine.name(f) for f in machine.below(root)
                 if machine.key(f) in machine.entries and machine.is_endpoint(f)]
        if below:
            yield [f"MPS={below[-1]}:max"]
            yield [f"MPS={below[0]}:max", f"MPS={below[-1]}:{min(2 * limit, 4096)}"]
            yield [f"MPS={below[-1]}:128", f"MPS={below[0]}:256"]


def address_text(domain, address):
    return (f"{domain:04x}:" if domain else "") + "%02x:%02x.%x" % address


def gain(old, new):
    """Percent more of a link's bytes are payload."""
    return round((new / (new + 24) / (old / (old + 24)) - 1) * 100, 2)


def hierarchies(domain, machine, before):
    for root in machine:
        if root.type == ROOT_PORT and root.is_bridge and not machine.path(root):
            limit, elements = machine.limit(root), (root, *machine.below(root))
            limiters = [f for f in elements if f.express and f.supported == limit]
            rest = [f.supported for f in elements if f.express and f.supported <= LARGEST
                    and not {f, *machine.path(f, end=None)[:-1]} & {*limiters}]
            yield {"root_port": address_text(domain, root.address),
                   "path_max": limit if limiters else None,
                   "limiters": [address_text(domain, f.address) for f in limiters],
                   "possible": min(rest, default=None),
                   "gain": gain(limit, min(rest)) if rest else None,
                   "before": before[root][0], "after": root.mps, "left_alone": None, "text": None}


def packets_lost(domain, machine):
    """Functions that packets are sent to, or by, that are larger than the other end takes."""
    rulers = [f for f in machine if f.mps and f.port and f.port.mps
              and not (f.bus in machine.ari_buses and f.address != machine.key(f))]
    def reads(f):
        return 0 if f.type in PORTS or not f.express else 128 << (f.register(f.express + 8, 2) >> 12 & 7)
    for f in rulers:
        below = [g for g in machine.below(f) if g.answers and not g.gone] if f.is_bridge else []
        if f.mps > f.port.mps or f.mps < f.port.mps and max(map(reads, [f, *below])) > f.mps:
            if f.mps > f.port.mps or below or not f.is_bridge:
                yield address_text(domain, f.address)


def function_row(domain, machine, f, mps, ecrc):
    """`mps` and `ecrc` are those before."""
    controls = {name: {"capable": old is not None, "before": bool(old),
                       "after": None if f.gone else bool(new)}
                for name, old, new in zip(("gen", "chk"), ecrc, f.ecrc)}
    payload = {"supported": f.supported, "before": mps, "after": None if f.gone else f.mps,
               "completed": False}
    above, bridge, gone = machine.path(f, end=None), f.answers and f.is_bridge, f.answers and f.gone
    owner = machine.functions[f.physical] if f.physical else f
    ids = (f.answers or f.physical) and [f"{owner.register(at, 2):04x}" for at in (
        0, owner.sriov + 0x1A if f.physical else 2)] or None
    top = [g for g in [f, *above][-1:] if g.type == ROOT_PORT and g.is_bridge]
    return {"bdf": address_text(domain, f.address), "domain": f"{domain:04x}",
            "ari": f.answers and f.bus in machine.ari_buses, "gone": "removed" if gone else None,
            "parent": address_text(domain, above[0].address) if above else None,
            "root_port": address_text(domain, top[0].address) if top else None,
            "secondary": f"{f.data[0x19]:02x}" if bridge else None,
            "subordinate": f"{f.data[0x1A]:02x}" if bridge else None, "driver": None,
            "changed": gone or [mps, ecrc] != [f.mps, f.ecrc], "class": f"{f.class_code:06x}" if f.answers or f.physical else None,
            "port_type": f.type,
            "physical_function": f.physical and address_text(domain, f.physical),
            "vendor": ids and ids[0], "device": ids and ids[1],
            "name": None, "type": None, "managed": f.bus in machine.managed, "mps": payload if f.express else None,
            "ecrc": controls if f.aer else None,
            "ecrc_unknown": bool(f.express) and len(f.data) <= 256 and not f.gone}


class MachineTest(HoplarTest):
    def check(self, domain, lines, *options, base=DUMP, managed=range(256), events=()):
        """Compares every function with the expectation: in the report; unless events have reset
        more than these settings, byte by byte; and in lspci's text, where nothing else differs."""
        with self.subTest(domain=domain, lines=lines, options=options, events=events):
            machine = Machine(read_original(base)[domain], managed)
            before = {f: (f.mps, f.ecrc[:]) for f in machine}
            machine.set_up(lines)
            for event, address in events:
                getattr(machine, event.replace("-", "_"))(machine.functions[address])
            report = self.start(DUMP, lines, "--domain", f"{domain:x}", *options, "-o", self.output,
                                events=[f"{event} %02x:%02x.%x" % at for event, at in events])
            self.assertEqual(list(report), ["format", "shown", "functions", "hierarchies", "findings", "modules",
                                            "requests", "accesses", "messages"])
            self.assertEqual([row | {"text": None} for row in report["hierarchies"]],
                             list(hierarchies(domain, machine, before)))
            self.assertEqual(len(report["functions"]), len(before))
            for f, row in zip(machine, report["functions"]):
                self.assertEqual(row | {"name": None, "type": None}, function_row(domain, machine, f, *before[f]))
            if not events:
                self.compare_output({domain: {f.address: f.bytes() for f in machine}})
                self.compare_lspci(domain, base, machine)
                errors = {f["function"] for f in report["findings"]["after"]
                          if f["severity"] == "error" and f["code"] != "payload-unsupported"}
                self.assertEqual(errors, {*packets_lost(domain, machine)})

    def check_completion(self, domain, lines, *options, events):
        """With --complete bridges have more than without, which is marked; nothing else differs."""
        runs = [self.start(DUMP, lines, "--domain", f"{domain:x}", *options, *more, "-o", self.output,
                           events=[f"{event} %02x:%02x.%x" % at for event, at in events])
                for more in ((), ("--complete",))]
        for f, *rows in zip(Machine(DOMAINS[domain]), *(run["functions"] for run in runs)):
            alone, completed = (row["mps"] or {} for row in rows)
            rows[0]["changed"] |= completed.get("completed", False)
            self.assertFalse(alone.get("completed"))
            if completed.get("completed"):
                self.assertTrue(f.type in BRIDGES and alone["after"] < completed["after"])
                alone.update(after=completed["after"], completed=True)
            self.assertEqual(*rows)

    def compare_lspci(self, domain, base, machine):
        before, after = show_original(base), lspci(self.output)
        for f in machine:
            name = f"{domain:04x}:%02x:%02x.%x" % f.address
            self.assertEqual(*(SHOWN_SETTINGS.sub("", text[name]) for text in (before, after)))
            payload = [str(f.mps)] if f.express else []
            ecrc = ["+" if enabled else "-" for enabled in f.ecrc] if f.aer else []
            if f.answers:
                self.assertEqual(SHOWN_SETTINGS.findall(after[name]), payload + ecrc, name)

    def test_table_lists_every_function_once_and_without_colour(self):
        for domain, functions in DOMAINS.items():
            table, _ = self.hoplar("-F", DUMP, "--domain", f"{domain:x}")
            for address in functions:
                row = r"(?m)^[* ] [│├└─ ]*(\w+:)?%02x:%02x\.%x " % address
                self.assertEqual(len(re.findall(row, table)), 1, address)
            self.assertNotIn("\x1b", table)

    def test_graph_draws_every_function_once_and_what_links_are_set_to(self):
        for domain, functions in DOMAINS.items():
            old, new = Machine(functions), Machine(functions)
            new.set_up(EVERYTHING)
            payload = ["→".join(dict.fromkeys((str(f.mps), str(g.mps)))) for f, g in zip(old, new)]
            module = f"{PLUGIN},--config={self.file('features.cfg', chr(10).join(EVERYTHING))}"
            graph, texts = self.graph("-F", DUMP, "--domain", f"{domain:x}", "-m", module)
            drawn = " ".join(text.split(" of ")[0] for text in texts
                             if not text.startswith((":", "Root port ")))
            self.assertEqual(sorted(re.findall(r"(?:\w{4,}:)?\w\w:\w\w\.[0-7]", drawn)),
                             [address_text(domain, f.address) for f in old])
            for *ends, text in re.findall(r":f(\d+):e -> .*:f(\d+):w .*label=< ([^P].*) <BR", graph):
                self.assertLessEqual({payload[int(end)] for end in ends}, {*re.split("[|, ]+", text)})

    def test_features_are_set_where_the_file_asks(self):
        for domain, functions in DOMAINS.items():
            machine = Machine(functions)
            for lines in itertools.chain(ecrc_forms(machine), payload_requests(machine)):
                self.check(domain, lines)
            self.check(domain, EVERYTHING, "--manage", "00-04", managed=range(5))

    def test_check_tells_whether_anything_is_left_to_do_or_lost(self):
        for domain, functions in DOMAINS.items():
            machine = Machine(functions)
            before = [(f.mps, f.ecrc[:]) for f in machine]
            machine.set_up(EVERYTHING)
            changes = before != [(f.mps, f.ecrc) for f in machine]
            done = 4 if [*packets_lost(domain, machine)] else 0
            module = f"{PLUGIN},--config={self.file('features.cfg', chr(10).join(EVERYTHING))}"
            options = ["-q", "--domain", f"{domain:x}", "-m", module, "--check"]
            self.hoplar("-F", DUMP, *options, "-o", self.output, status=3 if changes else done)
            self.hoplar("-F", self.output, *options, status=done)

    def test_nothing_is_left_of_firmware_settings_when_cold(self):
        for domain in DOMAINS:
            base = self.file(f"cold-{domain:x}.lspci")
            self.hoplar("-F", DUMP, "--cold", "--domain", f"{domain:x}", "-o", base)
            for f in Machine(read_dump(base)[domain]):
                errors = f.answers and f.register(0x06, 2) & 0xF900
                self.assertFalse(any(f.ecrc) or errors, f.address)
                control = f.express and f.register(f.express + 8, 2) & 0x78FF
                self.assertIn(control, (None, 0x2810), f.address)
            self.check(domain, EVERYTHING, "--cold", base=base)

    def test_inserted_functions_get_exactly_their_recorded_ecrc_back(self):
        for domain, functions in DOMAINS.items():
            machine = Machine(functions)
            lines = [f"ECRC={machine.name(f)}:{wishes}" for f, wishes in zip(
                ecrc_capable(machine), itertools.cycle(("+:=", "-:+", None))) if wishes]
            for bridge in machine.bridges.values():
                removal = [("remove", bridge.address)]
                for events in removal, [*removal, ("insert", bridge.address)]:
                    self.check(domain, ["MPS=all:max", *lines], events=events)

    def test_resets_leave_programmed_payload_sizes_behind(self):
        for domain, functions in DOMAINS.items():
            machine = Machine(functions)
            present = [f for f in machine if f.answers]
            resets = [("flr", f.address) for f in present
                      if not f.is_bridge and f.type not in PORTS]
            self.check(domain, EVERYTHING, events=resets)
            # A swapped root port is at 128 bytes, which no function below it may exceed.
            self.check(domain, EVERYTHING, events=[*((event, root.address) for root in machine.limits
                                                     for event in ("remove", "insert")), *resets])
            below = [f for f in present if f.bus in machine.bridges or f in machine.limits]
            for function in below[::1 + len(below) // 20]:
                self.check(domain, EVERYTHING, events=[("bus-reset", function.address)])

    def random_events(self, machine, choice):
        """In one hierarchy, where there is any; each can happen when its turn comes."""
        gone, roots = set(), [f for f in machine.limits if machine.below(f)]
        root = choice(roots) if roots else None
        near = [root, *machine.below(root)] if roots else machine
        for _ in range(12):
            f = choice([f for f in near if f.answers and f not in gone])
            below = machine.below(f)
            kinds = ["remove", "insert"] if f in machine.bridges.values() else []
            kinds += [] if f.is_bridge or f.type in PORTS else ["flr"]
            kinds += ["bus-reset"] if f.bus in machine.bridges or kinds[:1] == ["remove"] else []
            if kinds:
                kind = choice(kinds)
                gone |= {*below} if kind == "remove" else set()
                gone -= {*below} if kind == "insert" else set()
                yield kind, f.address

    def test_any_order_of_events_leaves_no_function_above_its_port(self):
        for domain, functions in DOMAINS.items():
            machine, choice = Machine(functions), random.Random(1).choice
            requests = [*payload_requests(machine)]
            cold = self.file(f"cold-{domain:x}.lspci")
            self.hoplar("-F", DUMP, "--cold", "--domain", f"{domain:x}", "-o", cold)
            for options, base in [((), DUMP), (("--cold",), cold)] * ROUNDS:
                lines = choice([["MPS=all:max"], choice(requests)])
                events = [*self.random_events(machine, choice)]
                self.check(domain, lines, *options, base=base, events=events)
                self.check_completion(domain, lines, *options, events=events)


if __name__ == "__main__":
    unittest.main()

"""One machine, the one in $MACHINE: what single operations of the module make of it.

What they should make of it is worked out from the dump alone.
"""

import itertools
import os
import re
import subprocess
import unittest

from expectation import DOWNSTREAM_PORT, ROOT_PORT, Machine, read_dump
from hoplar import OPS, HoplarTest, lspci

DUMP = os.environ["MACHINE"]
DOMAINS = read_dump(DUMP)
TO_PCI, FROM_PCI, NO_LINK = 7, 8, (9, 10)
L0S = [64, 128, 256, 512, 1000, 2000, 4000]
L1 = [1000 << code for code in range(7)]
LEVELS = ["Disabled", "L0s Enabled", "L1 Enabled", "L0s L1 Enabled"]
LEVEL = re.compile(r"(?<=LnkCtl:\tASPM )[^;\n]+")


def exit_latency(f, state, steps):
    code = f.register(f.express + 0x0C, 4) >> (12, 15)[state] & 7
    return steps[code] - 1 if code < 6 else steps[6] + code - 6


def support(f):
    return 0 if f.type in NO_LINK else f.register(f.express + 0x0C, 4) >> 10 & 3


class Links:
    def __init__(self, machine):
        self.machine = machine
        self.present = [f for f in machine if f.answers]

    def on_bus_below(self, bridge):
        return [f for f in self.present if self.machine.bridges.get(f.bus) is bridge]

    def chain(self, bridge):
        """First child bridges, as far down as there are any."""
        while bridge := next((f for f in self.on_bus_below(bridge) if f.is_bridge), None):
            yield bridge

    def accepted(self, bridge, state, steps):
        for child in self.chain(bridge):
            if child.type in (None, TO_PCI):
                return 0 if child.type is None else float("inf")
            bridge = child
        codes = (f.register(f.express + 4, 4) >> (6, 9)[state] & 7
                 for f in self.on_bus_below(bridge) if f.express)
        return max((steps[code] if code < 7 else float("inf") for code in codes), default=0)

    def ends(self, bridge):
        """What can be set of the link below a bridge: nothing, its upper end, or both."""
        if bridge.type not in (ROOT_PORT, DOWNSTREAM_PORT, FROM_PCI) or not support(bridge):
            return []
        return [bridge, *(f for f in self.on_bus_below(bridge)[:1] if f.express and support(f))]

    def level(self, bridge, device):
        level = 0
        for state, steps, wake in (0, L0S, 0), (1, L1, 1000 * len(list(self.chain(bridge)))):
            needed = wake + max(exit_latency(f, state, steps) for f in (bridge, device))
            if self.accepted(bridge, state, steps) >= needed:
                level |= 1 << state & support(bridge) & support(device)
        return level

    def levels(self, bridges):
        links = [link for link in map(self.ends, bridges) if len(link) == 2]
        return {f: self.level(*link) for link in links for f in link}

    def none(self, bridges):
        return {f: 0 for bridge in bridges for f in self.ends(bridge)}

    def fast_transfers(self, enable):
        """All bytes once every bus has them that can, or none has. What is tried in vain, as on root
        buses and on buses of PCI Express, is taken back; a bus that cannot stays as it was."""
        spaces = {f.address: bytearray(f.data) for f in self.machine}
        for bus, functions in itertools.groupby(self.present, lambda f: f.bus):
            bridge, functions = self.machine.bridges.get(bus), list(functions)
            conventional = bridge is not None and bridge.type in (None, TO_PCI)
            if enable and not all(f.register(6, 2) & 0x80 for f in functions):
                continue
            on = enable and conventional and not any(f.express for f in functions)
            for f in functions:
                if f.register(6, 2) & 0x80 and not f.express:
                    spaces[f.address][5] = spaces[f.address][5] & ~0x02 | 0x02 * on
            if conventional:
                # Discard Timer Status is cleared by being written back: CardBus has none.
                kept = ~0x0480 if bridge.data[0x0E] & 0x7F == 1 else ~0x80
                control = bridge.register(0x3E, 2) & kept | 0x80 * on
                spaces[bridge.address][0x3E:0x40] = control.to_bytes(2, "little")
        return spaces


def address(f):
    return "%02x:%02x.%x" % f.address


class OperationsTest(HoplarTest):
    def run_tool(self, domain, *words, dump=DUMP):
        return subprocess.run([OPS, "-q", "-F", dump, "--domain", f"{domain:x}", "-o", self.output,
                               *words], capture_output=True, encoding="utf-8")

    def check(self, domain, machine, words, levels, dump=DUMP):
        """The levels, in bytes and in lspci's text, and no other change."""
        done = self.run_tool(domain, *words, dump=dump)
        self.assertEqual(done.returncode, 0, done.stderr)
        wanted = {f.address: bytearray(f.data) for f in machine}
        for f, level in levels.items():
            at = f.express + 0x10
            wanted[f.address][at] = wanted[f.address][at] & 0xFC | level
        self.compare_output({domain: wanted})
        for f, level in levels.items():
            shown = lspci(self.output)[f"{domain:04x}:{address(f)}"]
            self.assertEqual(LEVEL.findall(shown), [LEVELS[level]], (words, f.address))

    def test_links_get_the_level_that_their_latencies_allow(self):
        for domain, functions in DOMAINS.items():
            machine = Machine(functions)
            links, bridges = Links(machine), list(machine.bridges.values())
            levels = links.levels(bridges)
            self.check(domain, machine, ["aspm", "enable", "all"], levels)
            enabled = self.file("enabled.lspci")
            os.rename(self.output, enabled)
            self.check(domain, machine, ["aspm", "disable", "all"], links.none(bridges), enabled)
            for bridge in [each for each in bridges if len(links.ends(each)) == 2][:8]:
                for f in links.ends(bridge):
                    if f is bridge or not f.is_bridge:
                        self.check(domain, machine, ["aspm", "enable", address(f)],
                                   links.levels([bridge]))

    def test_conventional_buses_run_fast_where_everything_on_them_can(self):
        for domain, functions in DOMAINS.items():
            links = Links(Machine(functions))
            self.run_tool(domain, "fb2b", "enable", "all")
            self.compare_output({domain: links.fast_transfers(True)})
            os.rename(self.output, enabled := self.file("enabled.lspci"))
            self.run_tool(domain, "fb2b", "disable", "all", dump=enabled)
            self.compare_output({domain: links.fast_transfers(False)})

    def test_message_interrupts_survive_a_round_trip(self):
        for domain, functions in DOMAINS.items():
            machine = Machine(functions)
            for f in itertools.islice((f for f in machine if f.answers), 100):
                caps = [f.find(cap, f.data[0x34] & ~3 if f.data[6] & 0x10 else 0, 2, 8)
                        for cap in (0x05, 0x11)]
                controls = [f.register(cap + 2, 2) for cap in caps if cap]
                done = self.run_tool(domain, "msi", "round-trip", address(f))
                self.assertEqual(done.returncode, 0 if controls and all(controls) else 1, f.address)
                self.assertEqual(done.stdout.count("disturbed, all restored"),
                                 sum(control > 0 for control in controls), done.stdout)
            self.compare_output({domain: functions})


if __name__ == "__main__":
    unittest.main()

"""What a feature file should do to a machine, worked out from the machine's dump alone.

Knows the rules and nothing of the program: bytes go in, and out come, for every function, the
payload size in bytes and whether ECRC is generated and checked, after start-up and after events.
"""

import re

ROOT_PORT, DOWNSTREAM_PORT, INTEGRATED = 4, 6, 9
ENDPOINTS, PORTS = (0, 1, INTEGRATED), range(ROOT_PORT, INTEGRATED)
BRIDGES = range(ROOT_PORT + 1, ROOT_PORT + 4)  # switch ports, and PCI Express to PCI bridges
HOST_BRIDGE, PCI_BRIDGE = 0x060000, 0x0604
LARGEST, NO_LIMIT = 4096, 0xFFFFFFFF
ECRC_BITS = (0x020, 0x040), (0x080, 0x100)  # capable, enabled: generation, checking
SETTINGS = {"+": True, "-": False, "=": None}


def read_dump(path):
    """{domain: {(bus, device, function): bytes}}"""
    domains = {}
    with open(path, encoding="ascii", errors="replace") as file:
        parts = file.read().strip().split("\n\n")
    for title, *lines in map(str.splitlines, parts):
        words = re.split("[:.]", f"0:{title.split()[0]}")[-4:]
        domain, *address = (int(word, 16) for word in words)
        space = bytes.fromhex("".join(line.partition(":")[2] for line in lines))
        domains.setdefault(domain, {})[tuple(address)] = space
    return domains


class Function:
    def __init__(self, address, data, physical=None):
        self.address, self.data, self.gone, self.port, self.written = address, data, False, None, False
        self.bus, self.device, self.number = address
        self.physical = physical  # address of the physical function that a virtual one belongs to
        self.answers, layout = not physical and data[:2] != b"\xff\xff", data[0x0E] & 0x7F
        self.multi, self.is_bridge = self.answers and data[0x0E] >= 0x80, layout in (1, 2)
        self.secondary = data[0x19] if self.is_bridge else 0
        self.class_code = self.register(0x09, 3)
        # For modules, virtual functions are not there.
        has_list = self.answers and data[0x06] & 0x10
        start = data[0x14 if layout == 2 else 0x34] if has_list else 0
        self.express = self.find(0x10, start & ~3, 2, 8)
        self.aer, self.ari, self.sriov = (self.express and self.find(capability, 0x100, 4, 20)
                                          for capability in (0x01, 0x0E, 0x10))
        # The present settings; None where there is no such control.
        self.type, self.supported, self.mps, self.ecrc = None, None, None, [None, None]
        if self.express:
            self.type = self.register(self.express + 2, 2) >> 4 & 0xF
            self.supported = 128 << (self.register(self.express + 4, 4) & 7)
            self.mps = 128 << (self.register(self.express + 8, 2) >> 5 & 7)
        if self.aer:
            control = self.register(self.aer + 0x18, 4)
            self.ecrc = [bool(control & enabled) if control & capable else None
                         for capable, enabled in ECRC_BITS]

    def register(self, offset, size):
        return int.from_bytes(self.data[offset:offset + size], "little")

    def find(self, capability, at, header_size, next_shift):
        lowest, id_mask = (0x40, 0xFF) if header_size == 2 else (0x100, 0xFFFF)
        seen = set()
        while lowest <= at < len(self.data) and at not in seen:
            seen.add(at)
            header = self.register(at, header_size)
            if header & id_mask == capability:
                return at
            at = header >> next_shift & ~3
        return None

    def virtual_functions(self):
        """Addresses of those that are enabled."""
        if self.sriov and self.register(self.sriov + 8, 2) & 1:
            count, offset, stride = (self.register(self.sriov + at, 2) for at in (0x10, 0x14, 0x16))
            for n in range(count):
                where = (self.bus << 8 | self.device << 3 | self.number) + offset + n * stride
                yield where >> 8 & 0xFF, where >> 3 & 0x1F, where & 7

    def reset(self):
        self.mps = self.express and 128
        self.ecrc = [now and False for now in self.ecrc]

    def write_payload(self, size):
        """Whether the size sticks: there is a register, the size is one that it can hold, and none
        that the function does not support or that is above the one of the port above."""
        if self.express and not self.gone and self.mps != size:
            power = 128 << (size // 128 - 1).bit_length()
            limit = min(self.supported, self.port.mps if self.port else LARGEST)
            self.mps, self.written = power if power <= limit else self.mps, True
        return self.mps == size and not self.gone

    def payload_in(self, dump):
        return int.from_bytes(dump[self.address][self.express + 8:][:2], "little") >> 5 & 7

    def bytes(self):
        """What its space should hold when nothing but its settings has changed."""
        data = bytearray(self.data)
        if self.express:
            code = self.mps.bit_length() - 8
            data[self.express + 8] = data[self.express + 8] & ~0xE0 | code << 5
        for enabled, at, bit in zip(self.ecrc, (0x18, 0x19), (0x40, 0x01)):
            if enabled is not None:
                data[self.aer + at] = data[self.aer + at] & ~bit | bit * enabled
        return data


class Entry:
    """An endpoint device: its function 0, and the bridges above it, the nearest first."""

    def __init__(self, first, path):
        self.first, self.path, self.root, self.request = first, path, path[-1], 0


class Machine:
    def __init__(self, dump, managed=range(256)):
        physical = {each: address for address, data in dump.items()
                    for each in Function(address, data).virtual_functions()}
        self.functions = {address: Function(address, dump[address], physical.get(address))
                          for address in sorted(dump)}
        self.managed = managed
        self.bridges = {f.secondary: f for f in self if f.secondary > f.bus}
        self.ari_buses = {bus for bus, bridge in self.bridges.items() if self.has_ari(bus, bridge)}
        self.limits = {f: self.limit(f) for f in self if f.type == ROOT_PORT
                       and f.class_code >> 8 == PCI_BRIDGE and f.bus in managed}
        self.entries = {}
        for function in self:
            self.add_entry(function)
            function.port = next((f for f in self.path(function, None) if f.express), None)
        self.sizes = {}  # what has been programmed, by root port
        self.wishes = {}  # for generation and checking, by function

    def __iter__(self):
        return iter(self.functions.values())

    def has_ari(self, bus, bridge):
        first = self.functions.get((bus, 0, 0))
        return bool(first and first.ari and bridge.type in (ROOT_PORT, DOWNSTREAM_PORT)
                    and bridge.register(bridge.express + 2, 2) & 0xF >= 2
                    and bridge.register(bridge.express + 0x28, 2) & 0x20)

    def path(self, function, end=HOST_BRIDGE):
        """The bridges above, the nearest first."""
        path = []
        while (function := self.bridges.get(function.bus)) and (
                not path or function.class_code != end):
            path.append(function)
        return path

    def below(self, bridge):
        return [f for f in self if bridge in self.path(f, end=None)]

    def limit(self, root):
        sizes = (f.supported for f in (root, *self.below(root)) if f.express)
        return min((size for size in sizes if size <= LARGEST), default=NO_LIMIT)

    def name(self, f):
        """As the feature file names it."""
        if f.bus in self.ari_buses:
            return f"{f.bus}.{f.device << 3 | f.number}"
        return f"{f.bus}.{f.device}.{f.number}"

    def is_endpoint(self, f):
        return f.type in ENDPOINTS and (f.ari or f.bus not in self.ari_buses)

    def key(self, f):
        return f.bus, 0 if f.bus in self.ari_buses else f.device, 0

    def add_entry(self, f):
        """Devices that cannot be programmed need no entry."""
        first, path = self.functions.get(self.key(f)), self.path(f)
        if (f.bus in self.managed and f.type != INTEGRATED and self.is_endpoint(f)
                and (f is first or first and first.multi) and path and path[-1] in self.limits):
            self.entries.setdefault(self.key(f), Entry(first, path))

    def request(self, who, size):
        for f in self:
            if self.key(f) in self.entries and (
                    who == "all" or who == self.name(f) and self.is_endpoint(f)):
                self.entries[self.key(f)].request = NO_LIMIT if size == "max" else int(size)

    def write_device(self, entry, size):
        first, functions = entry.first, [entry.first]
        if first.bus not in self.ari_buses:
            functions += [self.functions.get((*first.address[:2], number))
                          for number in range(1, 8) if first.multi]
        while first.bus in self.ari_buses:
            last = functions[-1]
            number = last.register(last.ari + 5, 1) if last.ari else 0
            following = self.functions.get((first.bus, number >> 3, number & 7))
            if following is None or following in functions:
                break
            functions.append(following)
        for f in functions:
            if f and (f is not first or self.is_endpoint(f)):
                f.write_payload(size)

    def program(self, entry, size):
        """The device is left alone when the size does not stick on the bridge above it."""
        sticks = [bridge.write_payload(size) for bridge in reversed(entry.path)]
        self.sizes[entry.root] = size
        if sticks[-1]:
            self.write_device(entry, size)
        return sticks[-1]

    def program_payloads(self):
        for entry in self.entries.values():
            limit = self.limits[entry.root]
            size = limit if entry.request == NO_LIMIT else entry.request
            if entry.root in self.sizes or size > min(limit, LARGEST):
                entry.request = 0
            elif size and not self.program(entry, size):
                self.program(entry, 128)
        for entry in self.entries.values():
            if not entry.request and entry.root in self.sizes:
                self.program(entry, self.sizes[entry.root])

    def lower_what_is_above_its_port(self):
        """Where the function or the port has been written; from the root port down."""
        for f in self:
            if f.express and f.port and (f.written or f.port.written) and f.mps > f.port.mps:
                f.mps, f.written = min(f.port.mps, f.supported), True
        for f in self:
            f.written = False

    def above_their_ports(self, before, after):
        """In a dump: functions with a larger payload size than the port above them, but for those
        that were so before, where neither has changed."""
        for f in self:
            if f.express and f.port and {f.address, f.port.address} <= after.keys():
                pair = [[each.payload_in(dump) for each in (f, f.port)] for dump in (before, after)]
                if pair[1][0] > pair[1][1] and pair[0] != pair[1]:
                    yield f.address

    def selects(self, who, f):
        device = 0 if f.bus in self.ari_buses else f.device
        return who in ("all", f"{f.bus}", f"{f.bus}.{device}.*", self.name(f)) or (
            device == 0 and who == f"{f.bus}.*")

    def record(self, who, *settings):
        for f in self:
            if f.bus in self.managed and self.selects(who, f):
                old = self.wishes.get(f, (None, None))
                self.wishes[f] = [wish if SETTINGS[setting] is None else SETTINGS[setting]
                                  for wish, setting in zip(old, settings)]

    def apply_wishes(self, functions):
        for f in functions:
            f.ecrc = [now if None in (wish, now) else wish
                      for wish, now in zip(self.wishes.get(f, (None, None)), f.ecrc)]

    # --- What happens

    def set_up(self, lines):
        for line in lines:
            keyword, value = line.split("=", 1)
            {"MPS": self.request, "ECRC": self.record}[keyword](*value.split(":"))
        self.program_payloads()
        self.lower_what_is_above_its_port()
        self.apply_wishes(self)

    def remove(self, bridge):
        for f in self.below(bridge):
            f.gone = True

    def insert(self, bridge):
        for f in self.below(bridge):
            f.gone = False
            f.reset()
        self.apply_wishes(self.below(bridge))

    def flr(self, f):
        f.reset()
        entry = self.entries.get(self.key(f))
        if entry and entry.root in self.sizes:
            f.write_payload(self.sizes[entry.root])
        self.lower_what_is_above_its_port()

    def bus_reset(self, f):
        bridge = self.bridges.get(f.bus, f)
        for each in self.below(bridge):
            each.reset()
        whole = bridge is f or any(f.is_bridge and f.bus == bridge.secondary for f in self)
        root = (self.path(f) or [f])[-1]
        for key, entry in self.entries.items():
            if entry.root is root and root in self.sizes and (whole or key == self.key(f)):
                (self.program if whole else self.write_device)(entry, self.sizes[root])
        self.lower_what_is_above_its_port()

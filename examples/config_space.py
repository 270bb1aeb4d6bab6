"""Configuration space from rows: what a function is and can do, turned into registers."""

import struct
from typing import NamedTuple

VENDOR = 0xE5A1  # belongs to nobody: lspci shows "Device e5a1:..."

KIB, MIB = 1 << 10, 1 << 20


# --- Bytes --------------------------------------------------------------------------------------

def u8(value):
    return struct.pack("<B", value)


def u16(value):
    return struct.pack("<H", value)


def u32(value):
    return struct.pack("<I", value)


def block(size, registers):
    """`size` bytes with each register's bytes at its offset and zeros elsewhere."""
    data = bytearray(size)
    for offset, value in registers.items():
        data[offset:offset + len(value)] = value
    return data


# --- Capabilities: each function gives the capability's bytes, its "next" pointer still empty ----

def power_management():
    return block(8, {0x00: u8(0x01), 0x02: u16(0x4803), 0x04: u16(0x0008)})


def msi(vectors=1):
    """64-bit addresses, maskable, not enabled."""
    multiple_message = vectors.bit_length() - 1
    return block(24, {0x00: u8(0x05), 0x02: u16(0x0180 | multiple_message << 1)})


def msix(vectors):
    """Table and pending bits in the first memory BAR, which has 16 KiB or more; not enabled."""
    return block(12, {0x00: u8(0x11), 0x02: u16(vectors - 1), 0x04: u32(0x0000), 0x08: u32(0x2000)})


# Device/Port Type of the PCI Express capability.
ENDPOINT, LEGACY_ENDPOINT, ROOT_PORT, UPSTREAM, DOWNSTREAM = 0, 1, 4, 5, 6
TO_PCI_BRIDGE, INTEGRATED_ENDPOINT, EVENT_COLLECTOR = 7, 9, 10

L0S_LIMITS = (64, 128, 256, 512, 1000, 2000, 4000)  # nanoseconds; the code is the index
L1_LIMITS = (1, 2, 4, 8, 16, 32, 64)                # microseconds


class Link(NamedTuple):
    """One end of a link; exit latencies are below these limits."""
    gts: float      # 2.5, 5, 8 or 16
    width: int
    l0s_ns: int
    l1_us: int


WIDE = Link(gts=16, width=16, l0s_ns=512, l1_us=32)
FAST = Link(gts=8, width=8, l0s_ns=1000, l1_us=16)
QUAD = Link(gts=8, width=4, l0s_ns=512, l1_us=8)
SLOW = Link(gts=2.5, width=1, l0s_ns=256, l1_us=4)


class Accepts(NamedTuple):
    """The exit latencies that an endpoint can bear."""
    l0s_ns: int
    l1_us: int


def express(port_type, payload, link=None, accepts=None, slot=None, empty=False, ari=False):
    """PCI Express capability, version 2. `slot` is a hot-plug slot's number."""
    is_port = port_type in (ROOT_PORT, DOWNSTREAM)
    registers = {
        0x00: u8(0x10),
        0x02: u16(2 | port_type << 4 | (slot is not None) << 8),
        0x04: u32(device_capabilities(port_type, payload, accepts)),
        0x08: u16(0x2000 | 0x0810 | 0x000F),  # read requests of 512 bytes, payload of 128, errors
        0x24: u32(0x0000001F | ari << 5),     # completion timeout ranges A to D; ARI forwarding
        0x28: u16(ari << 5),
    }
    if link:
        registers |= link_registers(link, is_port, empty)
    if slot is not None:
        registers[0x14] = u32(0x60 | 75 << 7 | slot << 19)  # hot-plug, 75 W
        registers[0x18] = u16(0x03C0)                       # indicators off
        registers[0x1A] = u16(0 if empty else 0x40)         # card present
    if port_type in (ROOT_PORT, EVENT_COLLECTOR):
        registers[0x1E] = u16(1)  # CRS software visibility
    return block(0x3C, registers)


def device_capabilities(port_type, payload, accepts):
    value = (payload // 128).bit_length() - 1 | 1 << 15  # role-based error reporting
    if accepts:
        value |= L0S_LIMITS.index(accepts.l0s_ns) << 6 | L1_LIMITS.index(accepts.l1_us) << 9
    if port_type == ENDPOINT:
        value |= 1 << 28  # function-level reset
    return value


def link_registers(link, is_port, empty):
    speed = (2.5, 5, 8, 16).index(link.gts) + 1
    speed_now, width_now = (1, 0) if empty else (speed, link.width)
    capabilities = speed | link.width << 4 | 3 << 10 | 1 << 22
    capabilities |= L0S_LIMITS.index(link.l0s_ns) << 12 | L1_LIMITS.index(link.l1_us) << 15
    if is_port:
        capabilities |= 3 << 20  # reports data link activity and bandwidth changes
    active = is_port and not empty
    equalized = speed >= 3 and not empty
    return {
        0x0C: u32(capabilities),
        0x10: u16(0x0040),  # ASPM off, common clock
        0x12: u16(speed_now | width_now << 4 | 1 << 12 | active << 13),
        0x2C: u32((1 << speed) - 1 << 1),
        0x30: u16(speed),
        0x32: u16(0x001E if equalized else 0),  # all phases done
    }


# --- Extended capabilities: (identifier, version, bytes), the header still empty -----------------

GENERATE, GENERATE_ON, CHECK, CHECK_ON = 1 << 5, 1 << 6, 1 << 7, 1 << 8
NO_ECRC, BOTH = 0, GENERATE | CHECK


def aer(ecrc):
    """Advanced Error Reporting with the given ECRC bits."""
    return 0x0001, 2, block(0x48, {
        0x0C: u32(0x00462030),  # which errors are fatal: as after reset
        0x14: u32(0x00002000),  # advisory non-fatal errors masked: as after reset
        0x18: u32(ecrc),
    })


def ari(next_function):
    return 0x000E, 1, block(8, {0x04: u16(next_function << 8)})


def event_collector(devices, first_bus, last_bus):
    """Collects for these devices of its own bus, and for a range of other buses."""
    bitmap = sum(1 << device for device in devices)
    return 0x0007, 2, block(12, {0x04: u32(bitmap), 0x08: u32(first_bus << 8 | last_bus << 16)})


# --- Functions ----------------------------------------------------------------------------------

class Function(NamedTuple):
    address: str            # bus:device.function, as lspci writes it
    kind: tuple             # class code and lspci's name for it
    device_id: int
    name: str
    caps: tuple = ()        # bytes of each capability
    ext_caps: tuple = ()
    bars: tuple = ()        # (address space, size)
    buses: tuple = None     # bridges: secondary and subordinate bus
    reserve: int = 0        # bridges: memory kept free for what is plugged in later

    @property
    def bus(self):
        return int(self.address[0:2], 16)

    @property
    def device(self):
        return int(self.address[3:5], 16)

    @property
    def is_bridge(self):
        return self.buses is not None


# --- Addresses: every BAR and bridge window gets its place, as firmware would give it ------------

WINDOW_STEPS = {"io": 4 * KIB, "mem": MIB, "pref": MIB}


def align(value, step):
    return -(-value // step) * step


def place(machine, bus, free, positions):
    """Takes addresses for all functions on `bus` from `free` (address space -> next free address).
    Adds to `positions`: function -> addresses of its BARs, or a bridge's windows."""
    for function in (f for f in machine if f.bus == bus):
        if function.is_bridge:
            positions[function.address] = place_bridge(machine, function, free, positions)
            continue
        addresses = []
        for space, size in function.bars:
            addresses.append(align(free[space], size))
            free[space] = addresses[-1] + size
        positions[function.address] = addresses


def place_bridge(machine, bridge, free, positions):
    """The bridge's windows: address space -> (first, end)."""
    start = {space: align(free[space], step) for space, step in WINDOW_STEPS.items()}
    inner = dict(start)
    place(machine, bridge.buses[0], inner, positions)
    inner["mem"] += bridge.reserve
    inner["pref"] += bridge.reserve
    windows = {space: (start[space], align(inner[space], step))
               for space, step in WINDOW_STEPS.items()}
    free.update({space: end for space, (first, end) in windows.items() if end > first})
    return windows


# --- From a row to the bytes of configuration space ----------------------------------------------

def header(function, multi_function, position):
    code = function.kind[0]
    status = (0x0010 if function.caps else 0) | (0 if is_express(function) else 0x0080)
    registers = {
        0x00: u16(VENDOR), 0x02: u16(function.device_id),
        0x04: u16(0x0106 | any(space == "io" for space, _ in function.bars)), 0x06: u16(status),
        0x08: u32(code << 8),  # revision 00
        0x0C: u8(16),          # cache line of 64 bytes
        0x0E: u8(function.is_bridge | multi_function << 7),
        0x34: u8(0x40 if function.caps else 0),
    }
    if function.caps:
        registers |= {0x3C: u8(11), 0x3D: u8(1)}  # INTA on line 11
    registers |= bridge_registers(function, position) if function.is_bridge else \
        device_registers(function, position)
    return block(64, registers)


def device_registers(function, addresses):
    registers = {0x2C: u16(VENDOR), 0x2E: u16(function.device_id)}
    offset = 0x10
    for (space, _), address in zip(function.bars, addresses):
        flags = {"io": 0x1, "mem": 0x0, "pref": 0xC}[space]
        registers[offset] = u32((address & 0xFFFFFFFF) | flags)
        offset += 4
        if space == "pref":  # 64 bits wide
            registers[offset] = u32(address >> 32)
            offset += 4
    return registers


def bridge_registers(function, windows):
    # A window with nothing in it has its first address above its last.
    limits = {space: (first, end - 1) if end > first else (WINDOW_STEPS[space], 0)
              for space, (first, end) in windows.items()}
    (io, io_last), (mem, mem_last), (pref, pref_last) = (limits[s] for s in ("io", "mem", "pref"))
    secondary, subordinate = function.buses
    forwards_io = 1 if io_last else 0
    return {
        0x04: u16(0x0106 | forwards_io),
        0x18: u8(function.bus), 0x19: u8(secondary), 0x1A: u8(subordinate),
        0x1C: u8(io >> 8 & 0xF0), 0x1D: u8(io_last >> 8 & 0xF0),
        0x20: u16(mem >> 16 & 0xFFF0), 0x22: u16(mem_last >> 16 & 0xFFF0),
        0x24: u16(pref >> 16 & 0xFFF0 | 1), 0x26: u16(pref_last >> 16 & 0xFFF0 | 1),
        0x28: u32(pref >> 32), 0x2C: u32(pref_last >> 32),
        0x3E: u16(0x0002),  # system errors are forwarded
    }


def is_express(function):
    return any(cap[0] == 0x10 for cap in function.caps)


def config_space(function, multi_function, position):
    """The function's 256 or 4096 bytes. `position` is its entry of what place() filled."""
    space = bytearray(4096 if is_express(function) else 256)
    space[0:64] = header(function, multi_function, position)
    offset = 0x40
    for index, cap in enumerate(function.caps):
        following = align(offset + len(cap), 4) if index + 1 < len(function.caps) else 0
        space[offset:offset + len(cap)] = cap
        space[offset + 1] = following
        offset = following
    offset = 0x100
    for index, (identifier, version, cap) in enumerate(function.ext_caps):
        following = offset + len(cap) if index + 1 < len(function.ext_caps) else 0
        space[offset:offset + len(cap)] = cap
        space[offset:offset + 4] = u32(identifier | version << 16 | following << 20)
        offset = following
    return space

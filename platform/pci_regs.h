// Registers of configuration space and their fields, as the PCI standards define them: those that
// the module, the host and their tools name. Capability IDs are in capability.h, port types and
// class codes in types.h.
//
// A register is an offset of type reg8, reg16 or reg32, as wide as the register; a field is a mask
// of the same width. Registers of a capability count from the capability's first byte. Behind a
// field stands what software may do with it:
//   RO      reads only
//   HwInit  reads only; firmware or the hardware's straps have set it
//   RW      reads and writes; a reset sets the default, 0 unless said
//   RW1C    reads, and clears by writing 1
//   RWS     as RW, but sticky: only a loss of power sets the default
// Where a field may also be fixed at its default, that is the function's choice.
#pragma once

#include <cstdint>

namespace pci {

enum reg8 : unsigned {};
enum reg16 : unsigned {};
enum reg32 : unsigned {};

// Bytes of a register.
constexpr unsigned width_of(reg8) {
    return 1;
}
constexpr unsigned width_of(reg16) {
    return 2;
}
constexpr unsigned width_of(reg32) {
    return 4;
}

// The value of one field of a register, which may have been read into a wider variable.
template <typename Value, typename Register>
constexpr unsigned get(Value value, Register field) {
    static_assert(sizeof(Value) >= sizeof(Register), "a field of a wider register");
    return static_cast<unsigned>(value & field) >> __builtin_ctz(field);
}

// `value` with one field set to `number`, of which bits that the field has no room for are dropped.
template <typename Register>
constexpr Register set(Register value, Register field, unsigned number) {
    const unsigned bits = number << __builtin_ctz(field) & field;
    return static_cast<Register>((value & ~unsigned{field}) | bits);
}

// A register in which one field has a value and every other is 0.
template <typename Register>
constexpr Register in_field(Register field, unsigned number) {
    return set(Register{0}, field, number);
}

// Sizes of a function's configuration space.
constexpr unsigned HEADER_SIZE = 0x40;        // the header alone
constexpr unsigned CONFIG_SIZE = 0x100;       // PCI-compatible configuration space
constexpr unsigned EXT_CONFIG_SIZE = 0x1000;  // with the extended part of PCI Express

// ---- Every header.

constexpr reg32 IDS{0x00};  // Vendor ID and Device ID in one access
constexpr std::uint32_t IDS_VENDOR = 0x0000'FFFF;
constexpr std::uint32_t IDS_DEVICE = 0xFFFF'0000;

constexpr reg16 VENDOR_ID{0x00};
constexpr std::uint16_t VENDOR_ID_NONE = 0xFFFF;       // reads of a function that is not there
constexpr std::uint16_t VENDOR_ID_NOT_READY = 0x0001;  // Request Retry Status: still in its reset
constexpr reg16 DEVICE_ID{0x02};

constexpr reg16 COMMAND{0x04};
constexpr std::uint16_t COMMAND_IO_SPACE = 0x0001;                     // RW
constexpr std::uint16_t COMMAND_MEMORY_SPACE = 0x0002;                 // RW
constexpr std::uint16_t COMMAND_BUS_MASTER = 0x0004;                   // RW
constexpr std::uint16_t COMMAND_SPECIAL_CYCLES = 0x0008;               // RW; RO 0 in PCI Express
constexpr std::uint16_t COMMAND_MEMORY_WRITE_AND_INVALIDATE = 0x0010;  // RW; RO 0 in PCI Express
constexpr std::uint16_t COMMAND_VGA_PALETTE_SNOOP = 0x0020;            // RW; RO 0 in PCI Express
constexpr std::uint16_t COMMAND_PARITY_ERROR_RESPONSE = 0x0040;        // RW
constexpr std::uint16_t COMMAND_SERR_ENABLE = 0x0100;                  // RW
constexpr std::uint16_t COMMAND_FAST_B2B_ENABLE = 0x0200;    // RW, Fast Back-to-Back Transactions;
                                                             // RO 0 in PCI Express
constexpr std::uint16_t COMMAND_INTERRUPT_DISABLE = 0x0400;  // RW

constexpr reg16 STATUS{0x06};
constexpr std::uint16_t STATUS_CAPABILITIES_LIST = 0x0010;         // RO
constexpr std::uint16_t STATUS_FAST_B2B_CAPABLE = 0x0080;          // RO
constexpr std::uint16_t STATUS_MASTER_DATA_PARITY_ERROR = 0x0100;  // RW1C
constexpr std::uint16_t STATUS_SIGNALED_TARGET_ABORT = 0x0800;     // RW1C
constexpr std::uint16_t STATUS_RECEIVED_TARGET_ABORT = 0x1000;     // RW1C
constexpr std::uint16_t STATUS_RECEIVED_MASTER_ABORT = 0x2000;     // RW1C
constexpr std::uint16_t STATUS_SIGNALED_SYSTEM_ERROR = 0x4000;     // RW1C
constexpr std::uint16_t STATUS_DETECTED_PARITY_ERROR = 0x8000;     // RW1C
// All RW1C fields of Status, and of Secondary Status.
constexpr std::uint16_t STATUS_RW1C =
    STATUS_MASTER_DATA_PARITY_ERROR | STATUS_SIGNALED_TARGET_ABORT | STATUS_RECEIVED_TARGET_ABORT |
    STATUS_RECEIVED_MASTER_ABORT | STATUS_SIGNALED_SYSTEM_ERROR | STATUS_DETECTED_PARITY_ERROR;

constexpr reg32 CLASS_REVISION{0x08};  // Revision ID and Class Code in one access
constexpr std::uint32_t CLASS_REVISION_ID = 0x0000'00FF;
constexpr std::uint32_t CLASS_REVISION_CLASS_CODE = 0xFFFF'FF00;  // as in types.h

constexpr reg8 REVISION_ID{0x08};
constexpr reg16 CLASS_DEVICE{0x0A};  // base class and sub-class of Class Code

constexpr reg8 HEADER_TYPE{0x0E};
constexpr std::uint8_t HEADER_TYPE_LAYOUT = 0x7F;          // RO, Header Layout
constexpr std::uint8_t HEADER_TYPE_MULTI_FUNCTION = 0x80;  // RO, Multi-Function Device
constexpr std::uint8_t HEADER_LAYOUT_BRIDGE = 1;           // PCI-to-PCI bridge
constexpr std::uint8_t HEADER_LAYOUT_CARDBUS = 2;

constexpr reg8 CAPABILITIES_POINTER{0x34};

// ---- Header of a PCI-to-PCI bridge (type 1) and of a CardBus bridge (type 2).

constexpr reg32 BUS_NUMBERS{0x18};  // the three bus numbers, and a latency timer, in one access
constexpr std::uint32_t BUS_NUMBERS_PRIMARY = 0x0000'00FF;      // RW
constexpr std::uint32_t BUS_NUMBERS_SECONDARY = 0x0000'FF00;    // RW
constexpr std::uint32_t BUS_NUMBERS_SUBORDINATE = 0x00FF'0000;  // RW
constexpr reg8 SECONDARY_BUS_NUMBER{0x19};
constexpr reg8 SUBORDINATE_BUS_NUMBER{0x1A};

constexpr reg16 SECONDARY_STATUS{0x1E};  // fields as in Status

constexpr reg16 BRIDGE_CONTROL{0x3E};
constexpr std::uint16_t BRIDGE_CONTROL_PARITY_ERROR_RESPONSE = 0x0001;    // RW
constexpr std::uint16_t BRIDGE_CONTROL_SERR_ENABLE = 0x0002;              // RW
constexpr std::uint16_t BRIDGE_CONTROL_ISA_ENABLE = 0x0004;               // RW
constexpr std::uint16_t BRIDGE_CONTROL_VGA_ENABLE = 0x0008;               // RW
constexpr std::uint16_t BRIDGE_CONTROL_VGA_16_BIT_DECODE = 0x0010;        // RW
constexpr std::uint16_t BRIDGE_CONTROL_MASTER_ABORT_MODE = 0x0020;        // RW; RO 0 in PCI Express
constexpr std::uint16_t BRIDGE_CONTROL_SECONDARY_BUS_RESET = 0x0040;      // RW
constexpr std::uint16_t BRIDGE_CONTROL_FAST_B2B_ENABLE = 0x0080;          // RW; RO 0 in PCI Express
constexpr std::uint16_t BRIDGE_CONTROL_PRIMARY_DISCARD_TIMER = 0x0100;    // RW; RO 0 in PCI Express
constexpr std::uint16_t BRIDGE_CONTROL_SECONDARY_DISCARD_TIMER = 0x0200;  // RW; RO 0 in PCI Express
constexpr std::uint16_t BRIDGE_CONTROL_DISCARD_TIMER_STATUS = 0x0400;     // RW1C; RO 0 likewise
constexpr std::uint16_t BRIDGE_CONTROL_DISCARD_TIMER_SERR = 0x0800;       // RW; RO 0 in PCI Express

// CardBus bridges have the same fields 0 to 3 and 5, and others elsewhere.
constexpr reg8 CARDBUS_CAPABILITIES_POINTER{0x14};
constexpr reg16 CARDBUS_SECONDARY_STATUS{0x16};
constexpr std::uint16_t CARDBUS_CONTROL_RESET = 0x0040;                 // RW, default 1
constexpr std::uint16_t CARDBUS_CONTROL_INTERRUPT_ENABLE = 0x0080;      // RW
constexpr std::uint16_t CARDBUS_CONTROL_MEMORY_0_PREFETCH = 0x0100;     // RW, default 1
constexpr std::uint16_t CARDBUS_CONTROL_MEMORY_1_PREFETCH = 0x0200;     // RW, default 1
constexpr std::uint16_t CARDBUS_CONTROL_WRITE_POSTING_ENABLE = 0x0400;  // RW

// ---- What every capability begins with.

constexpr reg16 CAP_HEADER{0x00};
constexpr std::uint16_t CAP_HEADER_ID = 0x00FF;            // RO
constexpr std::uint16_t CAP_HEADER_NEXT_POINTER = 0xFF00;  // RO; the low two bits are reserved

constexpr unsigned EXT_CAPS = 0x100;  // where the extended capabilities begin
constexpr reg32 EXT_CAP_HEADER{0x00};
constexpr std::uint32_t EXT_CAP_HEADER_ID = 0x0000'FFFF;           // RO
constexpr std::uint32_t EXT_CAP_HEADER_VERSION = 0x000F'0000;      // RO
constexpr std::uint32_t EXT_CAP_HEADER_NEXT_OFFSET = 0xFFF0'0000;  // RO; low two bits reserved

// ---- MSI. The registers after Message Address stand 4 bytes further where that has 64 bits.

constexpr reg16 MSI_CONTROL{0x02};                                      // Message Control
constexpr std::uint16_t MSI_CONTROL_ENABLE = 0x0001;                    // RW
constexpr std::uint16_t MSI_CONTROL_MULTIPLE_MESSAGE_CAPABLE = 0x000E;  // RO
constexpr std::uint16_t MSI_CONTROL_MULTIPLE_MESSAGE_ENABLE = 0x0070;   // RW
constexpr std::uint16_t MSI_CONTROL_64_BIT = 0x0080;              // RO, 64 bit Address Capable
constexpr std::uint16_t MSI_CONTROL_PER_VECTOR_MASKING = 0x0100;  // RO, Per-Vector Masking Capable
constexpr reg32 MSI_ADDRESS{0x04};                                // Message Address
constexpr std::uint32_t MSI_ADDRESS_BITS = 0xFFFF'FFFC;           // RW
constexpr reg32 MSI_UPPER_ADDRESS{0x08};                          // RW, all 32 bits
constexpr reg16 MSI_DATA{0x08};                                   // RW, all 16 bits
constexpr reg16 MSI_DATA_64_BIT{0x0C};
constexpr reg32 MSI_MASK_BITS{0x0C};  // RW, all 32 bits
constexpr reg32 MSI_MASK_BITS_64_BIT{0x10};

// ---- MSI-X.

constexpr reg16 MSIX_CONTROL{0x02};                           // Message Control
constexpr std::uint16_t MSIX_CONTROL_TABLE_SIZE = 0x07FF;     // RO, entries less one
constexpr std::uint16_t MSIX_CONTROL_FUNCTION_MASK = 0x4000;  // RW
constexpr std::uint16_t MSIX_CONTROL_ENABLE = 0x8000;         // RW
constexpr reg32 MSIX_TABLE{0x04};                             // Table Offset, Table BIR
constexpr std::uint32_t MSIX_TABLE_BIR = 0x0000'0007;         // RO, BAR Indicator
constexpr std::uint32_t MSIX_TABLE_OFFSET = 0xFFFF'FFF8;      // RO, where it stands, in bytes

// ---- PCI Express.

constexpr reg16 PCIE_CAPS{0x02};                              // PCI Express Capabilities
constexpr std::uint16_t PCIE_CAPS_VERSION = 0x000F;           // RO
constexpr std::uint16_t PCIE_CAPS_DEVICE_PORT_TYPE = 0x00F0;  // RO, PORT_TYPE_* of types.h

constexpr reg32 DEVCAP{0x04};                          // Device Capabilities
constexpr std::uint32_t DEVCAP_MPSS = 0x0000'0007;     // RO, Max_Payload_Size Supported,
                                                       // coded as in DEVCTL_MPS
constexpr std::uint32_t DEVCAP_EXT_TAG = 0x0000'0020;  // RO, Extended Tag Field Supported
constexpr std::uint32_t DEVCAP_L0S_ACCEPTABLE_LATENCY = 0x0000'01C0;  // RO, of an endpoint
constexpr std::uint32_t DEVCAP_L1_ACCEPTABLE_LATENCY = 0x0000'0E00;   // RO, of an endpoint

constexpr reg16 DEVCTL{0x08};                                           // Device Control
constexpr std::uint16_t DEVCTL_CORRECTABLE_ERROR_REPORTING = 0x0001;    // RW
constexpr std::uint16_t DEVCTL_NON_FATAL_ERROR_REPORTING = 0x0002;      // RW
constexpr std::uint16_t DEVCTL_FATAL_ERROR_REPORTING = 0x0004;          // RW
constexpr std::uint16_t DEVCTL_UNSUPPORTED_REQUEST_REPORTING = 0x0008;  // RW
constexpr std::uint16_t DEVCTL_RELAXED_ORDERING = 0x0010;               // RW, default 1
constexpr std::uint16_t DEVCTL_MPS = 0x00E0;           // RW, Max_Payload_Size: see size_bytes()
constexpr std::uint16_t DEVCTL_EXT_TAG = 0x0100;       // RW, Extended Tag Field Enable; its
                                                       // default is the function's choice
constexpr std::uint16_t DEVCTL_AUX_POWER_PM = 0x0400;  // RWS
constexpr std::uint16_t DEVCTL_NO_SNOOP = 0x0800;      // RW, default 1
constexpr std::uint16_t DEVCTL_MRRS = 0x7000;  // RW, Max_Read_Request_Size, coded as in DEVCTL_MPS
constexpr unsigned MRRS_DEFAULT = 2;           // 512 bytes
constexpr std::uint16_t DEVCTL_INITIATE_FLR = 0x8000;  // RW, reads 0: Initiate Function Level Reset

// Bytes that a value of DEVCAP_MPSS, DEVCTL_MPS or DEVCTL_MRRS stands for; 6 and 7 are reserved.
constexpr unsigned size_bytes(unsigned value) {
    return 128U << value;
}

constexpr reg16 DEVSTA{0x0A};                                 // Device Status
constexpr std::uint16_t DEVSTA_CORRECTABLE_ERROR = 0x0001;    // RW1C
constexpr std::uint16_t DEVSTA_NON_FATAL_ERROR = 0x0002;      // RW1C
constexpr std::uint16_t DEVSTA_FATAL_ERROR = 0x0004;          // RW1C
constexpr std::uint16_t DEVSTA_UNSUPPORTED_REQUEST = 0x0008;  // RW1C
constexpr std::uint16_t DEVSTA_RW1C = DEVSTA_CORRECTABLE_ERROR | DEVSTA_NON_FATAL_ERROR |
                                      DEVSTA_FATAL_ERROR | DEVSTA_UNSUPPORTED_REQUEST;

constexpr reg32 LINKCAP{0x0C};                                   // Link Capabilities
constexpr std::uint32_t LINKCAP_ASPM_SUPPORT = 0x0000'0C00;      // RO, coded as LINKCTL_ASPM
constexpr std::uint32_t LINKCAP_L0S_EXIT_LATENCY = 0x0000'7000;  // RO
constexpr std::uint32_t LINKCAP_L1_EXIT_LATENCY = 0x0003'8000;   // RO

constexpr reg16 LINKCTL{0x10};                                      // Link Control
constexpr std::uint16_t LINKCTL_ASPM = 0x0003;                      // RW, ASPM Control
constexpr std::uint16_t LINKCTL_RCB = 0x0008;                       // RW, Read Completion Boundary;
                                                                    // RO in a root port
constexpr std::uint16_t LINKCTL_LINK_DISABLE = 0x0010;              // RW above a link, else 0
constexpr std::uint16_t LINKCTL_COMMON_CLOCK = 0x0040;              // RW
constexpr std::uint16_t LINKCTL_EXTENDED_SYNCH = 0x0080;            // RW
constexpr std::uint16_t LINKCTL_CLOCK_POWER_MANAGEMENT = 0x0100;    // RW
constexpr std::uint16_t LINKCTL_AUTONOMOUS_WIDTH_DISABLE = 0x0200;  // RW
constexpr std::uint16_t LINKCTL_BANDWIDTH_INTERRUPT = 0x0400;       // RW
constexpr std::uint16_t LINKCTL_AUTONOMOUS_BANDWIDTH_INTERRUPT = 0x0800;  // RW

constexpr reg16 DEVCTL2{0x28};  // Device Control 2: from capability version 2 on
constexpr std::uint16_t DEVCTL2_ARI_FORWARDING = 0x0020;  // RW, ARI Forwarding Enable

// ---- Advanced Error Reporting.

constexpr reg32 AER_CONTROL{0x18};  // Advanced Error Capabilities and Control
constexpr std::uint32_t AER_CONTROL_ECRC_GEN_CAPABLE = 0x0000'0020;  // RO
constexpr std::uint32_t AER_CONTROL_ECRC_GEN_ENABLE = 0x0000'0040;   // RWS
constexpr std::uint32_t AER_CONTROL_ECRC_CHK_CAPABLE = 0x0000'0080;  // RO
constexpr std::uint32_t AER_CONTROL_ECRC_CHK_ENABLE = 0x0000'0100;   // RWS

// ---- Alternative Routing-ID Interpretation.

constexpr reg16 ARI_CAPABILITY{0x04};
constexpr std::uint16_t ARI_CAPABILITY_NEXT_FUNCTION = 0xFF00;  // RO, Next Function Number

// ---- Single Root I/O Virtualization, of a physical function.

constexpr reg16 SRIOV_CONTROL{0x08};
constexpr std::uint16_t SRIOV_CONTROL_VF_ENABLE = 0x0001;  // RW
constexpr reg16 SRIOV_NUM_VFS{0x10};                       // RW while VF Enable is clear
constexpr reg16 SRIOV_FIRST_VF_OFFSET{0x14};               // RO, from the physical function
constexpr reg16 SRIOV_VF_STRIDE{0x16};                     // RO
constexpr reg16 SRIOV_VF_DEVICE_ID{0x1A};                  // RO

// ---- Root Complex Event Collector Endpoint Association.

constexpr reg32 RCEC_BITMAP{0x04};       // HwInit, a bit for each device of the collector's bus
constexpr reg32 RCEC_BUS_NUMBERS{0x08};  // RCEC Associated Bus Numbers: from this version on
constexpr unsigned RCEC_BUS_NUMBERS_VERSION = 2;
constexpr std::uint32_t RCEC_BUS_NUMBERS_NEXT = 0x0000'FF00;  // HwInit, RCEC Next Bus
constexpr std::uint32_t RCEC_BUS_NUMBERS_LAST = 0x00FF'0000;  // HwInit, RCEC Last Bus

}  // namespace pci

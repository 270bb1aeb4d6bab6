// Configuration space by name: where the registers are that the host reads or models, and their
// fields. Offsets of capability registers count from the capability's first byte.
#pragma once

#include <cstdint>

namespace host::reg {

constexpr unsigned HEADER_SIZE = 0x40;
constexpr unsigned CONFIG_SIZE = 0x100;       // conventional configuration space
constexpr unsigned EXT_CONFIG_SIZE = 0x1000;  // with the extended part

// Every header.
constexpr unsigned VENDOR_ID = 0x00;
constexpr std::uint16_t VENDOR_ID_NONE = 0xFFFF;       // what reads of an absent function give
constexpr std::uint16_t VENDOR_ID_NOT_READY = 0x0001;  // a function after a reset, not ready yet
constexpr unsigned DEVICE_ID = 0x02;
constexpr unsigned COMMAND = 0x04;
constexpr std::uint16_t COMMAND_MEMORY = 0x0002;
constexpr std::uint16_t COMMAND_BUS_MASTER = 0x0004;
constexpr unsigned STATUS = 0x06;
constexpr std::uint16_t STATUS_CAP_LIST = 0x0010;
constexpr std::uint16_t STATUS_FAST_B2B = 0x0080;
constexpr std::uint16_t STATUS_ERRORS = 0xF900;  // also of the secondary side; write 1 to clear
constexpr unsigned REVISION_ID = 0x08;           // the class code is the three bytes above it
constexpr unsigned HEADER_TYPE = 0x0E;
constexpr std::uint8_t HEADER_TYPE_LAYOUT = 0x7F;
constexpr std::uint8_t HEADER_TYPE_MULTI_FUNCTION = 0x80;

// Layouts, and where they differ.
constexpr std::uint8_t LAYOUT_BRIDGE = 1;
constexpr std::uint8_t LAYOUT_CARDBUS = 2;
constexpr unsigned SECONDARY_BUS = 0x19;
constexpr unsigned SUBORDINATE_BUS = 0x1A;
constexpr unsigned SECONDARY_STATUS = 0x1E;
constexpr unsigned CARDBUS_SECONDARY_STATUS = 0x16;
constexpr unsigned CAP_POINTER = 0x34;
constexpr unsigned CARDBUS_CAP_POINTER = 0x14;
constexpr unsigned BRIDGE_CONTROL = 0x3E;

// MSI: control at +2, then address, upper address if 64 bit, data, mask if it has one.
constexpr unsigned MSI_CONTROL = 0x02;
constexpr std::uint16_t MSI_ENABLE = 0x0001;
constexpr std::uint16_t MSI_MULTIPLE_ENABLE = 0x0070;
constexpr std::uint16_t MSI_64_BIT = 0x0080;
constexpr std::uint16_t MSI_MASKING = 0x0100;
constexpr unsigned MSI_ADDRESS = 0x04;
constexpr std::uint32_t MSI_ADDRESS_BITS = 0xFFFF'FFFC;

// MSI-X.
constexpr unsigned MSIX_CONTROL = 0x02;
constexpr std::uint16_t MSIX_TABLE_SIZE = 0x07FF;  // entries less one
constexpr std::uint16_t MSIX_MASK_ALL = 0x4000;
constexpr std::uint16_t MSIX_ENABLE = 0x8000;
constexpr unsigned MSIX_TABLE = 0x04;
constexpr std::uint32_t MSIX_TABLE_BAR = 0x0000'0007;  // what is above is the offset behind it

// PCI Express capability.
constexpr unsigned PCIE_CAPS = 0x02;
constexpr std::uint16_t PCIE_CAPS_VERSION = 0x000F;
constexpr std::uint16_t PCIE_CAPS_PORT_TYPE = 0x00F0;
constexpr unsigned DEVCAP = 0x04;
constexpr std::uint32_t DEVCAP_PAYLOAD_SIZE = 0x0000'0007;  // code of the largest supported
constexpr std::uint32_t DEVCAP_EXT_TAG = 0x0000'0020;
constexpr unsigned DEVCTL = 0x08;
constexpr std::uint16_t DEVCTL_ERROR_ENABLES = 0x000F;
constexpr std::uint16_t DEVCTL_RELAXED_ORDERING = 0x0010;
constexpr std::uint16_t DEVCTL_PAYLOAD_SIZE = 0x00E0;
constexpr std::uint16_t DEVCTL_EXT_TAG = 0x0100;
constexpr std::uint16_t DEVCTL_AUX_POWER = 0x0400;
constexpr std::uint16_t DEVCTL_NO_SNOOP = 0x0800;
constexpr std::uint16_t DEVCTL_READ_REQUEST = 0x7000;
constexpr std::uint16_t DEVCTL_READ_REQUEST_512 = 0x2000;
constexpr unsigned DEVSTA = 0x0A;
constexpr std::uint16_t DEVSTA_ERRORS = 0x000F;  // write 1 to clear
constexpr unsigned LINKCAP = 0x0C;
constexpr unsigned LINKCTL = 0x10;
constexpr std::uint16_t LINKCTL_WRITABLE = 0x0FDB;  // all but retrain and reserved bits
constexpr std::uint16_t LINKCTL_READ_BOUNDARY = 0x0008;
constexpr std::uint16_t LINKCTL_DISABLE = 0x0010;  // of the port above a link only
constexpr unsigned DEVCTL2 = 0x28;                 // from capability version 2 on
constexpr std::uint16_t DEVCTL2_ARI_FORWARDING = 0x0020;

// Extended capabilities.
constexpr unsigned EXT_CAPS = 0x100;
constexpr unsigned AER_CONTROL = 0x18;
constexpr std::uint32_t AER_GEN_CAPABLE = 0x0000'0020;
constexpr std::uint32_t AER_GEN_ENABLE = 0x0000'0040;
constexpr std::uint32_t AER_CHK_CAPABLE = 0x0000'0080;
constexpr std::uint32_t AER_CHK_ENABLE = 0x0000'0100;
constexpr unsigned ARI_CAPABILITY = 0x04;
constexpr std::uint16_t ARI_NEXT_FUNCTION = 0xFF00;
constexpr unsigned RCEC_BITMAP = 0x04;
constexpr unsigned RCEC_BUSES = 0x08;  // from capability version 2 on: next in 15:8, last in 23:16

}  // namespace host::reg

// The standard's registers (platform/pci_regs.h) under the names that the host has for them.
#pragma once

#include "platform/pci_regs.h"

namespace host::reg {

using namespace pci;

constexpr auto STATUS_CAP_LIST = pci::STATUS_CAPABILITIES_LIST;
constexpr auto STATUS_FAST_B2B = pci::STATUS_FAST_B2B_CAPABLE;
constexpr auto STATUS_ERRORS = pci::STATUS_RW1C;
constexpr auto COMMAND_MEMORY = pci::COMMAND_MEMORY_SPACE;
constexpr auto REVISION_ID = pci::CLASS_REVISION;
constexpr auto LAYOUT_BRIDGE = pci::HEADER_LAYOUT_BRIDGE;
constexpr auto LAYOUT_CARDBUS = pci::HEADER_LAYOUT_CARDBUS;
constexpr auto SECONDARY_BUS = pci::SECONDARY_BUS_NUMBER;
constexpr auto SUBORDINATE_BUS = pci::SUBORDINATE_BUS_NUMBER;
constexpr auto CAP_POINTER = pci::CAPABILITIES_POINTER;
constexpr auto CARDBUS_CAP_POINTER = pci::CARDBUS_CAPABILITIES_POINTER;
constexpr auto MSI_ENABLE = pci::MSI_CONTROL_ENABLE;
constexpr auto MSI_MULTIPLE_ENABLE = pci::MSI_CONTROL_MULTIPLE_MESSAGE_ENABLE;
constexpr auto MSI_64_BIT = pci::MSI_CONTROL_64_BIT;
constexpr auto MSI_MASKING = pci::MSI_CONTROL_PER_VECTOR_MASKING;
constexpr auto MSIX_TABLE_SIZE = pci::MSIX_CONTROL_TABLE_SIZE;
constexpr auto MSIX_MASK_ALL = pci::MSIX_CONTROL_FUNCTION_MASK;
constexpr auto MSIX_ENABLE = pci::MSIX_CONTROL_ENABLE;
constexpr auto MSIX_TABLE_BAR = pci::MSIX_TABLE_BIR;
constexpr auto PCIE_CAPS_PORT_TYPE = pci::PCIE_CAPS_DEVICE_PORT_TYPE;
constexpr auto DEVCAP_PAYLOAD_SIZE = pci::DEVCAP_MPSS;
constexpr std::uint16_t DEVCTL_ERROR_ENABLES =
    pci::DEVCTL_CORRECTABLE_ERROR_REPORTING | pci::DEVCTL_NON_FATAL_ERROR_REPORTING |
    pci::DEVCTL_FATAL_ERROR_REPORTING | pci::DEVCTL_UNSUPPORTED_REQUEST_REPORTING;
constexpr auto DEVCTL_PAYLOAD_SIZE = pci::DEVCTL_MPS;
constexpr auto DEVCTL_AUX_POWER = pci::DEVCTL_AUX_POWER_PM;
constexpr auto DEVCTL_READ_REQUEST = pci::DEVCTL_MRRS;
constexpr auto DEVCTL_READ_REQUEST_512 = pci::in_field(pci::DEVCTL_MRRS, pci::MRRS_DEFAULT);
constexpr auto DEVSTA_ERRORS = pci::DEVSTA_RW1C;
constexpr std::uint16_t LINKCTL_WRITABLE =
    pci::LINKCTL_ASPM | pci::LINKCTL_RCB | pci::LINKCTL_LINK_DISABLE | pci::LINKCTL_COMMON_CLOCK |
    pci::LINKCTL_EXTENDED_SYNCH | pci::LINKCTL_CLOCK_POWER_MANAGEMENT |
    pci::LINKCTL_AUTONOMOUS_WIDTH_DISABLE | pci::LINKCTL_BANDWIDTH_INTERRUPT |
    pci::LINKCTL_AUTONOMOUS_BANDWIDTH_INTERRUPT;
constexpr auto LINKCTL_READ_BOUNDARY = pci::LINKCTL_RCB;
constexpr auto LINKCTL_DISABLE = pci::LINKCTL_LINK_DISABLE;
constexpr auto AER_GEN_CAPABLE = pci::AER_CONTROL_ECRC_GEN_CAPABLE;
constexpr auto AER_GEN_ENABLE = pci::AER_CONTROL_ECRC_GEN_ENABLE;
constexpr auto AER_CHK_CAPABLE = pci::AER_CONTROL_ECRC_CHK_CAPABLE;
constexpr auto AER_CHK_ENABLE = pci::AER_CONTROL_ECRC_CHK_ENABLE;
constexpr auto ARI_NEXT_FUNCTION = pci::ARI_CAPABILITY_NEXT_FUNCTION;
constexpr auto RCEC_BUSES = pci::RCEC_BUS_NUMBERS;

static_assert(LINKCTL_WRITABLE == 0x0FDB && DEVCTL_READ_REQUEST_512 == 0x2000);

}  // namespace host::reg

// Capability objects: what the PCI access library knows of one capability of one function, and the
// operations on its registers.
//
// Ownership. pci_device_read_cap() and read_ext_cap() allocate an object with malloc; the caller
// releases it with free(). The host owns the objects inside its records (bridge_rec::pcie_cap,
// event_capset_t); modules only borrow them.
//
// Calling. Operations are reached through the object's table, with the object as first argument.
// The caller stores 1 in the object's first word before every call; an operation refuses another
// value with PCI_ERR_INVALID (look-ups: a negative index). Several threads may use one object at
// once, so that word is written atomically.
//
// Errors. Unless stated, an operation returns 0; PCI_ERR_NO_DEVICE when the function does not
// answer; PCI_ERR_NOT_SUPPORTED when the function has no such register; or any other code of the
// access. Out-parameters are written on success only.
#pragma once

#include "types.h"

// Capability IDs (configuration space) and extended capability IDs.
constexpr std::uint8_t CAPID_MSI = 0x05;
constexpr std::uint8_t CAPID_PCIE = 0x10;
constexpr std::uint8_t CAPID_MSIX = 0x11;
constexpr std::uint16_t EXT_CAPID_AER = 0x0001;
constexpr std::uint16_t EXT_CAPID_RCEC = 0x0007;
constexpr std::uint16_t EXT_CAPID_ARI = 0x000E;
constexpr std::uint16_t EXT_CAPID_SRIOV = 0x0010;

// The value of call_word for every call.
constexpr std::uint32_t CAP_CALL_WORD = 1;

// Every capability object begins with this.
struct pci_cap_t {
    std::uint32_t call_word;  // see "Calling"
    bdf_t bdf;                // the function, in the form in which it was asked for
    std::uint16_t id;         // capability ID or extended capability ID
    std::uint16_t offset;     // offset of the capability's first byte in configuration space
};

struct pcie_cap_ops_t;
struct aer_cap_ops_t;
struct rcec_cap_ops_t;

// The PCI Express capability (CAPID_PCIE).
struct pcie_cap_t {
    pci_cap_t head;
    const pcie_cap_ops_t *ops;
};

struct pcie_cap_ops_t {
    // Returns the index (0 and up) of the first extended capability with that ID; negative when the
    // function has none.
    int (*find_ext_cap)(pcie_cap_t *cap, std::uint16_t ext_id);
    // Makes a new object for the extended capability at `index`: an aer_cap_t for EXT_CAPID_AER, an
    // rcec_cap_t for EXT_CAPID_RCEC, a bare pci_cap_t otherwise. PCI_ERR_INVALID for an index
    // that names none of the function's extended capabilities; PCI_ERR_NO_MEMORY.
    pci_err_t (*read_ext_cap)(pcie_cap_t *cap, pci_cap_t **object, int index);
    // Gets PCI Express Capabilities (+0x02), Device/Port Type, bits 7:4: PORT_TYPE_*.
    pci_err_t (*get_port_type)(pcie_cap_t *cap, std::uint8_t *port_type);
    // Reads Device Capabilities (+0x04), 32 bits.
    pci_err_t (*read_devcap)(pcie_cap_t *cap, std::uint32_t *value);
    // Reads Device Control (+0x08), 16 bits.
    pci_err_t (*read_devctl)(pcie_cap_t *cap, std::uint16_t *value);
    // Writes Device Control. `reserved` is 0. `*value` holds the new value and, after success, what
    // the register then reads: a field that did not take the value shows. PCI_ERR_INVALID for a
    // Max_Payload_Size above Device Capabilities, Max_Payload_Size Supported, unless the register
    // has it already; the host of this repository refuses a size above that of the port above in
    // the same way.
    pci_err_t (*write_devctl)(pcie_cap_t *cap, std::uint32_t reserved, std::uint16_t *value);
    // Reads Link Capabilities (+0x0C), 32 bits.
    pci_err_t (*read_linkcap)(pcie_cap_t *cap, std::uint32_t *value);
    // Reads Link Control (+0x10), 16 bits.
    pci_err_t (*read_linkctl)(pcie_cap_t *cap, std::uint16_t *value);
    // Writes Link Control; `*value` as for write_devctl. PCI_ERR_INVALID for a handle that does not
    // name the object's function.
    pci_err_t (*write_linkctl)(pcie_cap_t *cap, bdf_token token, std::uint16_t *value);
};

// The Advanced Error Reporting extended capability (EXT_CAPID_AER).
struct aer_cap_t {
    pci_cap_t head;
    const aer_cap_ops_t *ops;
};

// Each operation switches one bit of Advanced Error Capabilities and Control (+0x18): ECRC
// Generation Enable (bit 6) where ECRC Generation Capable (bit 5) is set, ECRC Check Enable (bit 8)
// where ECRC Check Capable (bit 7) is set. 0 when the bit changed; PCI_ERR_ALREADY when it had that
// value; PCI_ERR_NOT_SUPPORTED when the capable bit is clear; PCI_ERR_IO when the new value did not
// stick; PCI_ERR_INVALID for a handle that does not name the object's function.
struct aer_cap_ops_t {
    pci_err_t (*ecrc_chk_enable)(aer_cap_t *cap, bdf_token token);
    pci_err_t (*ecrc_chk_disable)(aer_cap_t *cap, bdf_token token);
    pci_err_t (*ecrc_gen_enable)(aer_cap_t *cap, bdf_token token);
    pci_err_t (*ecrc_gen_disable)(aer_cap_t *cap, bdf_token token);
};

// The Root Complex Event Collector Endpoint Association extended capability (EXT_CAPID_RCEC).
struct rcec_cap_t {
    pci_cap_t head;
    const rcec_cap_ops_t *ops;
};

struct rcec_cap_ops_t {
    // Returns true when the collector serves the function at `bdf`. Association Bitmap for RCiEPs
    // (+0x04) holds a bit for each device of the collector's own bus; from capability version 2 on,
    // RCEC Associated Bus Numbers (+0x08) gives a range of further buses. Any failure gives false.
    bool (*is_associated)(rcec_cap_t *cap, bdf_t bdf);
};

// The MSI capability (CAPID_MSI): its position alone; registers are reached through pci_hw.
struct msi_cap_t {
    pci_cap_t head;
};

// The place where the host has mapped a function's MSI-X vector table. When the function is
// removed, the table is unmapped between the hooks before and after the removal; when the function
// comes back, it may be mapped elsewhere. The record stays. `address` is a single atomic word: read
// it once for each use. A module must not use the table between the two hooks.
struct msix_table_t {
    volatile void *address;  // of entry 0; 16 bytes an entry; null: not mapped
};

// The MSI-X capability (CAPID_MSIX).
struct msix_cap_t {
    pci_cap_t head;
    const msix_table_t *table;
};

#include "tools/ops/msi_round_trip.h"

#include <cstdlib>
#include <memory>
#include <ostream>
#include <span>
#include <vector>

#include "host/base/address.h"
#include "host/exports/event_records.h"
#include "host/exports/serve.h"
#include "msi/register_save.h"
#include "platform/pci_regs.h"

namespace ops {
namespace {

using enable_features::msix_vector_t;

// One register of a capability, by its offset in it. Disturbing it never sets `enable`, because a
// live function would write its messages to wherever a disturbed address leads.
struct Register {
    unsigned offset;
    unsigned width;
    std::uint32_t enable = 0;
};

// The registers of one capability of one function.
class Registers {
public:
    Registers(bdf_t bdf, const pci_cap_t &cap) : bdf_(bdf), start_(cap.offset) {}

    // Returns all ones for a register that cannot be read.
    std::uint32_t read(Register which) const {
        std::uint32_t value = 0;
        std::uint16_t half = 0;
        const pci_err_t error = which.width == 2
                                    ? pci_hw->cfg_read(bdf_, start_ + which.offset, 2, &half, 0)
                                    : pci_hw->cfg_read(bdf_, start_ + which.offset, 4, &value, 0);
        if (error)
            return ~0U;
        return which.width == 2 ? half : value;
    }

    void write(Register which, std::uint32_t value) const {
        const auto half = static_cast<std::uint16_t>(value);
        if (which.width == 2)
            pci_hw->cfg_write(bdf_, start_ + which.offset, 2, &half, 0);
        else
            pci_hw->cfg_write(bdf_, start_ + which.offset, 4, &value, 0);
    }

private:
    bdf_t bdf_;
    unsigned start_;
};

// The state that a capture should bring back.
struct State {
    std::vector<std::uint32_t> registers;
    std::vector<std::uint32_t> vectors;  // words of the vector table

    bool operator==(const State &) const = default;
};

std::size_t differences(const std::vector<std::uint32_t> &a, const std::vector<std::uint32_t> &b) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        count += a[i] != b[i];
    return count;
}

// A capability under test.
class Subject {
public:
    Subject(bdf_t bdf, const pci_cap_t &cap, std::vector<Register> layout,
            std::span<volatile std::uint32_t> vectors)
        : registers_(bdf, cap), layout_(std::move(layout)), vectors_(vectors) {}

    State state() const {
        State now;
        for (const Register which : layout_)
            now.registers.push_back(registers_.read(which));
        now.vectors.assign(vectors_.begin(), vectors_.end());
        return now;
    }

    // Message Control comes first, so that the capability is disabled before its addresses change.
    void disturb() const {
        for (const Register which : layout_)
            registers_.write(which, ~registers_.read(which) & ~which.enable);
        for (volatile std::uint32_t &word : vectors_)
            word = ~word;
    }

private:
    Registers registers_;
    std::vector<Register> layout_;
    std::span<volatile std::uint32_t> vectors_;
};

Subject msi_subject(bdf_t bdf, const msi_cap_t &cap) {
    const std::uint32_t control = Registers(bdf, cap.head).read({pci::MSI_CONTROL, 2});
    const bool is_64_bit = (control & pci::MSI_CONTROL_64_BIT) != 0;
    std::vector<Register> layout = {{pci::MSI_CONTROL, 2, pci::MSI_CONTROL_ENABLE},
                                    {pci::MSI_ADDRESS, 4}};
    if (is_64_bit)
        layout.push_back({pci::MSI_UPPER_ADDRESS, 4});
    layout.push_back({is_64_bit ? pci::MSI_DATA_64_BIT : pci::MSI_DATA, 2});
    if (control & pci::MSI_CONTROL_PER_VECTOR_MASKING)
        layout.push_back({is_64_bit ? pci::MSI_MASK_BITS_64_BIT : pci::MSI_MASK_BITS, 4});
    return {bdf, cap.head, std::move(layout), {}};
}

Subject msix_subject(bdf_t bdf, const msix_cap_t &cap) {
    const std::uint32_t control = Registers(bdf, cap.head).read({pci::MSIX_CONTROL, 2});
    const std::size_t vectors = (control & pci::MSIX_CONTROL_TABLE_SIZE) + 1;
    auto *const words = static_cast<volatile std::uint32_t *>(cap.table->address);
    constexpr std::size_t WORDS = sizeof(msix_vector_t) / sizeof(std::uint32_t);
    return {bdf,
            cap.head,
            {{pci::MSIX_CONTROL, 2, pci::MSIX_CONTROL_ENABLE}},
            {words, vectors * WORDS}};
}

// Frees the save area that the record may come to own.
struct MsixRecord : enable_features::msi_save_t {
    MsixRecord() : msi_save_t{} {}
    ~MsixRecord() { std::free(msix.vectors); }
    MsixRecord(const MsixRecord &) = delete;
    MsixRecord &operator=(const MsixRecord &) = delete;
};

void write_counts(std::ostream &out, const State &before, const State &disturbed) {
    out << differences(before.registers, disturbed.registers) << " of " << before.registers.size()
        << " registers";
    if (!before.vectors.empty())
        out << ", " << differences(before.vectors, disturbed.vectors) << " of "
            << before.vectors.size() << " words of vectors";
    out << " disturbed, ";
}

// Without a valid capture nothing is disturbed, and the result is that of the restore, which
// refuses it.
pci_err_t round_trip(const Subject &subject, enable_features::msi_save_t &record,
                     event_notification_t *device, std::uint8_t capability, std::ostream &out) {
    const State before = subject.state();
    if (const pci_err_t error = event_notification_reg_save(&record, device, capability))
        return error;
    const std::uint16_t ctrl = capability == CAPID_MSI ? record.msi.ctrl : record.msix.ctrl;
    if (ctrl == 0) {
        out << "no capture: Message Control reads 0, or what it says cannot be saved\n";
        return event_notification_reg_restore(&record, device, capability);
    }
    subject.disturb();
    write_counts(out, before, subject.state());
    const pci_err_t error = event_notification_reg_restore(&record, device, capability);
    const bool same = subject.state() == before;
    out << (same ? "all restored" : "NOT all restored") << '\n';
    return error || same ? error : PCI_ERR_IO;
}

pci_err_t msi(event_notification_t *device, std::ostream &out) {
    const event_capset_t &caps = *device->capset;
    enable_features::msi_save_t record{};
    out << host::bdf_text(caps.device->bdf) << "  MSI    ";
    return round_trip(msi_subject(caps.device->bdf, *caps.msi), record, device, CAPID_MSI, out);
}

pci_err_t msix(event_notification_t *device, std::ostream &out) {
    const event_capset_t &caps = *device->capset;
    out << host::bdf_text(caps.device->bdf) << "  MSI-X  ";
    if (!caps.msix) {
        out << "the vector table cannot be reached\n";
        return PCI_ERR_IO;
    }
    MsixRecord record;
    return round_trip(msix_subject(caps.device->bdf, *caps.msix), record, device, CAPID_MSIX, out);
}

}  // namespace

pci_err_t msi_round_trip(bdf_t bdf, std::ostream &out) {
    event_notification_t *const device = host::find_event_notification(bdf);
    if (!device)
        return PCI_ERR_NO_DEVICE;
    const event_capset_t &caps = *device->capset;
    const host::Function &function = *host::served()->machine.find(bdf);
    const bool has_msix = function.cap(CAPID_MSIX).has_value();
    if (!caps.msi && !has_msix)
        return PCI_ERR_NOT_SUPPORTED;
    const pci_err_t msi_error = caps.msi ? msi(device, out) : PCI_OK;
    const pci_err_t msix_error = has_msix ? msix(device, out) : PCI_OK;
    return msi_error ? msi_error : msix_error;
}

}  // namespace ops

#include "host/space/config_image.h"

#include <algorithm>
#include <stdexcept>

#include "host/base/address.h"
#include "platform/pci_regs.h"

namespace host {

namespace {

// Every width has code of its own, which takes one instruction where the processor's order is that
// of the bus.
std::uint32_t load(const std::vector<std::uint8_t> &bytes, unsigned offset, unsigned width) {
    const std::uint8_t *const at = bytes.data() + offset;
    if (width == 1)
        return at[0];
    if (width == 2)
        return std::uint32_t{at[0]} | std::uint32_t{at[1]} << 8;
    return std::uint32_t{at[0]} | std::uint32_t{at[1]} << 8 | std::uint32_t{at[2]} << 16 |
           std::uint32_t{at[3]} << 24;
}

void store(std::vector<std::uint8_t> &bytes, unsigned offset, unsigned width, std::uint32_t value) {
    for (unsigned i = 0; i < width; ++i)
        bytes[offset + i] = static_cast<std::uint8_t>(value >> 8 * i);
}

struct WriteMasks {
    std::uint32_t rw = 0;
    std::uint32_t w1c = 0;
};

// Shifts a register's mask to the bits of an access at `offset`, which may begin before or inside
// the register.
std::uint32_t moved(std::uint32_t mask, unsigned register_offset, unsigned offset) {
    if (register_offset >= offset)
        return mask << 8 * (register_offset - offset);
    return mask >> 8 * (offset - register_offset);
}

// Returns the masks of the bytes of one access; bits above its width have no meaning.
WriteMasks masks_of(const std::vector<RegisterRule> &rules, unsigned offset, unsigned width) {
    const auto ends_before = [](const RegisterRule &rule, unsigned first) {
        return rule.offset + 4u <= first;
    };
    WriteMasks masks;
    auto rule = std::lower_bound(rules.begin(), rules.end(), offset, ends_before);
    for (; rule != rules.end() && rule->offset < offset + width; ++rule) {
        if (rule->offset + rule->width <= offset)
            continue;
        masks.rw |= moved(rule->rw, rule->offset, offset);
        masks.w1c |= moved(rule->w1c, rule->offset, offset);
    }
    return masks;
}

}  // namespace

void ConfigImage::add(RoutingId id, std::string title, std::vector<std::uint8_t> bytes) {
    if (bytes.size() > pci::EXT_CONFIG_SIZE)
        throw std::invalid_argument(bdf_text(id) + " has more than 4096 bytes");
    auto entry = std::make_unique<Entry>();
    Rules rules = register_rules(bytes);
    entry->title = std::move(title);
    entry->bytes = std::move(bytes);
    const std::scoped_lock guard(lock_);
    if (find(id))
        throw std::invalid_argument(bdf_text(id) + " is there already");
    entry->rules = &*rules_.insert(std::move(rules)).first;
    entries_.at(id) = std::move(entry);
}

std::vector<RoutingId> ConfigImage::functions() const {
    const std::scoped_lock guard(lock_);
    std::vector<RoutingId> ids;
    entries_.visit_all([&](RoutingId id, const std::unique_ptr<Entry> &entry) {
        if (entry)
            ids.push_back(id);
    });
    return ids;
}

std::string ConfigImage::title(RoutingId id) const {
    const std::scoped_lock guard(lock_);
    const Entry *entry = find(id);
    return entry ? entry->title : std::string();
}

pci_err_t ConfigImage::read(RoutingId id, unsigned offset, unsigned width, std::uint32_t &value) {
    const std::scoped_lock guard(lock_);
    Entry *entry = find(id);
    if (const pci_err_t error = check(entry, offset, width))
        return error;
    ImageAccess access{id, offset, width, false, load(entry->bytes, offset, width)};
    if (filter_)
        if (const pci_err_t error = filter_(access))
            return error;
    value = access.value & ~0U >> 8 * (4 - width);
    return PCI_OK;
}

pci_err_t ConfigImage::write(RoutingId id, unsigned offset, unsigned width, std::uint32_t value) {
    const std::scoped_lock guard(lock_);
    Entry *entry = find(id);
    if (const pci_err_t error = check(entry, offset, width))
        return error;
    ImageAccess access{id, offset, width, true, value};
    if (filter_)
        if (const pci_err_t error = filter_(access))
            return error;
    const std::uint32_t in = access.value;
    const std::uint32_t old = load(entry->bytes, offset, width);
    const WriteMasks masks = masks_of(*entry->rules, offset, width);
    store(entry->bytes, offset, width, ((old & ~masks.rw) | (in & masks.rw)) & ~(in & masks.w1c));
    return PCI_OK;
}

void ConfigImage::set_present(RoutingId id, bool present) {
    const std::scoped_lock guard(lock_);
    if (Entry *entry = find(id))
        entry->present = present;
}

bool ConfigImage::present(RoutingId id) const {
    const std::scoped_lock guard(lock_);
    const Entry *entry = find(id);
    return entry && entry->present;
}

void ConfigImage::reset(RoutingId id) {
    const std::scoped_lock guard(lock_);
    Entry *entry = find(id);
    if (!entry)
        return;
    for (const RegisterRule &rule : *entry->rules) {
        const std::uint32_t kept = load(entry->bytes, rule.offset, rule.width) & ~rule.reset_mask;
        store(entry->bytes, rule.offset, rule.width, kept | (rule.reset_value & rule.reset_mask));
    }
}

std::vector<std::uint8_t> ConfigImage::bytes(RoutingId id) const {
    const std::scoped_lock guard(lock_);
    const Entry *entry = find(id);
    return entry ? entry->bytes : std::vector<std::uint8_t>();
}

void ConfigImage::set_filter(AccessFilter filter) {
    const std::scoped_lock guard(lock_);
    filter_ = std::move(filter);
}

ConfigImage::Entry *ConfigImage::find(RoutingId id) const {
    const std::unique_ptr<Entry> *entry = entries_.find(id);
    return entry ? entry->get() : nullptr;
}

pci_err_t ConfigImage::check(const Entry *entry, unsigned offset, unsigned width) const {
    const bool known_width = width == 1 || width == 2 || width == 4;
    if (!known_width || (offset & (width - 1)) != 0 || offset >= pci::EXT_CONFIG_SIZE)
        return PCI_ERR_INVALID;
    if (!entry || !entry->present)
        return PCI_ERR_NO_DEVICE;
    return offset + width > entry->bytes.size() ? PCI_ERR_IO : PCI_OK;
}

}  // namespace host

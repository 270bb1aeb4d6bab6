// The two controls of Advanced Error Capabilities and Control, ECRC Generation Enable and ECRC
// Check Enable. They differ in their operations, their place in an entry and their messages.
#pragma once

#include "features/ecrc/entry_list.h"

namespace enable_features {

struct ecrc_control_t {
    using operation_t = pci_err_t (*aer_cap_ops_t::*)(aer_cap_t *cap, bdf_token token);

    operation_t enable;
    operation_t disable;
    std::uint8_t ecrc_entry::*capable;
    ecrc_setting ecrc_entry::*request;

    // Formats of messages; the comments name their arguments.
    const char *restored;     // text of a result
    const char *not_capable;  // address, "enable" or "disable"
    const char *changed;      // address, "enable" or "disable", "d" or "d already"
    const char *failed;       // address, "enable" or "disable", text of a result
};

inline constexpr ecrc_control_t ecrc_generation = {
    .enable = &aer_cap_ops_t::ecrc_gen_enable,
    .disable = &aer_cap_ops_t::ecrc_gen_disable,
    .capable = &ecrc_entry::gen_capable,
    .request = &ecrc_entry::gen,
    .restored = "Restore ECRC generation state to enabled for no-change setting, %s",
    .not_capable = "B%u:D%u:F%u is not capable of ECRC generation, ignoring %s",
    .changed = "B%u:D%u:F%u ECRC generation %s%s",
    .failed = "B%u:D%u:F%u ECRC generation %s failed, %s",
};

inline constexpr ecrc_control_t ecrc_checking = {
    .enable = &aer_cap_ops_t::ecrc_chk_enable,
    .disable = &aer_cap_ops_t::ecrc_chk_disable,
    .capable = &ecrc_entry::chk_capable,
    .request = &ecrc_entry::chk,
    .restored = "Restore ECRC checking state to enabled for no-change setting, %s",
    .not_capable = "B%u:D%u:F%u is not capable of ECRC checking, ignoring %s",
    .changed = "B%u:D%u:F%u ECRC checking %s%s",
    .failed = "B%u:D%u:F%u ECRC checking %s failed, %s",
};

}  // namespace enable_features

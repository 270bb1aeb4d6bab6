// The two controls of Advanced Error Capabilities and Control, ECRC Generation Enable and ECRC
// Check Enable. They differ in their operations, their place in an entry and their messages.
#pragma once

#include "features/ecrc/entry_list.h"
#include "module/base/log.h"
#include "platform/pci_access.h"

namespace enable_features {

struct ecrc_control_t {
    using operation_t = pci_err_t (*aer_cap_ops_t::*)(aer_cap_t *cap, bdf_token token);

    operation_t enable;
    operation_t disable;
    std::uint8_t ecrc_entry::*capable;
    ecrc_setting ecrc_entry::*request;

    // Log one message each. `word` is "enable" or "disable".
    void (*report_restored)(pci_err_t result);
    void (*report_not_capable)(bdf_t bdf, const char *word);
    void (*report_changed)(bdf_t bdf, const char *word, bool already);
    void (*report_failed)(bdf_t bdf, const char *word, pci_err_t result);
};

// The reports of the control that messages call `name`, a literal. This is a macro, because only a
// format that stands in the call lets the compiler check its arguments.
#define ECRC_REPORTS(name)                                                                         \
    .report_restored =                                                                             \
        [](pci_err_t result) {                                                                     \
            LOG_INFO(2, "Restore ECRC " name " state to enabled for no-change setting, %s",        \
                     pci_strerror(result));                                                        \
        },                                                                                         \
    .report_not_capable =                                                                          \
        [](bdf_t bdf, const char *word) {                                                          \
            LOG_WARNING(1, "B%u:D%u:F%u is not capable of ECRC " name ", ignoring %s",             \
                        BDF_ARGS(bdf), word);                                                      \
        },                                                                                         \
    .report_changed =                                                                              \
        [](bdf_t bdf, const char *word, bool already) {                                            \
            LOG_INFO(2, "B%u:D%u:F%u ECRC " name " %s%s", BDF_ARGS(bdf), word,                     \
                     already ? "d already" : "d");                                                 \
        },                                                                                         \
    .report_failed = [](bdf_t bdf, const char *word, pci_err_t result) {                           \
        LOG_ERROR(1, "B%u:D%u:F%u ECRC " name " %s failed, %s", BDF_ARGS(bdf), word,               \
                  pci_strerror(result));                                                           \
    }

inline constexpr ecrc_control_t ecrc_generation = {
    .enable = &aer_cap_ops_t::ecrc_gen_enable,
    .disable = &aer_cap_ops_t::ecrc_gen_disable,
    .capable = &ecrc_entry::gen_capable,
    .request = &ecrc_entry::gen,
    ECRC_REPORTS("generation"),
};

inline constexpr ecrc_control_t ecrc_checking = {
    .enable = &aer_cap_ops_t::ecrc_chk_enable,
    .disable = &aer_cap_ops_t::ecrc_chk_disable,
    .capable = &ecrc_entry::chk_capable,
    .request = &ecrc_entry::chk,
    ECRC_REPORTS("checking"),
};

#undef ECRC_REPORTS

}  // namespace enable_features

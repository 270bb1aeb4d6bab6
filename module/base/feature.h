// A feature is a row of the table. The table itself, which knows the features, is in
// module/feature_table.cc.
#pragma once

#include <cstdint>

#include "module/base/buscfg_hooks.h"
#include "module/base/entry_list.h"
#include "platform/config_text.h"
#include "platform/types.h"

namespace enable_features {

struct feature_t {
    // These members are fixed at load time.
    const char *name;  // for messages
    // Starts the feature; called once. Returns 0, PCI_ERR_NOTHING_TO_DO when the list is empty, or
    // another code on failure.
    pci_err_t (*init)(feature_t *row);
    // Takes one line of the configuration file: the keyword as written, and a writable copy of the
    // value that lives until the end of the file. Null: the feature's lines are dropped.
    void (*param_parse)(const char *keyword, char *value, feature_t *row);
    // Returns true for a character that a value may hold. Null: valid_param_val_char() decides.
    name_char_t valid_param_char;

    // These members change while the module runs.
    entry_list_t list;
    buscfg_hooks_t hooks;  // filled by init
};

// Each row has a name, which is its index in the table.
enum feature_row : std::uint32_t { ROW_FB2B, ROW_ASPM, ROW_MPS, ROW_ECRC, num_features };

// The rows in the order in which they start. Hooks and look-ups are handed no row, so they find
// their feature's list here.
extern feature_t feature_list[num_features];

}  // namespace enable_features

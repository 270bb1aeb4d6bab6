// What a feature is to the module: a row of the table. The table itself, which knows the features,
// is in module/feature_table.cc.
#pragma once

#include <cstdint>

#include "module/base/buscfg_hooks.h"
#include "module/base/entry_list.h"
#include "platform/config_text.h"
#include "platform/types.h"

namespace enable_features {

struct feature_t {
    // Fixed at load time.
    const char *name;  // for messages
    // Starts the feature, once. 0; PCI_ERR_NOTHING_TO_DO when its list is empty; else a failure.
    pci_err_t (*init)(feature_t *row);
    // Takes one line of the configuration file: the keyword as written, and a writable copy of the
    // value that lives until the file's end. Null: the feature's lines are dropped.
    void (*param_parse)(const char *keyword, char *value, feature_t *row);
    // Tells which characters a value may hold. Null: valid_param_val_char().
    name_char_t valid_param_char;

    // Run-time state.
    entry_list_t list;
    buscfg_hooks_t hooks;  // filled by init
};

// Rows by name.
enum feature_row : std::uint32_t { ROW_FB2B, ROW_ASPM, ROW_MPS, ROW_ECRC, num_features };

// In the order in which they start. A feature's hooks and look-ups, which are handed no row, find
// their list here.
extern feature_t feature_list[num_features];

}  // namespace enable_features

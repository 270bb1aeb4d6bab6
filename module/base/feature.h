// A feature is a row of the table. The table itself, which knows the features, is in
// module/feature_table.cc.
#pragma once

#include <cstdint>

#include "feature_file/line.h"
#include "module/base/buscfg_hooks.h"
#include "module/base/entry_list.h"
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

// The rows in the order of feature_row, in which they start. Hooks and look-ups are handed no row,
// so they find their feature's list here.
extern feature_t feature_list[num_features];

}  // namespace enable_features

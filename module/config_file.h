// The feature configuration file: KEYWORD=VALUE lines, handed to the features' parsers.
#pragma once

#include "platform/types.h"

namespace enable_features {

// Parses one file, line by line in file order. Returns PCI_ERR_INVALID for a null or empty path;
// PCI_ERR_FILE_UNREADABLE when the process may not read the file; else 0, whatever the lines hold
// and also when the file cannot be opened or mapped after all. Call on the host's initialising
// thread.
pci_err_t parse_feature_config(const char *file);

}  // namespace enable_features

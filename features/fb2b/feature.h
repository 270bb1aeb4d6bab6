// Fast back-to-back transactions as a feature: switched off in this version.
#pragma once

#include "module/base/feature.h"

namespace enable_features {

// Does nothing; returns PCI_ERR_NOT_SUPPORTED.
pci_err_t fb2b_init(feature_t *row);

// Ignores the line.
void param_parse_fb2b(const char *keyword, char *value, feature_t *row);

}  // namespace enable_features

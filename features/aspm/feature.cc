#include "features/aspm/feature.h"

namespace enable_features {

pci_err_t aspm_init(feature_t *) {
    return PCI_ERR_NOT_SUPPORTED;
}

void param_parse_aspm(const char *, char *, feature_t *) {}

}  // namespace enable_features

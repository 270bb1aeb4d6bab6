#include "features/fb2b/feature.h"

namespace enable_features {

pci_err_t fb2b_init(feature_t *) {
    return PCI_ERR_NOT_SUPPORTED;
}

void param_parse_fb2b(const char *, char *, feature_t *) {}

}  // namespace enable_features

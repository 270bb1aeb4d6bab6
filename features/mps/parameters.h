// Parses the MPS feature's lines of the configuration file, ENDPOINT:SIZE.
#pragma once

#include "module/base/feature.h"

namespace enable_features {

// Parses one value, cutting it up in place: "all", BUS.DEVICE.FUNCTION or BUS.FUNCTION (an ARI
// function), then ":", then "max" or a size in bytes. Sets the request of the entries that it
// names, which builds the endpoint list on first use; a bad value is reported and dropped whole.
// `name` is the keyword as written; `row` is not used. Call on the host's initialising thread.
void param_parse_mps(const char *name, char *value, feature_t *row);

}  // namespace enable_features

// The MPS feature's lines of the configuration file: ENDPOINT:SIZE.
#pragma once

#include "module/base/feature.h"

namespace enable_features {

// Takes one value, cutting it up in place: "all", BUS.DEVICE.FUNCTION or BUS.FUNCTION (an ARI
// function), then ":", then "max" or a size in bytes. Sets the request of the entries meant, which
// builds the endpoint list on first use; a bad value is reported and dropped whole. `name` is the
// keyword as written; `row` is not looked at. On the host's initialising thread.
void param_parse_mps(const char *name, char *value, feature_t *row);

// Tells which bytes a value may hold: ASCII letters and digits, "+", "-", "." and ":".
bool valid_mps_param_char(char c);

}  // namespace enable_features

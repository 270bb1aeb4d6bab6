// Parses ECRC=<functions>:<generation>:<checking>, for example ECRC=2.0.1:+:=.
#pragma once

#include "module/base/feature.h"

namespace enable_features {

// Parses one value (cut up in place) and records the requests for every function that it selects
// and this server instance manages. Reports everything through the log. Numbers are decimal, or
// hexadecimal behind 0x, or octal behind 0.
void param_parse_ecrc(const char *keyword, char *value, feature_t *row);

}  // namespace enable_features

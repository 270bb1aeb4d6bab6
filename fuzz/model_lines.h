// How the model reads feature files.
#pragma once

#include <string_view>

#include "fuzz/model_hierarchies.h"

namespace host::fuzz::model {

// Takes every line: requests of payload sizes and of ECRC settings.
void take_lines(Hierarchies &machine, std::string_view features);

}  // namespace host::fuzz::model

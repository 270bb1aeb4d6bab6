// Finds the lines of a feature file that the module hands to its features.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "feature_file/line.h"
#include "host/requests/remarks.h"

namespace host {

struct FeatureLine {
    std::size_t number;
    enable_features::feature_row row;
    std::string value;
};

// Returns how to write a value for a keyword: "write ENDPOINT:SIZE, as ...".
std::string with_value(enable_features::feature_row row);

// Returns the lines that have a keyword and a value; remarks on the others, and on what is not read
// of a line.
std::vector<FeatureLine> read_lines(const std::string &text, Remarks &remarks);

}  // namespace host

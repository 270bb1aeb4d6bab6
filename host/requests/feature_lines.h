// Finds the lines of a feature file.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "feature_file/line.h"
#include "host/requests/remarks.h"

namespace host {

struct FeatureLine {
    std::size_t number;
    std::string text;                                                  // without blanks at its ends
    enable_features::feature_row row = enable_features::num_features;  // unless there is a keyword
    std::string keyword{};                                             // as written
    std::string value{};

    // Returns true when the module hands the line to a feature.
    bool counts() const { return row != enable_features::num_features && !value.empty(); }
};

// Returns how to write a value for a keyword: "write ENDPOINT:SIZE, as ...".
std::string with_value(enable_features::feature_row row);

// Returns the bytes of a feature file. Throws InputError for one that the module would read nothing
// of.
std::string read_feature_file(const std::filesystem::path &file);

// Returns all lines but comments; remarks on those that do not count, and on what is not read of a
// line.
std::vector<FeatureLine> read_lines(const std::string &bytes, Remarks &remarks);

}  // namespace host

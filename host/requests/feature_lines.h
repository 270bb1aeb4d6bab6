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

// Returns what is wrong with a line whose value has too few fields, and how to write it.
std::string lacking_field(const FeatureLine &line);

// Returns the bytes of a feature file. Throws InputError for one that the module would read nothing
// of.
std::string read_feature_file(const std::filesystem::path &file);

// Returns all lines but comments; remarks on those that do not count, and on what is not read of a
// line.
std::vector<FeatureLine> read_lines(const std::string &bytes, Remarks &remarks);

}  // namespace host

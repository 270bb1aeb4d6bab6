// In a file of its own, because std::regex takes long to compile.
#pragma once

#include <string>

namespace host::tests {

// Returns `text` with each match of a regular expression replaced.
std::string replace_all(const std::string &text, const std::string &pattern,
                        const std::string &replacement);

}  // namespace host::tests

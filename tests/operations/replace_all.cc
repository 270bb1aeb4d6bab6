#include <regex>

#include "tests/operations/operations_test.h"

std::string host::tests::replace_all(const std::string &text, const std::string &pattern,
                                     const std::string &replacement) {
    return std::regex_replace(text, std::regex(pattern), replacement);
}

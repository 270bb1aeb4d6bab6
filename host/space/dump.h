// lspci's dump text (-x, -xxx, -xxxx): for each function a title line with hex lines below it, and
// a blank line between functions.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/space/config_image.h"

namespace host {

class OutputFile;

// what() is "FILE:LINE: reason" with the text that is wrong, or "FILE: reason".
class DumpError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The domains to serve; nullopt: every one that there is.
using DomainChoice = std::optional<std::vector<unsigned>>;

// One domain's functions.
struct DumpedDomain {
    std::unique_ptr<ConfigImage> image = std::make_unique<ConfigImage>();
    std::size_t header_only = 0;  // functions with 64 bytes or fewer although their header points
                                  // to a capability list (lspci -x)
};

struct Dump {
    std::map<unsigned, DumpedDomain> domains;  // those asked for, at least one
    std::map<unsigned, std::size_t> left_out;  // number of functions in each other domain
};

// Read the functions of some domains, from lines of up to 4096 bytes and 4 GiB altogether. Throw
// DumpError, also when a domain that is asked for has no function.
Dump read_dump(const std::filesystem::path &file, const DomainChoice &choice);
Dump read_dump(std::istream &stream, const std::string &name, const DomainChoice &choice);

// Writes the image as a dump that `lspci -F` reads. Throws DumpError.
void write_dump(OutputFile &file, const ConfigImage &image);

}  // namespace host

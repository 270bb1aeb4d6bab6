// lspci's dump text (-x, -xxx, -xxxx): for each function a title line with hex lines below it, and
// a blank line between functions.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <memory>
#include <stdexcept>
#include <string>

#include "host/space/config_image.h"

namespace host {

class OutputFile;

// what() is "FILE:LINE: reason" with the text that is wrong, or "FILE: reason".
class DumpError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Dump {
    std::unique_ptr<ConfigImage> image;  // the functions of the domain asked for
    unsigned domain = 0;
    bool domain_in_text = false;    // titles begin with a domain ("0000:00:1f.3")
    std::size_t other_domains = 0;  // functions left out because they are of another domain
    std::size_t header_only = 0;    // functions with 64 bytes or fewer although their header
                                    // points to a capability list (lspci -x)
};

// Read the functions of `domain`, from lines of up to 4096 bytes and 4 GiB altogether. Throw
// DumpError.
Dump read_dump(const std::filesystem::path &file, unsigned domain);
Dump read_dump(std::istream &stream, const std::string &name, unsigned domain);

// Writes the image as a dump that `lspci -F` reads. Throws DumpError.
void write_dump(OutputFile &file, const ConfigImage &image);

}  // namespace host

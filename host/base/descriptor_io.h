// Whole texts through descriptors.
#pragma once

#include <string>
#include <string_view>

#include "host/base/descriptor.h"

namespace host {

// Returns the descriptor; throws std::system_error, with errno and `what`, when there is none.
Descriptor require_descriptor(int number, const char *what);

// Opens a file in memory that has no name and is empty. Throws std::system_error.
Descriptor memory_file();

// Returns false, with errno, when not all can be written.
bool write_whole(int descriptor, std::string_view text);

// Reads from the present position to the end, or to the first error.
std::string read_whole(int descriptor);

// Reads a file from its beginning.
std::string read_from_start(int descriptor);

}  // namespace host

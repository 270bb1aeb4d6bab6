// Function addresses in messages.
#pragma once

#include <string>

#include "platform/types.h"

namespace host {

// "04:00.0", as lspci writes it: also an ARI function in device and function form.
std::string bdf_text(bdf_t bdf);

// "0000"
std::string domain_text(unsigned domain);

// "0a"
std::string bus_text(unsigned bus);

}  // namespace host

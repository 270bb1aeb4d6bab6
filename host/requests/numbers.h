// Remarks on numbers and addresses as feature files write them.
#pragma once

#include <cstddef>
#include <string>

#include "host/machine/machine.h"
#include "host/requests/remarks.h"
#include "platform/types.h"

namespace host {

// The meaning of a number.
struct Number {
    const char *name;  // "bus"
    unsigned long highest;
};

// Remarks on the number at the start of `text`: none, too high, not what it looks like, and what is
// ignored behind it.
void check_number(const char *text, const Number &number, std::size_t line, Remarks &remarks);

// Remarks on the parts of an address in a value, and on `further`, which may be null.
void check_address(const char *const (&parts)[3], const char *further, std::size_t line,
                   Remarks &remarks);

// Returns an address as feature files write it, "58.0.0 or 0x3a.0.0".
std::string written(bdf_t bdf);

// Returns true, after a remark, when the value begins with an address in lspci's form. A machine,
// which may be null, tells the functions of ARI devices.
bool is_lspci_form(const std::string &value, const Machine *machine, std::size_t line,
                   Remarks &remarks);

}  // namespace host

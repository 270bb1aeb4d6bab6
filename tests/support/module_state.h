// Resets what the module, linked into a program, keeps for the life of the process.
#pragma once

namespace host::tests {

// Brings the module to its state after loading, and releases what it and the host kept of each
// other.
void reset_module();

}  // namespace host::tests

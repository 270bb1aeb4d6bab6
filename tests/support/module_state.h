// What the module, linked into a program, keeps for the life of the process.
#pragma once

namespace host::tests {

// The module as it was loaded, also for the host: what both kept of each other is released.
void reset_module();

}  // namespace host::tests

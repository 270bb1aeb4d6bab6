// Finds what becomes of requests for payload sizes.
#pragma once

#include <vector>

#include "host/requests/view.h"

namespace check {

// Remarks on requests that the machine cannot take, or of which another request decides.
void check_on_machine(const std::vector<host::MpsRequest> &requests, const host::MachineView &view,
                      host::Remarks &remarks);

}  // namespace check

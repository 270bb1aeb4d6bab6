// Machines that fill whole buses: all 32 devices with all 8 functions. Bus 0 has a root port for
// each further bus, so that each is a hierarchy of its own, and integrated endpoints in the other
// places. Every function has ECRC and supports payloads of 512 bytes.
#pragma once

#include "host/space/config_image.h"

namespace host::bench {

constexpr unsigned PCIE_AT = 0x40;
constexpr unsigned AER_AT = 0x100;
constexpr unsigned MPS_512 = 2;
constexpr unsigned FUNCTIONS_PER_BUS = 256;

// Adds that many functions: a multiple of FUNCTIONS_PER_BUS, two buses or more.
void fill(ConfigImage &image, unsigned functions);

}  // namespace host::bench

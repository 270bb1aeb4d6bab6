// Stands in the place of udev, which tells of the kernel's events.
#pragma once

namespace host::tests {

// A pipe of packets. Each is an event, "add /devices/pci0000:00/0000:00:01.0", with a third word
// when it is synthetic.
inline int kernel[2];

}  // namespace host::tests

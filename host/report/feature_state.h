// The state of one function's features, payload size and ECRC, read from its registers.
#pragma once

#include <optional>

#include "host/machine/machine.h"

namespace host {

// Sizes in bytes; a reserved code n is shown as 128 << n. Nullopt: cannot be read.
struct PayloadState {
    std::optional<unsigned> supported;     // Device Capabilities, Max_Payload_Size Supported
    std::optional<unsigned> current;       // Device Control, Max_Payload_Size
    std::optional<unsigned> read_request;  // Device Control, Max_Read_Request_Size

    // Compares what modules set.
    bool operator==(const PayloadState &other) const {
        return supported == other.supported && current == other.current;
    }
};

struct EcrcControl {
    bool capable;
    bool enabled;  // false where not capable

    bool operator==(const EcrcControl &) const = default;
};

struct EcrcState {
    EcrcControl gen;
    EcrcControl chk;

    bool operator==(const EcrcState &) const = default;
};

struct FeatureState {
    bool reachable = false;           // answers and has not been removed
    std::optional<PayloadState> mps;  // empty without either register
    std::optional<EcrcState> ecrc;    // empty without Advanced Error Reporting
    bool ecrc_unknown = false;        // a PCI Express function of which only 256 bytes can be read

    bool operator==(const FeatureState &) const = default;
};

// Reads the state; a register that cannot be read counts as absent. The machine must be the one
// that is served.
FeatureState read_feature_state(const Machine &machine, const Function &function);

}  // namespace host

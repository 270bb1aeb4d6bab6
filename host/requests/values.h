// Reads the values of feature files as the module reads them.
#pragma once

#include <bit>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "feature_file/ecrc_value.h"
#include "feature_file/mps_value.h"
#include "host/machine/machine.h"
#include "host/requests/feature_lines.h"
#include "host/requests/remarks.h"
#include "platform/types.h"

namespace host {

struct MpsRequest {
    std::size_t line;
    std::string value;
    bdf_t bdf;           // BDF_NONE: every endpoint
    std::uint32_t size;  // bytes, or MPS_MAX

    // False for sizes between the powers of two, which the module accepts, but no register takes.
    bool can_be_set() const {
        return size == enable_features::MPS_MAX || std::has_single_bit(size);
    }
};

struct EcrcRequest {
    std::size_t line;
    std::string value;
    enable_features::selection_t selection;
    enable_features::requests_t requests;
};

// A line asks for one of the two, or for nothing.
struct Request {
    std::optional<MpsRequest> mps;
    std::optional<EcrcRequest> ecrc;
};

// Returns what the line asks for; none, after a remark, when the module drops it or its keyword has
// no effect. A machine, which may be null, tells the functions of ARI devices.
Request read_request(const FeatureLine &line, const Machine *machine, Remarks &remarks);

// Return what a line with this keyword asks for; nullopt, after a remark, when the module drops it.
std::optional<MpsRequest> read_mps(const FeatureLine &line, Remarks &remarks);
std::optional<EcrcRequest> read_ecrc(const FeatureLine &line, Remarks &remarks);

// Describe a request in words.
std::string text_of(const MpsRequest &request);
std::string text_of(const EcrcRequest &request);

// Remark on the lines that have no effect, because later ones set the same again.
void check_overridden(const std::vector<MpsRequest> &requests, Remarks &remarks);
void check_overridden(const std::vector<EcrcRequest> &requests, Remarks &remarks);

}  // namespace host

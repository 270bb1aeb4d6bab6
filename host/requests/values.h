// Reads the values of feature files as the module reads them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "feature_file/ecrc_value.h"
#include "host/requests/feature_lines.h"
#include "host/requests/remarks.h"
#include "platform/types.h"

namespace host {

struct MpsRequest {
    std::size_t line;
    std::string value;
    bdf_t bdf;           // BDF_NONE: every endpoint
    std::uint32_t size;  // bytes, or MPS_MAX
};

struct EcrcRequest {
    std::size_t line;
    std::string value;
    enable_features::selection_t selection;
    enable_features::requests_t requests;
};

// Return what the line asks for; nullopt, after a remark, when the module drops it, or when it
// cannot be set.
std::optional<MpsRequest> read_mps(const FeatureLine &line, Remarks &remarks);
std::optional<EcrcRequest> read_ecrc(const FeatureLine &line, Remarks &remarks);

// Describe a request in words.
std::string text_of(const MpsRequest &request);
std::string text_of(const EcrcRequest &request);

// Remark on the lines that have no effect, because later ones set the same again.
void check_overridden(const std::vector<MpsRequest> &requests, Remarks &remarks);
void check_overridden(const std::vector<EcrcRequest> &requests, Remarks &remarks);

}  // namespace host

// feature_file/line.cc matches keywords to the rows of this table; start-up takes the rows in this
// order.
#include "feature_file/ecrc_value.h"
#include "feature_file/mps_value.h"
#include "features/aspm/feature.h"
#include "features/ecrc/control.h"
#include "features/ecrc/parameters.h"
#include "features/fb2b/feature.h"
#include "features/mps/hierarchy.h"
#include "features/mps/parameters.h"
#include "module/base/feature.h"

namespace enable_features {

namespace {

constexpr entry_list_t empty_list = {
    .first = nullptr, .last = nullptr, .count = 0, .lock = PTHREAD_MUTEX_INITIALIZER};

}  // namespace

// The rows are in the order of feature_row.
feature_t feature_list[num_features] = {
    {.name = "Fast back-to-back Transfers",
     .init = fb2b_init,
     .param_parse = param_parse_fb2b,
     .valid_param_char = nullptr,
     .list = empty_list,
     .hooks = {}},
    {.name = "ASPM",
     .init = aspm_init,
     .param_parse = param_parse_aspm,
     .valid_param_char = nullptr,
     .list = empty_list,
     .hooks = {}},
    {.name = "Max Payload Size",
     .init = mps_init,
     .param_parse = param_parse_mps,
     .valid_param_char = valid_mps_param_char,
     .list = empty_list,
     .hooks = {}},
    {.name = "ECRC Generation and Checking",
     .init = ecrc_init,
     .param_parse = param_parse_ecrc,
     .valid_param_char = valid_ecrc_param_char,
     .list = empty_list,
     .hooks = {}},
};

}  // namespace enable_features

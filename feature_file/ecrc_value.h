// Reads the values of ECRC lines, FUNCTIONS:GENERATION:CHECKING. These functions only read text:
// they log nothing and ask no host, so that a program that checks feature files reads a value as
// the module does.
//
//   functions   all   every function      B    every function on bus B
//               B.*   those of device 0 on bus B, ARI functions among them
//               B.F   ARI function F      B.D.*   those of device D      B.D.F   one function
//   generation  "+" enable, "-" disable, "=" no change; only the first character counts
//   checking    likewise
// Separators run together, further fields and parts are ignored, and so is what follows a number's
// digits.
#pragma once

#include <cstdint>

#include "platform/types.h"

namespace enable_features {

// The requested setting of one control: 1 enable, -1 disable, 0 no change.
using ecrc_setting = std::int32_t;

// Returns true for letters, digits and "*+-.:=".
bool valid_ecrc_param_char(char c);

// The fields, cut out of the value; null when missing.
struct ecrc_fields_t {
    const char *functions;
    const char *gen;
    const char *chk;
    const char *further;  // the first field that is ignored, or null
};

enum class scope_t { every_function, bus, device, single };

// The functions that a value selects. For scopes `bus` and `device`, `bdf` holds the bus, or the
// bus and the device, to compare with.
struct selection_t {
    scope_t scope;
    bdf_t bdf;
};

// The part of the first field that is refused: a number, or with `form` the field as a whole.
enum class selection_fault_t { none, bus, form, device, ari_function, function };

struct selection_result_t {
    selection_fault_t fault;
    selection_t selection;
    char *parts[3];       // as written, cut out of the field; null when missing
    const char *further;  // the first part that is ignored, or null
};

struct requests_t {
    ecrc_setting gen;
    ecrc_setting chk;
};

// Cuts a value up in place.
ecrc_fields_t cut_ecrc_value(char *value);

// Returns true for "all", in any letter case.
bool names_every_function(const char *field);

// Reads any other first field, cutting it up in place.
selection_result_t read_selection(char *field);

// Returns true for a function, as it is enumerated, that a selection of scope `every_function`,
// `bus` or `device` holds.
bool is_selected(const selection_t &selection, bdf_t bdf);

// Reads the other two fields; false when one of them is none of the three settings.
bool read_requests(const char *gen, const char *chk, requests_t *requests);

}  // namespace enable_features

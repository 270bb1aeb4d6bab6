#include <algorithm>
#include <bit>

#include "feature_file/mps_value.h"
#include "feature_file/value_text.h"
#include "host/base/address.h"
#include "host/requests/numbers.h"
#include "host/requests/values.h"

namespace host {
namespace {

namespace module = enable_features;

std::string refusal_of(std::string_view field) {
    const std::string decimal(field.substr(std::min(field.find_first_not_of('0'), field.size())));
    std::uint32_t size = 0;
    return field.starts_with('0') && module::read_payload_size(decimal.c_str(), &size)
               ? " begins with 0, so it is octal and refused, the line is dropped: write " + decimal
               : " is refused, the line is dropped: write max, 128, 256, 512, 1024, 2048 or 4096";
}

// Remarks on a size, which is `size` when the module accepts it.
void check_size(const char *field, bool accepted, std::uint32_t size, std::size_t line,
                Remarks &remarks) {
    if (accepted && size == module::MPS_MAX)
        return;
    if (!accepted)
        return remarks.error(line, "size " + in_quotes(field) + refusal_of(field));
    if (!std::has_single_bit(size))
        return remarks.error(line,
                             "size " + std::to_string(size) +
                                 " is accepted, but cannot be set, and the path falls back to " +
                                 std::to_string(module::MPS_DEFAULT) + " bytes: write " +
                                 std::to_string(std::bit_floor(size)) + " or " +
                                 std::to_string(std::bit_ceil(size)));
    if (module::scan_number(field).number != size)
        remarks.warning(line, "size " + in_quotes(field) + " reads as " + std::to_string(size) +
                                  ", its low 32 bits: write that");
    check_number(field, {"size", ~0UL}, line, remarks);
}

// Finds the endpoint; BDF_NONE for every one. Returns false when the line is dropped.
bool check_endpoint(char *field, std::size_t line, Remarks &remarks, bdf_t *bdf) {
    *bdf = BDF_NONE;
    if (module::names_every_endpoint(field))
        return true;
    const std::string text = field;
    const module::ep_result_t result = module::read_endpoint(field);
    check_address(result.parts, result.further, line, remarks);
    *bdf = result.bdf;
    if (result.fault == module::ep_fault_t::none && result.bdf == BDF_NONE)
        remarks.error(line, "the line is dropped silently, " + in_quotes(text) +
                                " is no endpoint: write BUS.DEVICE.FUNCTION, or BUS.FUNCTION for "
                                "an ARI function");
    else if (result.parts[0] == nullptr)
        remarks.error(line, "the line is dropped, " + in_quotes(text) + " is no endpoint");
    return result.fault == module::ep_fault_t::none && result.bdf != BDF_NONE;
}

}  // namespace

std::optional<MpsRequest> read_mps(const FeatureLine &line, Remarks &remarks) {
    std::string value = line.value;
    const module::mps_fields_t fields = module::cut_mps_value(value.data());
    if (fields.size == nullptr) {
        remarks.error(line.number, lacking_field(line));
        return std::nullopt;
    }
    MpsRequest request = {.line = line.number, .value = line.value, .bdf = BDF_NONE, .size = 0};
    const bool endpoint = check_endpoint(fields.endpoint, line.number, remarks, &request.bdf);
    const bool accepted = module::read_payload_size(fields.size, &request.size);
    check_size(fields.size, accepted, request.size, line.number, remarks);
    if (fields.further != nullptr)
        remarks.unread(line.number,
                       in_quotes(fields.further) + " behind the size is ignored: leave it out");
    return endpoint && accepted ? std::optional(request) : std::nullopt;
}

std::string text_of(const MpsRequest &request) {
    const std::string endpoint =
        request.bdf == BDF_NONE ? "every endpoint" : "the device of " + bdf_text(request.bdf);
    return endpoint + (request.size == module::MPS_MAX
                           ? ", the largest payload that the path allows"
                           : ", payloads of " + std::to_string(request.size) + " bytes");
}

}  // namespace host

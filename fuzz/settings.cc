// Starts the module on a machine, and compares every byte of configuration space with what the
// model expects.
#include <cstdio>
#include <cstdlib>

#include "fuzz/machines.h"
#include "fuzz/model.h"
#include "host/exports/payload_guard.h"
#include "host/exports/serve.h"
#include "tests/support/module_state.h"

using namespace host;

namespace {

fuzz::Spaces spaces_of(const ConfigImage &image) {
    fuzz::Spaces spaces;
    for (const RoutingId id : image.functions())
        spaces.emplace(id, image.bytes(id));
    return spaces;
}

void compare(const fuzz::Spaces &found, const fuzz::Spaces &expected) {
    if (found == expected)
        return;
    for (const auto &[id, bytes] : found)
        for (std::size_t i = 0; i < bytes.size(); ++i)
            if (bytes[i] != expected.at(id)[i])
                std::fprintf(stderr, "%s: %02x at offset 0x%zx, the model expects %02x\n",
                             bdf_text(id).c_str(), bytes[i], i, expected.at(id)[i]);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const fuzz::HostileMachine hostile = fuzz::hostile_machine({data, size});
    const std::string_view features =
        hostile.features.empty() ? "MPS=all:max\nECRC=all:+:+\n" : hostile.features;
    // C's rules for text end a file at a zero byte.
    if (!hostile.is_sound() || features.find('\0') != features.npos)
        return -1;
    const MachineSource source = hostile.source();
    const fuzz::Spaces before = spaces_of(*source.image);
    Machine machine(*source.image);
    const Serving serving(machine, hostile.managed);
    fuzz::start_module_with(features);
    keep_payloads_in_bounds();
    tests::reset_module();
    compare(spaces_of(*source.image), fuzz::expected_spaces(before, hostile.managed, features));
    fuzz::end_execution({data, size}, *source.image);
    return 0;
}

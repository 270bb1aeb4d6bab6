// Parses a feature file and starts the features on a small machine.
#include "fuzz/support.h"
#include "host/exports/serve.h"

using namespace host;

namespace {

// Made once; every run begins with its registers reset.
struct ServedMachine {
    MachineSource source = fuzz::source_of(fuzz::small_machine());
    std::vector<RoutingId> functions = source.image->functions();
    Machine machine{*source.image};
    Serving serving{machine};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static ServedMachine served;
    for (const RoutingId id : served.functions)
        served.source.image->reset(id);
    fuzz::start_module_with({reinterpret_cast<const char *>(data), size});
    fuzz::end_execution({data, size}, *served.source.image);
    return 0;
}

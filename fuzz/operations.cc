// Runs the operations that no feature runs on hostile machines: for every function, for addresses
// without a function, and for all.
#include <cstdlib>

#include "features/aspm/link_control.h"
#include "features/fb2b/control.h"
#include "fuzz/machines.h"
#include "host/exports/event_records.h"
#include "host/exports/serve.h"
#include "msi/register_save.h"
#include "tests/support/faults.h"
#include "tests/support/module_state.h"
#include "topology/bridge_walk.h"
#include "topology/event_collector.h"

using namespace host;
using namespace enable_features;

namespace {

void save_and_restore(event_notification_t *device, std::uint8_t capability) {
    msi_save_t record{};
    for (int i = 0; i < 2; ++i) {  // the second time there is a save area
        event_notification_reg_save(&record, device, capability);
        event_notification_reg_restore(&record, device, capability);
    }
    if (capability == CAPID_MSIX)
        std::free(record.msix.vectors);
}

void run_all(bdf_t bdf) {
    enable_aspm_feature(bdf);
    disable_aspm_feature(bdf);
    fast_back_to_back(bridge_at_or_above(bdf), FB2B_TEST);
    enable_fb2b_feature(bdf);
    disable_fb2b_feature(bdf);
    find_rcec(bdf);
    event_notification_t *device = find_event_notification(bdf);
    if (!device)
        return;
    save_and_restore(device, CAPID_MSI);
    save_and_restore(device, CAPID_MSIX);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const fuzz::HostileMachine hostile = fuzz::hostile_machine({data, size});
    const MachineSource source = hostile.source();
    Machine machine(*source.image);
    const Serving serving(machine);
    source.image->set_filter(hostile.faults);
    tests::fail_calloc(hostile.failing_calloc);
    for (const Function *function : machine.functions())
        run_all(function->bdf);
    for (const bdf_t bdf : {BDF_NONE, BDF_HIGHEST, BDF_HIGHEST + 1, bdf_t{0xFF00}})
        run_all(bdf);
    tests::fail_calloc(0);
    source.image->set_filter({});
    tests::reset_module();
    fuzz::end_execution({data, size}, *source.image);
    return 0;
}

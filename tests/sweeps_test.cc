// Runs everything that the module does on the example server, once for each fault that can occur on
// the way: no fault ends the program or leaks, and functions that it does not concern end as
// without it.
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <set>

#include "features/aspm/link_control.h"
#include "features/fb2b/control.h"
#include "host/base/address.h"
#include "host/exports/event_records.h"
#include "host/exports/hooks.h"
#include "host/space/dump.h"
#include "msi/register_save.h"
#include "platform/log.h"
#include "tests/support/faults.h"
#include "tests/support/module_test.h"
#include "topology/event_collector.h"

namespace host::tests {

struct Sweeps : ModuleTest {
    Sweeps() {
        std::string lines = "ASPM=all\nFB2B=on\nFOO=1\nMPS=\nMPS=x\nMPS=1.0.0:x\nMPS=1.0.x:128\n"
                            "MPS=1.x.0:128\nMPS=x.0.0:128\nECRC=x\nECRC=1.0.0:x:=\nECRC=x.0:+:+\n"
                            "ECRC=1.x.0:+:+\nECRC=1.0.x:+:+\nECRC=1.2.3.4:+:+\n";
        const Machine machine_of_dump(*saved.image);
        for (const Function *function : machine_of_dump.functions()) {
            const std::string name = feature_file_name(function->bdf);
            lines += "MPS=" + name + ":max\nECRC=" + name + ":+:+\n";
            functions.push_back(function->bdf);
        }
        arguments[0] = "--config=" + file(lines);
        arguments[1] = "--config=/nowhere";
        arguments[2] = "--config=";
        managed[0x41] = false;
        // The address space is limited, so that the room on the stack is measured, but there is
        // enough of it.
        const rlimit address_space = {RLIM_INFINITY - 1, RLIM_INFINITY};
        setrlimit(RLIMIT_AS, &address_space);
    }

    // Runs everything on a fresh machine: start-up, resets, insertions and removals, and each
    // operation.
    void run(AccessFilter filter, unsigned first_call = 0, unsigned last_call = 0) {
        reset();
        whole.reset();
        image.emplace();
        for (const bdf_t bdf : functions)
            image->add(id_of(bdf), "", saved.image->bytes(id_of(bdf)));
        whole.emplace(*image);
        set_to_512(*whole->bridges().by_bdf(0x10));
        above_their_ports.clear();
        host::serve(&*whole, managed, true);
        image->set_filter(std::move(filter));
        // Messages on or off must change nothing.
        pci_slog = ++runs % 2 != 0 ? nullptr : slog;
        pci_dbg = pci_slog ? dbg : nullptr;
        fail_calls(first_call, last_call);
        EXPECT_EQ(start(arguments), PCI_OK);
        look_for_excess();
        for (const bdf_t bdf : functions)
            image->reset(id_of(bdf));
        for (const bdf_t bdf : functions) {
            bridge_rec *const bridge = whole->bridges().by_bdf(bdf);
            call_reset_hooks(BUSCFG_HOOK_POST_RESET, bridge ? 1 : 2, bdf, 0);
            if (bridge && whole->bridges().above(bdf)->bridge_kind == BRIDGE_KIND_HOST) {
                call_bridge_hooks(BUSCFG_HOOK_PRE_REMOVAL, bridge, 0, 0);
                call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, bridge, 0, 0);
            }
            module::find_rcec(bdf);
            for (const std::uint8_t id : {CAPID_MSI, CAPID_MSIX}) {
                module::msi_save_t record = {};
                event_notification_t *const device = find_event_notification(bdf);
                module::event_notification_reg_save(&record, device, id);
                module::event_notification_reg_restore(&record, device, id);
                std::free(id == CAPID_MSIX ? record.msix.vectors : nullptr);
            }
        }
        for (const auto operation : {module::disable_fb2b_feature, module::enable_fb2b_feature})
            operation(BDF_NONE);
        for (const auto operation : {module::disable_aspm_feature, module::enable_aspm_feature})
            operation(BDF_NONE);
        made_calls = fail_calls(0);
        image->set_filter({});
        look_for_excess();
        messages();
    }

    static RoutingId id_of(bdf_t bdf) { return static_cast<RoutingId>(bdf & BDF_ROUTING_ID); }

    unsigned payload_code(bdf_t bdf) {
        const auto pcie = whole->known(id_of(bdf))->cap(CAPID_PCIE);
        return pcie ? image->bytes(id_of(bdf))[*pcie + pci::DEVCTL] >> 5 : 0U;
    }

    // Sets sizes that must be lowered: by modules, and the rest by the host.
    void set_to_512(const bridge_rec &bridge) {
        std::vector<const Function *> all = whole->below(bridge);
        all.push_back(whole->known(id_of(bridge.bdf)));
        for (const Function *function : all)
            if (function->mpss >= 2)
                image->write(function->id(), *function->cap(CAPID_PCIE) + pci::DEVCTL, 2, 2U << 5);
    }

    // Notes functions with a larger payload size than the port above them.
    void look_for_excess() {
        for (const bdf_t bdf : functions)
            for (const bdf_t port : whole->bridges().ports_above(bdf))
                if (payload_code(bdf) > payload_code(port))
                    above_their_ports.insert(id_of(bdf));
    }

    // Returns the topmost function of a function's hierarchy.
    RoutingId top(bdf_t bdf) {
        const bridge_rec *above = whole->bridges().above(bdf);
        return above->bridge_kind == BRIDGE_KIND_HOST ? id_of(bdf) : top(above->bdf);
    }

    const Dump dump = read_dump(EXAMPLES "server.lspci", std::vector{0U});
    const DumpedDomain &saved = dump.domains.at(0);
    std::vector<bdf_t> functions;
    std::vector<std::string> arguments = std::vector<std::string>(20, "-v");
    std::optional<ConfigImage> image;
    std::optional<Machine> whole;
    ManagedBuses managed = ManagedBuses(256, true);
    log_handle_t *const slog = pci_slog, *const dbg = pci_dbg;
    std::set<RoutingId> above_their_ports;
    unsigned made_calls = 0, runs = 0;
};

// A call or an access fails once, or from then on: all calls, or the accesses to one function.
// Among some hundred of thousands, the first are tried, and fewer and fewer of the later ones; with
// HOPLAR_SWEEP=all in the environment, each of them.
TEST_F(Sweeps, NoFaultHarmsMoreThanItConcerns) {
    // The calls on which a feature or the whole file depends.
    const std::set<std::string> decisive = {"open", "fstat", "mmap", "calloc 176",
                                            "calloc " + std::to_string(sizeof(buscfg_hook_reg_t))};
    std::map<bdf_t, std::vector<std::uint8_t>> unharmed;  // registers, of the run without a fault
    const unsigned growth = std::getenv("HOPLAR_SWEEP") ? 0 : 1;
    const std::tuple<bool, bool, pci_err_t> kinds[] = {
        {true, false, 0}, {true, true, 0}, {false, false, 5}, {false, true, 19}, {false, true, 0}};
    for (const auto &[calls, lasting, code] : kinds)
        for (unsigned accesses = 0, all = 0, n = 0; n <= all; n += 1 + growth * n / 32) {
            std::set<RoutingId> victim, hierarchies;
            accesses = 0;
            const AccessFilter fault = [&, code = code, lasting = lasting](ImageAccess &access) {
                if (++accesses == n)
                    victim = {access.id};
                if (!victim.contains(access.id) || (accesses > n && !lasting))
                    return PCI_OK;
                access.value = access.is_write ? access.value : ~0U >> (32 - 8 * access.width);
                return code;
            };
            run(calls ? AccessFilter() : fault, calls ? n : 0, lasting ? FOREVER : n);
            all = n > 0 ? all : calls ? made_calls : accesses;
            std::set<RoutingId> ecrc = victim;
            for (const RoutingId id : victim)
                hierarchies.insert(top(id));
            for (const bdf_t bdf : functions) {
                const auto bytes = image->bytes(id_of(bdf));
                const auto &before = unharmed.emplace(bdf, bytes).first->second;
                const auto aer = whole->known(id_of(bdf))->ext_cap(EXT_CAPID_AER);
                if (bytes != before)
                    hierarchies.insert(top(bdf));
                const unsigned control = aer ? *aer + pci::AER_CONTROL : 0;
                if (aer && !std::equal(&bytes[control], &bytes[control + 4], &before[control]))
                    ecrc.insert(id_of(bdf));
            }
            if (!calls || !lasting) {  // calls that go on failing concern everything
                EXPECT_TRUE((hierarchies.size() < 2 && ecrc.size() < 2) ||
                            decisive.contains(failed_call))
                    << n << " of " << all << ' ' << failed_call;
            }
            failed_call.clear();
            if (lasting)  // what cannot be reached any more cannot be lowered
                std::erase_if(above_their_ports, [&](auto id) { return victim.contains(id); });
            EXPECT_TRUE(above_their_ports.empty()) << bdf_text(*above_their_ports.begin()) << ", "
                                                   << n << " of " << all << ' ' << code;
        }
}

}  // namespace host::tests

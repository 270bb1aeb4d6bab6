// Events on a saved machine: what hooks are told and find, and what a reset leaves.
#include "host/watch/event_player.h"

#include "host/base/address.h"
#include "module/base/buscfg_hooks.h"
#include "platform/buscfg.h"
#include "platform/pci_access.h"
#include "tests/support/faults.h"
#include "tests/support/module_test.h"

namespace host::tests {

static std::string told;  // by hooks, a line each

// Notes what a hook is told and what it finds: Max_Payload_Size of function 03:00.0, as coded
// there, "-" when it and its bridge are not there.
static void note(std::uint32_t kind, bdf_t bdf, std::uint32_t value, int status) {
    std::uint16_t control = 0;
    const bool is_found = pci_hw->cfg_read(at(3), DEVCTL_AT, 2, &control, 0) == PCI_OK;
    EXPECT_EQ(find_parent_bridge(nullptr, at(3)) != nullptr, is_found);
    EXPECT_EQ(pci_device_find(3, ANY_VENDOR, ANY_DEVICE, ANY_CLASS) == at(3), is_found);
    told += std::to_string(kind) + ' ' + bdf_text(bdf) + ' ' + std::to_string(value) + ' ' +
            std::to_string(status) + ' ' + (is_found ? std::to_string(control >> 5 & 7) : "-") +
            '\n';
}

template <std::uint32_t KIND>
static void of_bridge(bridge_rec *bridge, std::uint32_t value, int status) {
    note(KIND, bridge->bdf, value, status);
}
template <std::uint32_t KIND>
static void of_reset(std::uint32_t type, bdf_t bdf, int status) {
    note(KIND, bdf, type, status);
}

using Events = ModuleTest;

TEST_F(Events, AreToldToHooksAroundWhatTheyDo) {
    MachineSource source{.name = "", .live = nullptr, .image = std::make_unique<ConfigImage>()};
    for (const FunctionSpec &function : functions("0.1:4>1-3 1.0:5>2-3 2.0:6>3-3 3.0:0"))
        source.image->add(function.id, "", config_bytes(function, false));
    Machine whole(*source.image);
    host::serve(&whole);
    const module::buscfg_hooks_t hooks = {of_reset<5>,  of_reset<6>,  nullptr,      nullptr,
                                          of_bridge<1>, of_bridge<2>, of_bridge<3>, of_bridge<4>};
    EXPECT_EQ(module::install_buscfg_hooks(&hooks), PCI_OK);
    buscfg_hook_reg_t of_no_kind = {{}, 9, [] {}, {}}, without_hook = {{}, 1, nullptr, {}};
    EXPECT_EQ(buscfg->add_hook(&of_no_kind), PCI_ERR_INVALID);
    EXPECT_EQ(buscfg->add_hook(&without_hook), PCI_ERR_INVALID);
    const std::pair<std::string, std::string> rows[] = {
        {"flr 03:00.0 0x13", "5 03:00.0 2 19 5\n6 03:00.0 2 19 0\n"},
        {"bus-reset 01:00.0 7", "5 01:00.0 1 7 5\n6 01:00.0 1 7 0\n"},
        {"remove 01:00.0 9 8", "3 01:00.0 9 8 5\n4 01:00.0 9 8 -\n"},
        {"insert 01:00.0 0 6", "1 01:00.0 0 6 -\n2 01:00.0 0 6 0\n"},
        {"remove 00:01.0", "3 00:01.0 1 0 5\n4 00:01.0 1 0 -\n"},
        {"insert 00:01.0", "1 00:01.0 1 0 -\n2 00:01.0 1 0 0\n"}};
    std::string lines;
    for (const auto &[line, expected] : rows)
        lines += line + '\n';
    const auto events = parse_bus_events(lines, "", whole, 0);
    const auto player = player_for(source, whole);
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        told.clear();
        source.image->write(at(3), DEVCTL_AT, 2, 5U << 5);
        EXPECT_EQ(player->play(events[i]), PCI_OK);
        EXPECT_EQ(told, rows[i].second) << rows[i].first;
    }
}

using Registers = ModuleTest;

// Bits that take a 1 when all ones are written, and those that a reset leaves or sets then. 00:01.0
// is a root port, 00:02.0 an integrated endpoint with MSI at 80, 00:03.0 a bridge to a conventional
// bus, 00:04.0 one to a CardBus, 00:05.0 a conventional function, 01:00.0 an endpoint with MSI at
// 80 and MSI-X at 98, 02:01.0 a switch port whose MSI begins at F8 and is cut off at 100.
TEST_F(Registers, TakeWhatStandardsLetWriteAndResetWhatTheyLetReset) {
    std::vector<FunctionSpec> all =
        functions("0.1:4>1-1 0.2:9>0-0=40 0.3:->3-3 0.4:- 0.5:- 1.0:0 2.1:6>4-4");
    all[0].dwords = {{4, 0xF910'0000}};
    all[1].dwords = {{0x40, 0x0092'8010}, {0x80, 0x0100'0005}};
    all[2].dwords = {{0x3C, 0x0400'0000}};
    all[3].dwords = {{0x0C, 0x2'0000}};
    all[5].dwords = {{0x40, 0x0002'8010}, {0x48, 0xF'0000}, {0x80, 0x0180'9805}, {0x98, 0x11}};
    all[6].dwords = {{0x40, 0x0062'F810}, {0xF8, 0x0080'0005}};
    for (const unsigned slow : {0U, 1U, 3U, 4U, 5U, 6U})
        all[slow].fast_b2b = false;
    serve(all);
    // By the register's offset: what is written and what is left by a reset.
    const std::pair<RoutingId, std::string> rows[] = {
        {at(0, 1), "04=547/0 06=10/10 3e=5f/0 50=fdb/8"},
        {at(0, 2), "48=7dff/2c10 50=0/0 88=ffff/0 8a=0/0"},
        {at(0, 3), "04=77f/0 3e=bff/0"},
        {at(0, 4), "3e=7ef/340"},
        {at(0, 5), "04=57f/0"},
        {at(1), "3e=0/0 48=7cff/2c10 4a=0/0 50=fcb/0 82=1f1/180 84=fffc/0 86=ffff/0 88=ffff/0 "
                "8c=ffff/0 8e=0/0 90=ffff/0 9a=c000/0"},
        {at(2, 1), "50=fdb/0 100=0/0"}};
    for (const auto &[id, registers] : rows)
        for (const std::string &row : words(registers)) {
            unsigned offset = 0, written = 0, left = 0;
            std::sscanf(row.c_str(), "%x=%x/%x", &offset, &written, &left);
            machine->image.write(id, offset, 2, 0xFFFF);
            EXPECT_EQ(machine->get(id, offset, 2), written) << bdf_text(id) << ' ' << row;
            machine->image.reset(id);
            EXPECT_EQ(machine->get(id, offset, 2), left) << bdf_text(id) << ' ' << row;
        }
    machine->image.write(at(1), DEVCTL_AT + 1, 1, 0xFF);
    EXPECT_EQ(machine->get(at(1), DEVCTL_AT), 0x7C10U);
    machine->image.write(at(1), DEVCTL_AT, 4, 0xFF);
    EXPECT_EQ(machine->get(at(1), DEVCTL_AT), 0x00FFU);
    EXPECT_EQ(machine->image.write(at(1), DEVCTL_AT + 2, 4, 0), PCI_ERR_INVALID);
    machine->image.set_filter(fail(of(at(1)), 1, FOREVER, PCI_OK));
    EXPECT_EQ(machine->get(at(1), DEVCTL_AT, 2), 0xFFFFU);
}

}  // namespace host::tests

// MSI and MSI-X registers, captured and written back: every access in order, and every failure.
#if defined(__x86_64__)  // for the accesses to a vector table
#include "msi/register_save.h"

#include <sys/mman.h>

#include <csignal>
#include <cstring>
#include <numeric>

#include "host/exports/event_records.h"
#include "host/exports/serve.h"
#include "tests/support/faults.h"
#include "tests/support/module_test.h"

namespace host::tests {

// Accesses as they come: READ or WRITE, offset from the capability, width, value; of the vector
// table, what and where.
enum : std::size_t { READ, WRITE, READ_TABLE, WRITE_TABLE };
static std::vector<std::vector<std::size_t>> accesses;

// Of the largest size, in pages of its own. An instruction that touches it while it is closed runs
// as one step with the table open.
alignas(4096) static std::uint32_t table[2048 * 4];

static void on_signal(int signal, siginfo_t *info, void *context) {
    auto &state = static_cast<ucontext_t *>(context)->uc_mcontext.gregs;
    const std::size_t at = std::uintptr_t(info->si_addr) - std::uintptr_t(table);
    if (signal == SIGSEGV && at >= sizeof table)
        std::abort();
    if (signal == SIGSEGV)
        accesses.push_back({state[REG_ERR] & 2 ? WRITE_TABLE : READ_TABLE, at});
    mprotect(table, sizeof table, signal == SIGSEGV ? PROT_READ | PROT_WRITE : PROT_NONE);
    state[REG_EFL] ^= 0x100;  // trap flag
}

// The words of a vector in the order in which they are accessed, each once.
constexpr std::size_t WORDS[] = {8, 0, 4, 12};

constexpr auto save = enable_features::event_notification_reg_save;
constexpr auto restore = enable_features::event_notification_reg_restore;

struct MsiRegisters : ModuleTest {
    // Saves or restores while Message Control reads `control` and all else, and the table, counts
    // from `seed`. Result and messages, said of either kind: "0 I4 #save, Saving # registers\n".
    std::string done(decltype(save) operation, unsigned id, unsigned control, unsigned seed = 0) {
        const bool is_msi = id == CAPID_MSI;
        serve({{.id = 0}, {.id = 0xFFFF}});
        machine->image.set_filter([=, this](ImageAccess &access) {
            const unsigned offset = access.offset - (is_msi ? 100 : 200);
            access.value = access.is_write ? access.value : offset == 2 ? control : seed + offset;
            accesses.push_back({access.is_write, offset, access.width, access.value});
            return failing-- == 1 ? PCI_ERR_NO_DEVICE : PCI_OK;
        });
        struct sigaction action = {{}, {}, SA_SIGINFO, nullptr};
        action.sa_sigaction = on_signal;
        sigaction(SIGSEGV, &action, nullptr);
        sigaction(SIGTRAP, &action, nullptr);
        std::iota(std::begin(table), std::end(table), seed);
        mprotect(table, sizeof table, PROT_NONE);
        const auto result = operation(&records[is_msi], &device, static_cast<std::uint8_t>(id));
        mprotect(table, sizeof table, PROT_READ | PROT_WRITE);
        std::string said = std::to_string(result) + ' ' + messages();
        for (const std::string name : {is_msi ? "msi_reg_" : "msix_reg_", is_msi ? "MSI" : "MSI-X"})
            said = replaced(said, name, "#");
        return said;
    }

    event_device_t function = {0};
    msi_cap_t msi = {{0, 0, CAPID_MSI, 100}};
    msix_table_t mapping = {table};
    msix_cap_t msix = {{0, 0, CAPID_MSIX, 200}, &mapping};
    event_capset_t capset = {&function, &msi, &msix, nullptr};
    event_notification_t device = {&capset};
    // Of MSI-X, without the area that it once had, and of MSI.
    enable_features::msi_save_t records[2] = {{.msix = {0, 2048, {}}}, {.msi = {1, 1, 1, 1, 1}}};
    std::size_t failing = 0;  // of the accesses to registers from now on, the n-th
};

// Of a save and the restore after it, every access fails in turn; but in rows where the save area
// is to grow: to `room` entries, or for want of memory to another number than wanted. The registers
// stand one behind the other.
TEST_F(MsiRegisters, AreSavedAndRestoredInOrderUntilOneFails) {
    const struct {
        unsigned control, disabled;      // of the device: when saved, and while it is restored
        std::vector<std::string> names;  // of the registers
        unsigned room = 0;               // above 0: MSI-X
        std::string growth{};
    } rows[] = {
        {0x8003, 0x0000, {"ctrl"}, 2048, "Allocate"},
        {0x8003, 0x0001, {"ctrl"}, 4, "Allocate"},
        {0x8004, 0x0000, {"ctrl"}, 4, "Re-allocate"},
        {0xC000, 0x47FF, {"ctrl"}, 4},
        {0x07FF, 0x0000, {"ctrl"}, 2048, "Re-allocate"},
        {0x0001, 0x0FF0, {"ctrl", "addr", "data"}},
        {0x00A1, 0x015E, {"ctrl", "addr", "addr_u", "data"}},
        {0x0171, 0x0080, {"ctrl", "addr", "data", "mask"}},
        {0x0180, 0x0042, {"ctrl", "addr", "addr_u", "data", "mask"}},
    };
    for (const auto &[control, disabled, names, room, growth] : rows)
        for (std::size_t n = 0, all = names.size(); n <= (growth.empty() ? 2 * all + 2 : 0); ++n) {
            const unsigned count = room ? control % 2048 + 1 : 0, enable = room ? 0x8000 : 1;
            const std::size_t m = n > all ? n - all : 0;  // of the restore's accesses
            const bool failed = !growth.empty() && room != count, lost = n == 1 || failed;
            decltype(accesses) expected = {{READ, 2, 2, control}};
            const auto expect = [&](std::size_t kind) {
                for (std::size_t i = 1; i < all; ++i)
                    expected.push_back({kind, 4 * i, 4, kind && i + 1 == n ? 9 : 70000 + 4 * i});
                for (std::size_t i = 0; i < count * 4; ++i)
                    expected.push_back({kind + READ_TABLE, i / 4 * 16 + WORDS[i % 4]});
            };
            expect(READ);
            expected.push_back({READ, 2, 2, disabled | enable});
            expected.resize(expected.size() + (m != 1), {WRITE, 2, 2, disabled});
            expect(WRITE);
            expected.push_back({WRITE, 2, 2, control});
            expected.resize(lost ? 1 : m > 2 && !room ? n : expected.size());

            std::string said = "0 I4 #save, Saving # registers\n";
            const auto say = [&](bool when, const std::string &text) { said += when ? text : ""; };
            const auto reg = [all, &of = names](auto i) { return of[i % all] + " reg, {19}\n"; };
            const std::string entries = std::to_string(count);
            say(n && n <= all, "E0 #save, unable to save # " + reg(n - 1));
            say(growth[0], "I4 #save, " + growth + " # save area for " + entries + " vectors\n");
            say(failed, "E0 #save, Failed to allocate memory for " + entries);
            say(failed, " # vector table entries, skipping capture\n");
            say(lost, "5 E0 #restore, # register capture failed, skipping restore\n");
            say(!lost, std::to_string(m > 2 ? 5 : 0) + " I4 #restore, Restoring # registers\n");
            say(m && m < 3, "W0 #restore, Unable to disable # capability for restore, {19}\n");
            say(m > 2, "E0 #restore, unable to restore # " + reg(m - 2));

            records[1].msi = {9, 9, 9, 9, 9};
            failing = n;
            size_of_failing_realloc = failed ? 16 * count : SIZE_MAX;
            accesses.clear();
            enable_features::msi_save_t &record = records[!room];
            const auto *const area = room ? record.msix.vectors : nullptr;
            std::string log = done(save, room ? CAPID_MSIX : CAPID_MSI, control, 70000);
            std::array<char, sizeof record> captured;
            std::memcpy(&captured, &record, sizeof record);
            log += done(restore, room ? CAPID_MSIX : CAPID_MSI, disabled | enable, 50000);
            EXPECT_EQ(std::memcmp(&captured, &record, sizeof record), 0);
            EXPECT_TRUE(!failed || !area || (area == record.msix.vectors && area->data == 70002));
            EXPECT_EQ(log, expand(said));
            EXPECT_EQ(accesses, expected);
            EXPECT_TRUE(!room || records[0].msix.num_vectors == room);
            EXPECT_TRUE(lost || room || !records[1].msi.addr_u == !(control & 0x80));
            EXPECT_TRUE(lost || room || !records[1].msi.mask == !(control & 0x100));
            for (unsigned i = 0; i < (lost ? 0 : 4 * count); ++i)
                ASSERT_EQ(table[i], 70000 + i);
        }
    std::free(records[0].msix.vectors);
}

// Its size is read when it is made, and then for the save.
TEST_F(MsiRegisters, OfAnImageAreThereWhateverTheTableSizeBecomes) {
    serve({{.id = 0, .dwords = {{PCIE_AT, 0x6000 | CAPID_PCIE}, {0x60, 3U << 16 | CAPID_MSIX}}}});
    machine->image.set_filter([reads = 0](ImageAccess &access) mutable {
        access.value |= access.offset == 0x62 && reads++ > 0 ? reg::MSIX_TABLE_SIZE : 0U;
        return PCI_OK;
    });
    save(&records[0], find_event_notification(0), CAPID_MSIX);
    EXPECT_EQ(records[0].msix.vectors[2047].control, 1U);  // masked, as hardware has it
    std::free(records[0].msix.vectors);
}

// A table is mapped at another place then.
TEST_F(MsiRegisters, OfAFunctionThatComesBackAreMappedAgain) {
    struct : ConfigImage {
        bool has_memory() const override { return true; }
        volatile void *memory(RoutingId, unsigned, std::size_t, std::size_t) override {
            return &table[++count];
        }
        std::size_t count = 0;
    } space;
    space.add(
        0, "",
        config_bytes({.id = 0, .dwords = {{PCIE_AT, 0x6000 | CAPID_PCIE}, {0x60, CAPID_MSIX}}},
                     false));
    Machine live(space);
    host::serve(&live);
    const event_notification_t *const device_0 = find_event_notification(0);
    const msix_table_t &place = *device_0->capset->msix->table;
    EXPECT_EQ(place.address, &table[1]);
    live.update(std::array{RoutingId{0}}, {});
    host::served()->msix_tables.forget(0);
    EXPECT_EQ(place.address, nullptr);
    live.update({}, std::array{RoutingId{0}});
    EXPECT_EQ(find_event_notification(0), device_0);
    EXPECT_EQ(place.address, &table[2]);
}

TEST_F(MsiRegisters, AreLeftAloneOutOfReach) {
    const pci_hw_ops_t none = {}, *const hosts_own = std::exchange(pci_hw, &none);
    for (unsigned id = 0; id < 256; ++id)
        EXPECT_TRUE(id == 5 || id == 17 || done(save, id, 1) + done(restore, id, 1) == "22 22 ");
    const std::function<void()> losses[] = {
        [this] { function.bdf = BDF_HIGHEST + 1; },
        [this] { function.bdf = 0, capset.msi = nullptr, mapping.address = nullptr; },
        [this] { msix.table = nullptr; },
        [this] { capset.msix = nullptr; },
    };
    enable_features::msix_vector_t vectors[2] = {};
    for (const auto &lose : losses)
        for (const unsigned id : {CAPID_MSI, CAPID_MSIX}) {
            lose();
            EXPECT_EQ(done(save, id, 1), expand("0 I4 #save, Saving # registers\n"
                                                "E0 #save, unable to save # ctrl reg, {22}\n"));
            records[0].msix = {1, 2, vectors};
            records[1].msi = {1, 1, 1, 1, 1};
            EXPECT_EQ(done(restore, id, 1),
                      expand("5 I4 #restore, Restoring # registers\nW0 #restore, Unable to disable "
                             "# capability for restore, {22}\nE0 #restore, unable to restore # " +
                             std::string(id == CAPID_MSI ? "addr" : "ctrl") + " reg, {22}\n"));
        }
    pci_hw = hosts_own;
    function.bdf = BDF_HIGHEST, capset.msi = &msi;
    EXPECT_EQ(done(save, CAPID_MSI, 1), "0 I4 #save, Saving # registers\n");
}

}  // namespace host::tests
#endif

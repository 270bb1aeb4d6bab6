// MSI and MSI-X registers, captured and written back: every access in order, and every failure.
#if defined(__x86_64__)  // for the accesses to a vector table
#include "msi/register_save.h"

#include <sys/mman.h>

#include <csignal>
#include <numeric>
#include <sstream>

#include "host/exports/event_records.h"
#include "host/exports/serve.h"
#include "tests/support/faults.h"
#include "tests/support/module_test.h"

namespace host::tests {

// Accesses in their order: registers by their offset in the capability ("2", "2=180" written),
// words of the vector table by their offset in it ("t8", "t8=" written).
static std::ostringstream accesses;

// A vector table of the largest size, in pages of its own. While it is closed, an instruction that
// touches it runs as one step with the table open.
alignas(4096) static std::uint32_t table[2048 * 4];

static void on_signal(int signal, siginfo_t *info, void *context) {
    auto &state = static_cast<ucontext_t *>(context)->uc_mcontext.gregs;
    const std::size_t at = std::uintptr_t(info->si_addr) - std::uintptr_t(table);
    if (signal == SIGSEGV && at >= sizeof table)
        std::abort();
    if (signal == SIGSEGV)
        accesses << 't' << at << (state[REG_ERR] & 2 ? "= " : " ");
    mprotect(table, sizeof table, signal == SIGSEGV ? PROT_READ | PROT_WRITE : PROT_NONE);
    state[REG_EFL] ^= 0x100;  // trap flag
}

constexpr auto save = enable_features::event_notification_reg_save;
constexpr auto restore = enable_features::event_notification_reg_restore;

struct MsiRegisters : ModuleTest {
    // Saves or restores while Message Control reads `control`; all other registers, and the table,
    // count from `seed`. Returns the result, the messages in short ("-addr": that register could
    // not be read or written) and the accesses: "0 save -addr 2 4 8 ".
    std::string done(decltype(save) operation, unsigned id, unsigned control, unsigned seed = 0) {
        const bool is_msi = id == CAPID_MSI;
        serve({{.id = 0}, {.id = 0xFFFF}});
        fail_calls(1, FOREVER, "realloc", 16UL * 5);
        accesses.str("");
        accesses << std::hex;
        machine->image.set_filter([=, this](ImageAccess &access) {
            const unsigned offset = access.offset - (is_msi ? 100 : 200);
            EXPECT_EQ(access.width, offset == 2 ? 2U : 4U);
            access.value = access.is_write ? access.value : offset == 2 ? control : seed + offset;
            accesses << offset;
            (access.is_write ? accesses << '=' << access.value : accesses) << ' ';
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
        const std::pair<std::string, std::string> in_short[] = {
            {is_msi ? "msi_reg_" : "msix_reg_", "#"},
            {is_msi ? "MSI" : "MSI-X", "#"},
            {"I4 #save, Saving # registers\n", "save "},
            {"I4 #restore, Restoring # registers\n", "restore "},
            {"E0 #save, unable to save # ", "-"},
            {"E0 #restore, unable to restore # ", "-"},
            {"W0 #restore, Unable to disable # capability for restore", "-enable reg"},
            {"E0 #restore, # register capture failed, skipping restore\n", "lost "},
            {expand(" reg, {19}\n"), " "}};
        for (const auto &[text, word] : in_short)
            said = replaced(said, text, word);
        return said + accesses.str();
    }

    // The access with the number `fail` fails.
    std::string both(unsigned id, unsigned control, unsigned now, std::size_t fail = 0) {
        failing = fail;
        const std::string saved = done(save, id, control, 0x70);
        return saved + done(restore, id, now, 0x500);
    }

    event_device_t function = {0};
    msi_cap_t msi = {{0, 0, CAPID_MSI, 100}};
    msix_table_t mapping = {table};
    msix_cap_t msix = {{0, 0, CAPID_MSIX, 200}, &mapping};
    event_capset_t capset = {&function, &msi, &msix, nullptr};
    event_notification_t device = {&capset};
    // A record of MSI-X, without the area that it once had, and one of MSI.
    enable_features::msi_save_t records[2] = {{.msix = {0, 2048, {}}}, {.msi = {1, 1, 1, 1, 1}}};
    std::size_t failing = 0;  // of the accesses to registers from now on, the n-th
};

// Message Control when saved and when restored. Registers that the capability lacks are captured as
// 0.
TEST_F(MsiRegisters, AreThoseThatMessageControlTellsOf) {
    const std::tuple<unsigned, unsigned, std::string, std::uint32_t, std::uint32_t> rows[] = {
        {0x0001, 0x0FF1, "0 save 2 4 8 0 restore 2 2=ff0 4=74 8=78 2=1 ", 0, 0},
        {0x00A1, 0x015F, "0 save 2 4 8 c 0 restore 2 2=15e 4=74 8=78 c=7c 2=a1 ", 0x78, 0},
        {0x0171, 0x0081, "0 save 2 4 8 c 0 restore 2 2=80 4=74 8=78 c=7c 2=171 ", 0, 0x7C}};
    for (const auto &[control, now, outcome, addr_u, mask] : rows) {
        EXPECT_EQ(both(CAPID_MSI, control, now), outcome);
        EXPECT_EQ(records[1].msi.addr_u, addr_u);
        EXPECT_EQ(records[1].msi.mask, mask);
    }
}

// Rows by the number of the failing access. A member whose register could not be read stays 9.
TEST_F(MsiRegisters, AreSavedAndRestoredInOrderUntilOneFails) {
    const std::string of_msi[] = {
        "0 save 2 4 8 c 10 0 restore 2 2=42 4=74 8=78 c=7c 10=80 2=180 ",
        "0 save -ctrl 2 5 lost ",
        "0 save -addr 2 4 8 c 10 0 restore 2 2=42 4=9 8=78 c=7c 10=80 2=180 ",
        "0 save -addr_u 2 4 8 c 10 0 restore 2 2=42 4=74 8=9 c=7c 10=80 2=180 ",
        "0 save -data 2 4 8 c 10 0 restore 2 2=42 4=74 8=78 c=9 10=80 2=180 ",
        "0 save -mask 2 4 8 c 10 0 restore 2 2=42 4=74 8=78 c=7c 10=9 2=180 ",
        "0 save 2 4 8 c 10 0 restore -enable 2 4=74 8=78 c=7c 10=80 2=180 ",
        "0 save 2 4 8 c 10 0 restore -enable 2 2=42 4=74 8=78 c=7c 10=80 2=180 ",
        "0 save 2 4 8 c 10 5 restore -addr 2 2=42 4=74 ",
        "0 save 2 4 8 c 10 5 restore -addr_u 2 2=42 4=74 8=78 ",
        "0 save 2 4 8 c 10 5 restore -data 2 2=42 4=74 8=78 c=7c ",
        "0 save 2 4 8 c 10 5 restore -mask 2 2=42 4=74 8=78 c=7c 10=80 ",
        "0 save 2 4 8 c 10 5 restore -ctrl 2 2=42 4=74 8=78 c=7c 10=80 2=180 "};
    const std::string of_msix[] = {
        "0 save 2 t8 t0 t4 tc 0 restore 2 2=0 t8= t0= t4= tc= 2=c000 ", "0 save -ctrl 2 5 lost ",
        "0 save 2 t8 t0 t4 tc 0 restore -enable 2 t8= t0= t4= tc= 2=c000 ",
        "0 save 2 t8 t0 t4 tc 0 restore -enable 2 2=0 t8= t0= t4= tc= 2=c000 ",
        "0 save 2 t8 t0 t4 tc 5 restore -ctrl 2 2=0 t8= t0= t4= tc= 2=c000 "};
    enable_features::msix_vector_t area[1] = {};
    for (std::size_t n = 0; n < std::size(of_msi); ++n) {
        records[1].msi = {9, 9, 9, 9, 9};
        EXPECT_EQ(both(CAPID_MSI, 0x180, 0x43, n), of_msi[n]);
    }
    for (std::size_t n = 0; n < std::size(of_msix); ++n) {
        records[0].msix = {9, 1, area};
        EXPECT_EQ(both(CAPID_MSIX, 0xC000, 0x8000, n), of_msix[n]);
    }
}

// Rows: number of vectors, the message about the save area, and the room that it has then. There is
// no memory for five vectors.
TEST_F(MsiRegisters, GetASaveAreaAsLargeAsTheTable) {
    const std::string lost = "E0 #save, Failed to allocate memory for 5 # vector table entries, "
                             "skipping capture\n2 5 lost ";
    const std::tuple<unsigned, std::string, unsigned> rows[] = {
        {5, "I4 #save, Allocate # save area for 5 vectors\n" + lost, 2048},
        {4, "I4 #save, Allocate # save area for 4 vectors\n2 t8 t0 ", 4},
        {4, "2 t8 t0 ", 4},
        {5, "I4 #save, Re-allocate # save area for 5 vectors\n" + lost, 4},
        {2, "2 t8 t0 ", 4},
        {2048, "I4 #save, Re-allocate # save area for 2048 vectors\n2 t8 t0 ", 2048}};
    for (const auto &[count, said, room] : rows) {
        const auto *const area = records[0].msix.vectors;
        EXPECT_TRUE(both(CAPID_MSIX, count - 1, 0).starts_with("0 save " + said));
        EXPECT_EQ(records[0].msix.num_vectors, room);
        EXPECT_TRUE(count != 5 || records[0].msix.vectors == area);
        for (unsigned i = 0; i < std::size(table); ++i)
            ASSERT_EQ(table[i], (i < 4 * count && count != 5 ? 0x70 : 0x500) + i);
    }
    std::free(records[0].msix.vectors);
}

// Its size is read when the object is made, and again for the save.
TEST_F(MsiRegisters, OfAnImageAreThereWhateverTheTableSizeBecomes) {
    serve({{.id = 0, .dwords = {{PCIE_AT, 0x6000 | CAPID_PCIE}, {0x60, 3U << 16 | CAPID_MSIX}}}});
    machine->image.set_filter([reads = 0](ImageAccess &access) mutable {
        access.value |= access.offset == 0x62 && reads++ > 0 ? pci::MSIX_CONTROL_TABLE_SIZE : 0U;
        return PCI_OK;
    });
    save(&records[0], find_event_notification(0), CAPID_MSIX);
    EXPECT_EQ(records[0].msix.vectors[2047].control, 1U);  // masked, as hardware has it
    std::free(records[0].msix.vectors);
}

// The table is mapped at another address then.
TEST_F(MsiRegisters, OfAFunctionThatComesBackAreMappedAgain) {
    struct : ConfigImage {
        bool has_memory() const override { return true; }
        volatile void *memory(RoutingId, unsigned, std::size_t, std::size_t size) override {
            EXPECT_EQ(size, 16U);  // one vector
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
    for (const unsigned id : {0U, 4U, 6U, 16U, 18U, 255U})
        EXPECT_EQ(both(id, 1, 1), "22 22 ");
    const std::function<void()> losses[] = {
        [this] { function.bdf = BDF_HIGHEST + 1; },
        [this] { function.bdf = 0, capset.msi = nullptr, mapping.address = nullptr; },
        [this] { msix.table = nullptr; }, [this] { capset.msix = nullptr; }};
    enable_features::msix_vector_t vectors[2] = {};
    for (const auto &lose : losses)
        for (const unsigned id : {CAPID_MSI, CAPID_MSIX}) {
            lose();
            EXPECT_EQ(done(save, id, 1), expand("0 save -ctrl reg, {22}\n"));
            records[0].msix = {1, 2, vectors};
            records[1].msi = {1, 1, 1, 1, 1};
            const std::string reg = id == CAPID_MSI ? "addr" : "ctrl";
            EXPECT_TRUE(
                done(restore, id, 1)
                    .starts_with(expand("5 restore -enable reg, {22}\n-" + reg + " reg, {22}\n")));
        }
    pci_hw = hosts_own;
    function.bdf = BDF_HIGHEST, capset.msi = &msi;
    EXPECT_EQ(done(save, CAPID_MSI, 1), "0 save 2 4 8 ");
}

}  // namespace host::tests
#endif

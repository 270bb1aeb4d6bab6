// Payload sizes read from and written to the registers of one function, and of a whole device.
#include "tests/mps/mps_test.h"

namespace host::tests {

using MpsRegisters = MpsTest;

constexpr RoutingId F = at(0, 1);

TEST_F(MpsRegisters, TakeASizeAndKeepEveryOtherBit) {
    const AccessFilter fine = {}, write_fails = fail(writes_to(F, DEVCTL_AT), 1);
    const AccessFilter keeps_its_size = [](ImageAccess &access) {
        access.value = access.is_write ? (access.value & 0xFF1FU) | 3U << 5 : access.value;
        return PCI_OK;
    };
    const std::tuple<unsigned, std::uint32_t, AccessFilter, pci_err_t, unsigned, std::string>
        rows[] = {{0x2810, 512, fine, 0, 0x2850, "I2 $MPS changed to 512\n"},
                  {0x2850, 512, write_fails, 0, 0x2850, "I2 $MPS already set\n"},
                  {0x2850, 384, fine, 5, 0x2850, ""},
                  {0x5CFF, 128, fine, 0, 0x5C1F, "I2 $MPS changed to 128\n"},
                  {0x00C0, 4096, fine, 0, 0x00A0, "I2 $MPS changed to 4096\n"},
                  {0x2810, 256, keeps_its_size, 5, 0x2870, ""},
                  {0x2810, 256, fail(of(F), 1), 5, 0x2810, "E0 $MPS read failed, {5}\n"},
                  {0x2810, 256, write_fails, 5, 0x2810, "E0 $MPS write failed, {5}\n"},
                  {0x2810, 8192, fine, 22, 0x2810, "E0 $MPS write failed, {22}\n"},
                  {0x2810, 256, vanish(F, 3), 19, 0x2830, "E0 $MPS write failed, {19}\n"}};
    for (const auto &[before, size, fault, result, after, message] : rows)
        for (const std::string object : {"entry", "(nil)"}) {
            serve({{.id = F, .port = 4, .secondary = 1, .payload_cap = 1U << 5 | 5}});
            machine->image.write(F, DEVCTL_AT, 2, before);
            machine->image.set_filter(fault);
            pcie_cap_t *const cap = object == "entry" ? machine->bridge(F)->pcie_cap : nullptr;
            fail_calloc(cap ? 1 : 0);  // the bridge's own object is used
            EXPECT_EQ(module::mps_write_mps(cap, F, size), result);
            machine->image.set_filter({});
            EXPECT_EQ(machine->get(F, DEVCTL_AT, 2), after);
            const std::string expected = message + "D3 ${" + std::to_string(result) + "}\n";
            EXPECT_EQ(messages(), expand(replaced(expected, "$",
                                                  "mps_write_mps(" + object + ", B0:D1:F0, " +
                                                      std::to_string(size) + "), ")));
        }
    // There is no memory for an object, or no capability.
    fail_calloc(1);
    EXPECT_EQ(module::mps_write_mps(nullptr, F, 256), 12U);
    EXPECT_EQ(module::mps_write_mps(nullptr, at(2), 256), 48U);
    EXPECT_EQ(messages(), expand("D3 mps_write_mps((nil), B0:D1:F0, 256), {12}\n"
                                 "D3 mps_write_mps((nil), B2:D0:F0, 256), {48}\n"));
}

TEST_F(MpsRegisters, TellTheLargestSize) {
    serve({{.id = F, .port = 4, .secondary = 1, .payload_cap = 5}});
    pcie_cap_t *const cap = machine->bridge(F)->pcie_cap;
    EXPECT_EQ(module::mps_read_max_capable(nullptr, F), 4096U);
    fail_calls(1, FOREVER, "calloc");
    EXPECT_EQ(module::mps_read_max_capable(cap, F), 4096U);
    EXPECT_EQ(module::mps_read_max_capable(nullptr, F), 0U);
    machine->image.set_filter(fail(of(F), 1));
    EXPECT_EQ(module::mps_read_max_capable(cap, F), 0U);
}

TEST_F(MpsRegisters, OfADeviceAreWrittenFunctionByFunction) {
    const auto broken = [](unsigned n) { return fail(writes_to(ari_at(1, n), DEVCTL_AT), 1); };
    const auto no_vendor = [](unsigned n) {
        return fail(reads_of(at(1, 0, n), pci::VENDOR_ID), 1);
    };
    // The kinds of functions 0 and up: endpoint, switch port, conventional, none.
    const std::tuple<bdf_t, std::string, AccessFilter, pci_err_t, std::string> rows[] = {
        {at(1), "eee", {}, 0, "=256 01:00.0 01:00.1 01:00.2 "},
        {at(1), "ese....e", broken(0), 5, "=256 01:00.0 "},
        {at(1), "e..e", broken(3), 0, "=256 01:00.0 01:00.3 "},
        {at(1), "e......e", broken(7), 5, "=256 01:00.0 01:00.7 "},
        {at(1), "s.e.c..s", {}, 0, "=256 01:00.2 01:00.7 "},
        {at(1), "ce.....c", {}, 48, "=256 01:00.1 "},
        {at(1), "ee.....e", no_vendor(7), 5, "=256 01:00.0 01:00.1 "},
        {ari(at(1)), "e...s....e", {}, 0, "=256 01:00.0 01:00.4 01:01.1 "},
        {ari(at(1)), "s...e....s", {}, 0, "=256 01:00.4 01:01.1 "},
        {ari(at(1)), "e...e....e", broken(4), 0, "=256 01:00.0 01:00.4 01:01.1 "},
        {ari(at(1)), "e...e....e", broken(9), 5, "=256 01:00.0 01:00.4 01:01.1 "}};
    for (const auto &[bdf, kinds, fault, result, written] : rows) {
        SCOPED_TRACE(kinds);
        std::vector<FunctionSpec> functions;
        for (unsigned i = 0; i < kinds.size(); ++i) {
            if (kinds[i] == '.')
                continue;
            functions.push_back({.id = ari_at(1, i), .payload_cap = 1, .next_ari = 0});
            if (kinds[i] != 'e')
                functions.back().port =
                    kinds[i] == 's' ? std::optional<std::uint8_t>(6) : std::nullopt;
        }
        serve(functions);
        next_ari_function = [kinds = kinds, left = 99U](bdf_t last) mutable {
            const std::size_t next = kinds.find_first_not_of('.', (last & 0xFF) + 1);
            const unsigned back = kinds.starts_with('s') ? 0 : 4;  // from the last one
            return left-- == 0                 ? ARI_NO_FUNCTION
                   : next == std::string::npos ? back
                                               : static_cast<unsigned>(next);
        };
        record(fault);
        EXPECT_EQ(module::mps_write_mps_all_funcs(bdf, 256), result);
        next_ari_function = nullptr;
        EXPECT_EQ(writes(), written);
    }
}

}  // namespace host::tests

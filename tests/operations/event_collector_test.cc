// The event collector that serves a function, from real registers, which the host decodes.
#include "topology/event_collector.h"

#include "platform/server.h"
#include "tests/support/module_test.h"

namespace host::tests {

using EventCollectors = ModuleTest;

TEST_F(EventCollectors, AreAskedInOrderUntilOneServesTheFunction) {
    const auto collector = [](RoutingId id, decltype(FunctionSpec::dwords) registers) {
        return FunctionSpec{.id = id, .class_code = EVENT_COLLECTOR_CLASS, .dwords = registers};
    };
    serve({collector(at(0, 1), {{0x100, 0x10007}, {0x104, 0x60}, {0x108, 0x070500}}),
           collector(at(0, 2), {{0x100, 0x20007}, {0x104, 0xC1}, {0x108, 0x090800}}),
           collector(at(64, 3), {{0x104, 0x80}}),
           collector(at(64, 4), {{0x100, 0x10007}, {0x104, 0x20}})});
    const std::string is_null = " but RCEC capability is NULL, skipping ...\n";
    const std::tuple<bdf_t, bdf_t, std::string> rows[] = {
        {at(0, 6, 3), at(0, 1), "I2 Found RCEC B0:D1:F0 for device B0:D6:F3\n"},
        {ari(ari_at(0, 200)), at(0, 2), "I2 Found RCEC B0:D2:F0 for device B0:D0:F200\n"},
        {at(9, 31, 7), at(0, 2), "I2 Found RCEC B0:D2:F0 for device B9:D31:F7\n"},
        {at(8), at(0, 2), "I2 Found RCEC B0:D2:F0 for device B8:D0:F0\n"},
        {at(64, 5), at(64, 4),
         "E0 Found RCEC for B64:D5:F0" + is_null +
             "I2 Found RCEC B64:D4:F0 for device B64:D5:F0\n"},
        {at(7), BDF_NONE, "E0 Found RCEC for B7:D0:F0" + is_null}};
    for (const auto &[asked, found, said] : rows) {
        EXPECT_EQ(enable_features::find_rcec(asked), found);
        EXPECT_EQ(messages(), said);
    }

    // A function that has the capability replaces one that had not.
    machine->image.set_filter([](ImageAccess &access) {
        access.value |= access.id == at(64, 3) && access.offset == 0x100 ? 0x10007 : 0;
        return PCI_OK;
    });
    const RoutingId exchanged[] = {at(64, 3)};
    machine->machine->update(exchanged, exchanged);
    find_event_agent(at(64, 4))->capset = nullptr;
    EXPECT_EQ(enable_features::find_rcec(at(7)), BDF_NONE);
    EXPECT_EQ(messages(), "E0 Found RCEC for B7:D0:F0" + is_null);
    EXPECT_EQ(enable_features::find_rcec(at(64, 7)), at(64, 3));
}

}  // namespace host::tests

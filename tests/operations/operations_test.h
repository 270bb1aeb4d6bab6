// What the tests of operations on links and buses share: machines in short, messages in short, and
// which registers are touched in which order.
#pragma once

#include <sstream>

#include "tests/operations/replace_all.h"
#include "tests/support/faults.h"
#include "tests/support/module_test.h"

namespace host::tests {

using Words = std::vector<std::string>;

inline Words words(const std::string &text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

// "0.1:4>1-3" is function 00:01.0 of port type 4, a bridge to buses 1 to 3; type "-" makes a
// conventional function. "=700,c00" behind all that gives Device Capabilities in octal and Link
// Capabilities in hexadecimal; without it, links support L0s and L1. All are capable of fast
// back-to-back transfers.
inline std::vector<FunctionSpec> functions(const std::string &text) {
    std::vector<FunctionSpec> list;
    for (const std::string &word : words(text)) {
        FunctionSpec spec = {.id = 0, .link_cap = 0xC00, .fast_b2b = true};
        unsigned bus = 0, device = 0;
        char type = 0;
        std::sscanf(word.c_str(), "%u.%u:%c>%hhu-%hhu=%o,%x", &bus, &device, &type, &spec.secondary,
                    &spec.subordinate, &spec.payload_cap, &spec.link_cap);
        spec.id = at(bus, device);
        spec.port = type == '-' ? std::nullopt : std::optional<std::uint8_t>(type & 0xF);
        list.push_back(spec);
    }
    return list;
}

// A feature's operation with its argument and its result, and what it says.
using Call = std::tuple<std::function<unsigned(bdf_t)>, bdf_t, unsigned, std::string>;

class OperationsTest : public ModuleTest {
protected:
    // Makes each call on a fresh machine; patterns make its messages short, in this order.
    void expect(const std::vector<Call> &calls, const std::string &machine_in_short,
                const std::vector<std::pair<std::string, std::string>> &patterns) {
        for (const auto &[operation, bdf, result, said] : calls) {
            serve(functions(machine_in_short));
            EXPECT_EQ(operation(bdf), result);
            std::string log = messages();
            for (const auto &[pattern, text] : patterns)
                log = replace_all(log, pattern, text);
            EXPECT_EQ(log, expand(said));
        }
    }

    // What `operation` accesses, as "108/4 108/4=307*": function 01:01.0, register 4, the value
    // written, and a mark while the devs_lock of the bus is held.
    Words accesses(AccessFilter fault, const std::function<void()> &operation) {
        std::ostringstream text;
        machine->image.set_filter([&](ImageAccess &access) {
            auto &lock = machine->machine->bridges().above(access.id)->devs_lock;
            const bool held =
                pthread_rwlock_trywrlock(&lock) != 0 || pthread_rwlock_unlock(&lock) != 0;
            text << std::hex << access.id << '/' << access.offset << (access.is_write ? "=" : "");
            (access.is_write ? text << access.value : text) << (held ? "* " : " ");
            return fault(access);
        });
        operation();
        machine->image.set_filter({});
        return words(text.str());
    }
};

}  // namespace host::tests

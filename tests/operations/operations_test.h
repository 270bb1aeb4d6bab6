// Shared by the tests of operations on links and buses: machines in short, messages in short, and
// the registers that are accessed, in order.
#pragma once

#include "tests/support/faults.h"
#include "tests/support/module_test.h"

namespace host::tests {

// Returns `text` with each match of a regular expression replaced. It is in a file of its own,
// because std::regex takes long to compile.
std::string replace_all(const std::string &text, const std::string &pattern,
                        const std::string &replacement);

// A feature's operation with its argument, its result and its messages.
using Call = std::tuple<std::function<unsigned(bdf_t)>, bdf_t, unsigned, std::string>;

class OperationsTest : public ModuleTest {
protected:
    // Makes each call on a fresh machine; the patterns shorten its messages, in this order.
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

    // Returns what `operation` accesses, as "108/4 108/4=307*": function 01:01.0, register 4, the
    // value written, and a mark while the devs_lock of the bus is held.
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

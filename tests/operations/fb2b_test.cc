// Fast back-to-back transactions: every function of a bus, the bridges below, then the bridge
// itself.
#include <unistd.h>

#include <fstream>
#include <thread>

#include "features/fb2b/control.h"
#include "tests/operations/operations_test.h"

namespace host::tests {

using module::fast_back_to_back;

class FastBackToBack : public OperationsTest {
protected:
    // One child bridge and another function; what fails or says no is counted from 0.
    Words run(int mode, unsigned failing, bool error, bool result) {
        serve(functions(BUS));
        machine->image.write(at(1), pci::COMMAND, 2, 0x0107);
        bridge_rec *bridge = machine->bridge(at(0, 1));
        const auto fault = [=](ImageAccess &access) mutable {
            const bool now = failing-- == 0;
            access.value &= now && !access.is_write ? ~0x0280U : ~0U;
            return now && error ? 5U : 0U;
        };
        return accesses(fault, [=] {
            EXPECT_EQ(fast_back_to_back(bridge, mode), result);
            EXPECT_EQ(pthread_rwlock_trywrlock(&bridge->devs_lock), 0);
            pthread_rwlock_unlock(&bridge->devs_lock);
        });
    }
    static inline const std::string BUS = "0.1:->1-2 1.0:->2-2 1.1:-";
};

// Marked accesses are those under the lock. A failed enable is taken back in full.
TEST_F(FastBackToBack, StepsAreInOrderWhateverFails) {
    const Words on = words("100/4* 100/4=307* 100/4* 108/4* 108/4=200* 108/4* "
                           "100/4 100/4=307 100/4 8/3e 8/3e=80 8/3e");
    const std::string off = "100/4* 100/4=107* 100/4* 108/4* 108/4=0* 108/4* ";
    const Words undone[] = {words(off + "100/4* 100/4=107* 100/4* 8/3e 8/3e=0 8/3e"),
                            words(off + "100/4 100/4=107 100/4 8/3e 8/3e=0 8/3e")};
    const Words test = words("100/6* 108/6* 100/6");
    for (unsigned n = 0; n < 12; ++n) {
        Words expected(on.begin(), on.begin() + n + 1);
        expected.insert(expected.end(), undone[n / 6].begin(), undone[n / 6].end());
        EXPECT_EQ(run(1, n, true, false), expected);
        EXPECT_EQ(run(1, n, false, n % 3 != 2), n % 3 == 2 ? expected : on);
        expected = undone[1];  // each register's read, write and read back
        expected.erase(expected.begin() + n + 1, expected.begin() + n / 3 * 3 + 3);
        EXPECT_EQ(run(-1, n, true, true), expected);
        EXPECT_EQ(run(0, n % 3, n < 6, false), Words(test.begin(), test.begin() + n % 3 + 1));
    }
    EXPECT_EQ(run(0, 12, true, true), test);
    EXPECT_EQ(run(-1, 12, true, true), undone[1]);
    EXPECT_EQ(run(2, 12, true, false), Words());
    EXPECT_FALSE(fast_back_to_back(nullptr, 1));
    serve(functions("0.1:->1-3 1.0:->2-2 1.1:->3-3"));
    const auto ask = [this] { fast_back_to_back(machine->bridge(at(0, 1)), 0); };
    EXPECT_EQ(accesses(fail(of(0), 1), ask), words("100/6* 108/6* 100/6 108/6"));
}

TEST_F(FastBackToBack, BusesAreVisitedFromTheTopDown) {
    expect({{module::enable_fb2b_feature, BDF_NONE, 0,
             "B0:D0:F0 0,1 1,1 -1,1 supported for bus 0, enable failed\n"
             "B0:D1:F0 0,3 1,3 supported for bus 1, enable ok\nB1:D0:F0 0,1 1,1 supported for bus "
             "2, enable ok\nB1:D2:F0 0,0 not supported for bus 3\nB64:D0:F0 0,1 1,1 -1,1 supported "
             "for bus 64, enable failed\n"},
            {module::disable_fb2b_feature, BDF_NONE, 0,
             "B0:D0:F0 -1,1 disabled for bus 0\nB0:D1:F0 -1,3 disabled for bus 1\nB1:D0:F0 -1,1 "
             "disabled for bus 2\nB1:D2:F0 -1,0 disabled for bus 3\nB64:D0:F0 -1,1 disabled for "
             "bus 64\n"},
            {module::enable_fb2b_feature, at(1), 0,
             "D0 _enable_fb2b(B1:D0:F0)\n0,1 1,1 supported for bus 2, enable ok\n"},
            {module::disable_fb2b_feature, at(1, 1), 0,
             "D0 _disable_fb2b(B0:D1:F0)\n-1,3 disabled for bus 1\n"},
            {module::enable_fb2b_feature, at(99), 19, ""}},
           "0.1:->1-3 1.0:->2-2 1.1:- 1.2:->3-3 2.0:- 64.1:4",
           {{"D1 .*\n|D0 Fast back-to-back transfers ", ""},
            {"D0 (.*_fb2b)\\((.*)\\)\nD0 _\\1\\(\\2\\)\n", "$2 "},
            {"D0 fast_back_to_back\\(.*, (.*)\\), (.*) devices\n", "$1,$2 "}});
}

using FastBackToBackThreads = FastBackToBack;

TEST_F(FastBackToBackThreads, GoBackWhileAWriterWaitsForTheBus) {
    serve(functions(BUS));
    bridge_rec *bridge = machine->bridge(at(0, 1));
    std::atomic<pid_t> id = 0;
    std::jthread writer;
    machine->image.set_filter([&](ImageAccess &access) {
        if (access.id != at(1, 1) || id != 0)
            return 0U;
        writer = std::jthread([&] {
            id = ::gettid();
            pthread_rwlock_wrlock(&bridge->devs_lock);
            pthread_rwlock_unlock(&bridge->devs_lock);
        });
        std::string state;
        for (unsigned asleep = 0; asleep < 50; asleep = state == "S" ? asleep + 1 : 0) {
            ::usleep(1000);
            std::ifstream("/proc/self/task/" + std::to_string(id) + "/stat") >> state >> state >>
                state;
        }
        return 5U;
    });
    ::alarm(120);  // ends the program when one waits for the other
    EXPECT_FALSE(fast_back_to_back(bridge, 1));
    writer.join();
    ::alarm(0);
}

}  // namespace host::tests

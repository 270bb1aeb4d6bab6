// What modules get from the host while there is no memory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "host/base/log.h"
#include "host/exports/serve.h"
#include "platform/log.h"
#include "platform/pci_access.h"
#include "tests/support/test_machine.h"

static bool is_short = false;

void *operator new(std::size_t size) {
    void *const memory = is_short ? nullptr : std::malloc(size);
    return memory ? memory : throw std::bad_alloc();
}
void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
    return is_short ? nullptr : std::malloc(size);
}
void operator delete(void *memory) noexcept {
    std::free(memory);
}
void operator delete(void *memory, std::size_t) noexcept {
    std::free(memory);
}

static void warn(const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    pci_slog->log_output(LOG_SEVERITY_WARNING, pci_verbosity, 1, format, arguments);
    va_end(arguments);
}

namespace host::tests {

TEST(WithoutMemory, MessagesAreShownAndFunctionsFound) {
    TestMachine machine(functions("0.1:4>1-1 1.0:0 1.0.1:0"));
    const Serving serving(*machine.machine, ManagedBuses(256, true));
    const std::string longest(600, 'x');
    const auto find = [](std::uint32_t index) {
        return pci_device_find(index, ANY_VENDOR, ANY_DEVICE, 0x0200FF);
    };
    open_log(log_level(false, 0, false));
    testing::internal::CaptureStderr();
    is_short = true;
    warn("%d\33[m€\x9b%s", 7, longest.c_str());
    const bdf_t found[] = {find(0), find(1), find(2)};
    is_short = false;
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "warning: 7?[m€?" + longest.substr(0, 503) + "\n");
    EXPECT_EQ(std::vector(std::begin(found), std::end(found)),
              (std::vector<bdf_t>{at(1), at(1, 0, 1), BDF_NONE}));
}

}  // namespace host::tests

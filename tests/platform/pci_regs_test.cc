// Registers and fields against the kernel's header, an independent source of the masks.
#include "platform/pci_regs.h"

#include <gtest/gtest.h>
#include <linux/pci_regs.h>

#include <fstream>
#include <map>
#include <regex>

#include "platform/capability.h"

namespace pci {

constexpr std::uint32_t SOME = 0x9ABF'DEF3;

const std::map<std::string, std::pair<unsigned, unsigned>> OURS_AND_THE_KERNELS = {
#include "kernel_names.inc"
};

TEST(PciRegisters, AreThoseOfTheKernel) {
    for (const auto &[name, values] : OURS_AND_THE_KERNELS)
        EXPECT_EQ(values.first, values.second) << name;
    std::ifstream header(PCI_REGS);
    const std::regex definition("^constexpr \\S+ ([A-Z0-9_]+)( =|\\{).*");
    std::size_t found = 0;
    for (std::string line; std::getline(header, line);)
        if (std::smatch match; std::regex_match(line, match, definition)) {
            EXPECT_TRUE(OURS_AND_THE_KERNELS.contains(match[1])) << match[1] << " is not compared";
            ++found;
        }
    EXPECT_GT(found, 100U);
}

}  // namespace pci

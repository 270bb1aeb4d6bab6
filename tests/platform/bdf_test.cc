// Addresses and write handles: how they are made, taken apart, and refused.
#include "platform/bdf.h"

#include <gtest/gtest.h>

namespace {

TEST(WriteHandle, NamesTheAddressThatItWasMadeOf) {
    EXPECT_EQ(pci::token_of(pci::plain_bdf(0x12, 0x1F, 3)), 0xC3A5'48C7'009D);
    EXPECT_EQ(pci::token_of(pci::ari_bdf(0x12, 0xFB)), 0xC3A4'48C7'809D);
    for (const bdf_t bdf : {0U, 0x12FBU, 0xFFFFU, 0x1'0000U, 0x1'12FBU, BDF_HIGHEST}) {
        const bdf_token token = pci::token_of(bdf);
        EXPECT_EQ(pci::bdf_of(token), bdf);
        EXPECT_TRUE(pci::names_function(token, bdf ^ BDF_ARI_FLAG));
        // A handle with one wrong bit is refused, unless the bit belongs to the address: then it
        // names another function.
        for (unsigned bit = 0; bit < 64; ++bit) {
            const bdf_token wrong = token ^ bdf_token { 1 } << bit;
            const bool is_address = bit >= 16 && bit < 32;
            EXPECT_EQ(pci::bdf_of(wrong), is_address ? bdf ^ 1U << (bit - 16) : BDF_NONE) << bit;
            EXPECT_FALSE(pci::names_function(wrong, bdf)) << bit;
        }
    }
    EXPECT_FALSE(pci::names_function(0, BDF_NONE));
}

TEST(Address, GivesTheSameDevicesFunction0InItsForm) {
    EXPECT_EQ(pci::function_0_of(0x12FB), 0x12F8U);
    EXPECT_EQ(pci::function_0_of(0x1'12FB), 0x1'1200U);
    EXPECT_EQ(pci::device_of(0x1'12FB), 0U);
    EXPECT_EQ(pci::function_of(0x1'12FB), 0xFBU);
}

}  // namespace

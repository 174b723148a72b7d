#include "Common/CFlipper.h"
#include "Common/CNotFlipper.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <memory>

TEST(CFlipper, FlipperReversesEveryWidthAndNotFlipperPassesThroughTheBaseClass)
{
    std::unique_ptr<CFlipper> flipper = std::make_unique<CFlipper>();
    EXPECT_EQ(flipper->FlipPrivate(static_cast<unsigned short>(0x1234)), 0x3412);
    EXPECT_EQ(flipper->FlipPrivate(0x11223344u), 0x44332211u);
    EXPECT_EQ(flipper->FlipPrivate(0x0102030405060708ull), 0x0807060504030201ull);
    EXPECT_EQ(std::bit_cast<std::uint32_t>(flipper->FlipPrivate(std::bit_cast<float>(0x3F800001u))),
              0x0100803Fu);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(
                  flipper->FlipPrivate(std::bit_cast<double>(0x3FF0000000000002ull))),
              0x020000000000F03Full);

    std::unique_ptr<CFlipper> notFlipper = std::make_unique<CNotFlipper>();
    EXPECT_EQ(notFlipper->FlipPrivate(static_cast<unsigned short>(0x1234)), 0x1234);
    EXPECT_EQ(notFlipper->FlipPrivate(0x11223344u), 0x11223344u);
    EXPECT_EQ(notFlipper->FlipPrivate(0x0102030405060708ull), 0x0102030405060708ull);
    EXPECT_EQ(notFlipper->FlipPrivate(1.25f), 1.25f);
    EXPECT_EQ(notFlipper->FlipPrivate(-2.5), -2.5);
}

#include "Simulator/Machine/RealTimeClock.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Simulator {
namespace {

constexpr std::uint64_t SECOND = 1'000'000;

std::uint8_t ReadRegister(RealTimeClock& Clock, std::uint8_t Index, std::uint64_t Now) {
    std::uint8_t Value = 0;
    Clock.Write(0x70, Index);
    Clock.Read(0x71, Now, Value);
    return Value;
}

TEST(RealTimeClock, ShowsBcdThatFollowsVirtualTime) {
    RealTimeClock Clock("2027-12-31 23:59:58", false, false);
    const struct {
        std::uint64_t Now;
        std::uint8_t Century, Year, Month, Day, Hours, Minutes, Seconds;
    } Cases[] = {
        {0, 0x20, 0x27, 0x12, 0x31, 0x23, 0x59, 0x58},
        {2 * SECOND - 1, 0x20, 0x27, 0x12, 0x31, 0x23, 0x59, 0x59},
        {2 * SECOND, 0x20, 0x28, 0x01, 0x01, 0x00, 0x00, 0x00},
        {(59 * 86400 + 2) * SECOND, 0x20, 0x28, 0x02, 0x29, 0x00, 0x00, 0x00},
    };
    for (const auto& Case : Cases) {
        EXPECT_EQ(ReadRegister(Clock, 0x32, Case.Now), Case.Century);
        EXPECT_EQ(ReadRegister(Clock, 0x09, Case.Now), Case.Year);
        EXPECT_EQ(ReadRegister(Clock, 0x08, Case.Now), Case.Month);
        EXPECT_EQ(ReadRegister(Clock, 0x07, Case.Now), Case.Day);
        EXPECT_EQ(ReadRegister(Clock, 0x04, Case.Now), Case.Hours);
        EXPECT_EQ(ReadRegister(Clock, 0x02, Case.Now), Case.Minutes);
        EXPECT_EQ(ReadRegister(Clock, 0x00, Case.Now), Case.Seconds);
    }
    EXPECT_EQ(Clock.SecondsSinceEpoch(2 * SECOND), 1830297600u) << "2028-01-01 00:00:00";
}

}  // namespace
}  // namespace Simulator

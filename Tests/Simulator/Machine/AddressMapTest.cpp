// Addresses of memory: what the rules say of single ones, and that nothing is lost on the way there and back.
#include "Simulator/Machine/AddressMap.h"

#include <gtest/gtest.h>

namespace Simulator {
namespace {

DramLocation PlaceOf(unsigned Channel, unsigned ChipSelect, unsigned SubChannel, unsigned Bank, std::uint32_t Row,
                     unsigned Column) {
    DramLocation Where;
    Where.Channel = Channel;
    Where.ChipSelect = ChipSelect;
    Where.SubChannel = SubChannel;
    Where.Bank = Bank;
    Where.Row = Row;
    Where.Column = Column;
    return Where;
}

// A rank is 32 GB: 2 sub-channels, 32 banks, 65536 rows of 128 lines. From the line's number upwards: sub-channel, 3
// bits of bank group, 7 of column, 2 of bank address, row; the bank is folded with the row's low 5 bits.
TEST(AddressMap, FollowsItsRules) {
    const AddressMap Map{Configuration{}};
    const struct {
        const char* What;
        DramLocation Where;
        std::uint64_t Normalized, System;
    } Cases[] = {
        {"the first line", PlaceOf(0, 0, 0, 0, 0, 0), 0, 0},
        {"the other channel's", PlaceOf(1, 0, 0, 0, 0, 0), 0, 0x100},
        {"sub-channel", PlaceOf(0, 0, 1, 0, 0, 0), 0x40, 0x40},
        // Group 1 is line 2: 0x80. Group 2 is line 4: 0x100, the second granule; 12 channels lie between.
        {"bank group", PlaceOf(0, 0, 0, 4, 0, 0), 0x80, 0x80},
        {"bank group in the next granule", PlaceOf(0, 0, 0, 8, 0, 0), 0x100, 0xC00},
        {"column", PlaceOf(0, 0, 0, 0, 0, 16), 0x400, 0x3000},
        {"bank address", PlaceOf(0, 0, 0, 1, 0, 0), 0x20000, 0x180000},
        // Row 1 folds group 0 to 1; row 8 folds address 0 to 1.
        {"row 1", PlaceOf(0, 0, 0, 0, 1, 0), 0x80000 + 0x80, 0x600080},
        {"row 8", PlaceOf(0, 0, 0, 0, 8, 0), 0x400000 + 0x20000, 0x3180000},
        // 0x80000000 / 256 * 12 * 256 = 0x600000000, behind the hole of 2 GB.
        {"behind the hole", PlaceOf(0, 0, 0, 0, 0x1000, 0), 0x80000000, 0x680000000},
        {"second rank", PlaceOf(0, 1, 0, 0, 0, 0), 0x800000000, 0x6080000000},
        {"second DIMM", PlaceOf(0, 2, 0, 0, 0, 0), 0x1000000000, 0xC080000000},
        {"the last line", PlaceOf(11, 3, 1, 0x1F ^ 0x1F, 0xFFFF, 0x7F0), 0x1FFFFFFFC0, 0x1807FFFFFC0},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        const auto Address = Map.ToChannel(Case.Where);
        ASSERT_TRUE(Address);
        EXPECT_EQ(Address->Normalized, Case.Normalized);
        EXPECT_EQ(Map.ToDram(*Address), Case.Where);
        EXPECT_EQ(Map.ToSystem(*Address), Case.System);
        EXPECT_EQ(Map.ToChannel(Case.System), Address);
    }
    DramLocation Second;
    Second.Socket = 1;
    // Behind the 1.5 TB of the first socket and the hole.
    EXPECT_EQ(Map.ToSystem(*Map.ToChannel(Second)), 0x18080000000u);
}

Configuration UnevenMachine() {
    Configuration Settings;
    Settings.ChannelsPerSocket = 3;
    Settings.Dram.RankMulBits = 1;
    DimmSlotSetting Empty;
    Empty.Channel = 1;
    Empty.Dimm = 0;
    Empty.Populated = false;
    DimmSlotSetting Small;
    Small.Socket = 1;
    Small.Channel = 2;
    Small.Dimm = 1;
    Small.Ranks = 1;
    Small.RowBits = 12;
    DimmSlotSetting Disabled;
    Disabled.Socket = 1;
    Disabled.Channel = 0;
    Disabled.Dimm = 1;
    Disabled.Enabled = false;
    Settings.Dram.Slots = {Empty, Small, Disabled};
    return Settings;
}

// Steps of a prime number of lines reach every kind of place of the whole capacity.
void ExpectReversible(const AddressMap& Map, unsigned Sockets, unsigned Channels) {
    constexpr std::uint64_t STEP = 64 * 100'003ULL;
    std::uint64_t Total = 0;
    for (unsigned Socket = 0; Socket < Sockets; Socket++) {
        for (unsigned Channel = 0; Channel < Channels; Channel++) {
            const std::uint64_t Capacity = Map.CapacityOf(Socket, Channel);
            Total += Capacity;
            for (std::uint64_t At = 0; At < Capacity; At += STEP) {
                const ChannelAddress Address{Socket, Channel, At};
                const auto Where = Map.ToDram(Address);
                ASSERT_TRUE(Where);
                ASSERT_EQ(Map.ToChannel(*Where), Address);
                const auto System = Map.ToSystem(Address);
                ASSERT_TRUE(System);
                ASSERT_EQ(Map.ToChannel(*System), Address);
            }
            EXPECT_FALSE(Map.ToDram({Socket, Channel, Capacity}));
            EXPECT_FALSE(Map.ToSystem({Socket, Channel, Capacity}));
        }
    }
    // Backwards: every system address below the end leads somewhere, but for the hole; none above it does.
    const std::uint64_t End = Total + 0x80000000;
    for (std::uint64_t System = 0; System < End; System += STEP) {
        const auto Address = Map.ToChannel(System);
        ASSERT_EQ(Address.has_value(), System < 0x80000000 || System >= 0x100000000);
        if (Address) {
            ASSERT_EQ(Map.ToSystem(*Address), System);
        }
    }
    EXPECT_TRUE(Map.ToChannel(End - 1));
    EXPECT_FALSE(Map.ToChannel(End));
}

TEST(AddressMap, IsReversibleOverTheWholeCapacity) {
    ExpectReversible(AddressMap{Configuration{}}, 2, 12);
    ExpectReversible(AddressMap{UnevenMachine()}, 2, 3);
}

}  // namespace
}  // namespace Simulator

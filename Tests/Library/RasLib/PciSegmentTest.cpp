#include "Library/RasLib/PciSegment.h"

#include <gtest/gtest.h>

#include <array>

#include "Simulator/Simulation.h"

namespace {

TEST(PciSegments, FollowFromTheConfigurationBaseRegister) {
    const struct {
        UINT64 Register;
        UINT64 Count;
        UINT64 FirstBase, LastBase;
        UINT8 EndBus;
    } Cases[] = {
        {0xE0000000 | 9 << 2 | 1, 2, 0xE0000000, 0xF0000000, 255},
        {0xE0000000 | 8 << 2 | 1, 1, 0xE0000000, 0xE0000000, 255},
        {0xE0000000 | 7 << 2 | 1, 1, 0xE0000000, 0xE0000000, 127},
        {0xE0000000, 1, 0xE0000000, 0xE0000000, 0},
        {8 << 2 | 1, 1, 0x60000000, 0x60000000, 255},  // no base: the platform's default
        {0xFFFF3FFB00000000 | 11 << 2, 8, 0x3FFB00000000, 0x3FFB70000000, 255},
        {0x100000 | 15 << 2, 128, 0x100000, 0x100000 + 127 * 0x10000000ull, 255},
    };
    for (const auto& Case : Cases) {
        std::array<PCI_SEGMENT_INFO, MAX_PCI_SEGMENTS> Segments{};
        ASSERT_EQ(DescribePciSegments(Case.Register, Segments.data()), Case.Count) << std::hex << Case.Register;
        const PCI_SEGMENT_INFO& Last = Segments[Case.Count - 1];
        EXPECT_EQ(Segments[0].BaseAddress, Case.FirstBase);
        EXPECT_EQ(Last.BaseAddress, Case.LastBase);
        EXPECT_EQ(Last.SegmentNumber, Case.Count - 1);
        EXPECT_EQ(Last.StartBusNumber, 0);
        EXPECT_EQ(Last.EndBusNumber, Case.EndBus);
    }
}

class PciAccess : public testing::Test {
 protected:
    PciAccess() : Machine(TwoSegments()) {
        EXPECT_EQ(Machine.Boot(), EFI_SUCCESS);
    }
    static Simulator::Configuration TwoSegments() {
        Simulator::Configuration Made;
        Made.PciSegments = 2;
        return Made;
    }
    Simulator::Simulation Machine;
};

TEST_F(PciAccess, BufferReadsAreAlignedAndAsWideAsTheyCanBe) {
    const UINT64 Device = PciSegmentAddress(0, 0, 0x18, 0, 0);  // the first data-fabric function
    std::array<UINT8, 32> Bytes{};
    for (UINT64 At = 0; At < Bytes.size(); At++) {
        Bytes[At] = PciSegmentRead8(Device + At);
    }
    ASSERT_NE(Bytes[0] | Bytes[1] << 8, 0xFFFF);
    const struct {
        UINT64 Offset;
        UINTN Size;
        std::uint64_t Accesses;
    } Cases[] = {
        {0, 0, 0}, {0, 4, 1}, {1, 10, 5},  // byte, word, dword, word, byte
        {2, 6, 2}, {3, 1, 1}, {1, 2, 2},  {2, 1, 1}, {0, 3, 2}, {5, 16, 6},
    };
    for (const auto& Case : Cases) {
        std::array<UINT8, 32> Read;
        Read.fill(0xEE);
        Machine.ResetAccesses();
        EXPECT_EQ(PciSegmentReadBuffer(Device + Case.Offset, Case.Size, Read.data()), Case.Size);
        EXPECT_EQ(Machine.Accesses().PciReads, Case.Accesses) << Case.Offset << "+" << Case.Size;
        EXPECT_TRUE(std::equal(Read.begin(), Read.begin() + static_cast<long>(Case.Size),
                               Bytes.begin() + static_cast<long>(Case.Offset)));
        EXPECT_EQ(Read[Case.Size], 0xEE);
    }
    std::array<UINT8, 8> Untouched{};
    EXPECT_EQ(PciSegmentReadBuffer(Device + 0xFFC, 5, Untouched.data()), 0u) << "crosses into the next function";
    EXPECT_EQ(PciSegmentReadBuffer(Device + 0xFFC, 4, Untouched.data()), 4u);
}

}  // namespace

// Memory controllers and bad rows: what counters, scrubbers and repairs do, whatever software makes of it.
#include "Simulator/Machine/MemorySystem.h"

#include <gtest/gtest.h>

#include "Include/McaRegisters.h"
#include "Simulator/Machine/Machine.h"

namespace Simulator {
namespace {

constexpr std::uint32_t SMI = 2, OS = 1, NONE = 0;

TEST(MemoryController, CountsUpToTheLimitAndAsksFromThereOn) {
    const struct {
        const char* What;
        std::uint32_t Control;
        bool InterruptOff;
        std::uint16_t Start, After;
        std::uint32_t Interrupt;
    } Cases[] = {
        {"on the way", 0x21, false, 0xFFFC, 0xFFFD, NONE},
        {"the last one", 0x21, false, 0xFFFE, 0xFFFF, SMI},
        {"at the limit it stays", 0x21, false, 0xFFFF, 0xFFFF, SMI},
        {"the OS's interrupt", 0x11, false, 0xFFFE, 0xFFFF, OS},
        {"no interrupt type", 0x01, false, 0xFFFE, 0xFFFF, NONE},
        {"counting is off", 0x20, false, 0xFFFE, 0xFFFE, NONE},
        {"switched off for the chip select", 0x21, true, 0xFFFE, 0xFFFF, NONE},
    };
    const EccCounter Which{1, 2, 7};
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        bool IsTouched = false;
        MemoryController Umc(IsTouched);
        EXPECT_TRUE(Umc.Write(0xD88, Case.Control));
        EXPECT_TRUE(Umc.Write(0xD80, 1 << 5 | 2 << 3 | 7));
        EXPECT_TRUE(Umc.Write(0xD84, Case.Start));
        Umc.SetInterruptOff(2, Case.InterruptOff);
        EXPECT_EQ(Umc.Count(Which), Case.Interrupt);
        EXPECT_EQ(Umc.Read(0xD84), Case.After);
        EXPECT_TRUE(Umc.Write(0xD80, 1 << 5 | 2 << 3 | 6));
        EXPECT_EQ(Umc.Read(0xD84), 0u) << "the counter beside it";
    }
}

class MemorySystemTest : public testing::Test {
 protected:
    static MemoryError Corrected() {
        MemoryError Error;
        Error.Where = {1, 2, 1, 3, 0, 6, 0x1000, 0x20};
        Error.Symbol = 18;
        Error.Syndrome = 0x00010001;
        return Error;
    }
    // Channel 2's bank of socket 1's first processor.
    std::uint64_t Bank(std::uint32_t Register) {
        return Hardware.ProcessorAt(8).Bank(17).Read(Register);
    }
    void ClearBank() {
        Hardware.ProcessorAt(8).Bank(17).Set(MCA_STATUS, 0);
        Hardware.ProcessorAt(8).Bank(17).Set(MCA_DESTAT, 0);
    }
    // The scrubber of channel 2 walks over these bytes.
    void ScrubOver(std::uint64_t From, std::uint64_t Bytes) {
        MemoryController& Umc = Hardware.Dram().Controller(1, 2);
        Umc.Write(0x180, static_cast<std::uint32_t>(From));
        Umc.Write(0x184, static_cast<std::uint32_t>(From >> 32));
        Umc.Write(0x174, 0x100);
        Hardware.Advance(Bytes / 64);
        Umc.Write(0x174, 0);
    }

    Journal Events;
    Machine Hardware{Configuration{}, Events};
    // Second rank of the second DIMM begins at 3 * 32 GB. Row 1000, bank address 2, column 20, group 1,
    // sub-channel 1.
    static constexpr std::uint64_t NORMALIZED =
        0x1800000000 + ((0x1000ULL << 13 | 2 << 11 | 2 << 4 | 1 << 1 | 1) << 6);
};

TEST_F(MemorySystemTest, ScrubberFindsWhatIsNotRepaired) {
    const DeviceRange Device4{4, 4}, Device5{5, 5}, All{0, 9};
    const struct {
        const char* What;
        bool Transient, HasSymbol;
        std::optional<DeviceRange> Repaired;
        std::uint32_t RepairedRow;
        std::uint64_t From, Bytes;
        bool Found;
    } Cases[] = {
        {"in its way", false, true, {}, 0, NORMALIZED - 64, 128, true},
        {"just before it", false, true, {}, 0, NORMALIZED - 128, 128, false},
        {"just behind it", false, true, {}, 0, NORMALIZED + 64, 0x10000, false},
        {"gone by itself", true, true, {}, 0, NORMALIZED - 64, 128, false},
        {"repaired", false, true, Device4, 0x1000, NORMALIZED - 64, 128, false},
        {"repaired in another device", false, true, Device5, 0x1000, NORMALIZED - 64, 128, true},
        {"another row repaired", false, true, Device4, 0x1001, NORMALIZED - 64, 128, true},
        {"of any device, one repaired", false, false, Device4, 0x1000, NORMALIZED - 64, 128, true},
        {"of any device, all repaired", false, false, All, 0x1000, NORMALIZED - 64, 128, false},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        MemoryError Error = Corrected();
        Error.Transient = Case.Transient;
        if (!Case.HasSymbol) {
            Error.Symbol.reset();
        }
        Hardware.Dram().Inject(Error, 1);
        ClearBank();
        if (Case.Repaired) {
            DramLocation Row = Error.Where;
            Row.Row = Case.RepairedRow;
            Row.Column = 0;
            Hardware.Dram().RepairRow(Row, *Case.Repaired);
        }
        ScrubOver(Case.From, Case.Bytes);
        // A scrubbed error says so in bit 40.
        EXPECT_EQ(Bank(MCA_STATUS), Case.Found ? 0x9C2041000400011B : 0u);
        EXPECT_EQ(Bank(MCA_ADDR) == NORMALIZED || !Case.Found, true);
        Hardware.Dram().RepairRow(Error.Where, All);
        ClearBank();
    }
}

}  // namespace
}  // namespace Simulator

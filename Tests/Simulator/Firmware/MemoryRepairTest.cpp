// The repair service and the PSP behind it: spare rows, duplicates, the queue, what the PSP leaves in its command
// word.
#include "Simulator/Firmware/MemoryRepair.h"

#include <gtest/gtest.h>

#include "Simulator/Firmware/Firmware.h"
#include "Tests/Support/BootedSimulation.h"

namespace Simulator {
namespace {

constexpr std::uint64_t UMC_CORRECTED = 0x9C2040000400011B;

// A translated corrected error with a symbol in socket 0, channel 0, chip select 0.
KYR_CHIPSET_SUPPORT_DATA ErrorIn(unsigned Bank, std::uint32_t Row, unsigned Symbol) {
    KYR_CHIPSET_SUPPORT_DATA Data{};
    MACHINE_CHECK_SUPPORT_DATA& Check = Data.MachineCheck;
    Check.ValidRasMcaErrorInfo = 1;
    Check.ValidNormalizedAddressInfoPsp = 1;
    Check.DimmInfo.ValidBits = 1;
    Check.DimmInfo.Bank = static_cast<UINT8>(Bank);
    Check.DimmInfo.Row = Row;
    Check.RasMcaErrorInfo.McaBankCount = 1;
    MCA_BANK_ERROR_INFO& Logged = Check.RasMcaErrorInfo.McaBankErrorInfo[0];
    Logged.McaStatus = UMC_CORRECTED;
    Logged.McaIpid = 0x0000009600050F00;
    Logged.McaSynd = 0x0A800000 | Symbol << 8;
    return Data;
}

class MemoryRepairTest : public testing::Test {
 protected:
    struct Created {
        bool Supported;
        EFI_STATUS Status;
        bool New;
    };
    Created Create(const KYR_CHIPSET_SUPPORT_DATA& Data) {
        BOOLEAN Supported = 0xEE, New = 0xEE;
        EXPECT_EQ(Repair().IsSupported(&Data, &Supported), EFI_SUCCESS);
        const EFI_STATUS Status = Repair().CreateEntry(&Data, 1, &New);
        return {Supported != FALSE, Status, New != FALSE};
    }
    EFI_STATUS Start(const KYR_CHIPSET_SUPPORT_DATA& Data, BOOLEAN Ready) {
        return Repair().StartRuntime(
            {&Data, &Ready, 1, TRUE, &Served, Block, &Block[1], &QueueFront, &QueueFull, Table});
    }
    MemoryRepair& Repair() {
        return Run->Firmware().Repair;
    }

    BootedSimulation Run;
    UINT32 Served = 0, Block[41] = {}, QueueFull = 0;
    UINT8 QueueFront = 0;
    RUNTIME_PPR_CHECK_ENTRY Table[RUNTIME_PPR_CHECK_ENTRIES] = {};
};

TEST_F(MemoryRepairTest, SparesOneRowOfABankGroupInEachDevice) {
    KYR_CHIPSET_SUPPORT_DATA Untranslated = ErrorIn(0, 1, 0);
    Untranslated.MachineCheck.DimmInfo.ValidBits = 2;
    const struct {
        const char* What;
        KYR_CHIPSET_SUPPORT_DATA Data;
        bool Supported, New;
    } Cases[] = {
        {"a row", ErrorIn(0, 0x10, 0), true, true},
        {"the same again", ErrorIn(0, 0x10, 3), true, false},
        {"another row of the group", ErrorIn(3, 0x11, 0), false, false},
        {"the next group", ErrorIn(4, 0x11, 0), true, true},
        {"another device", ErrorIn(3, 0x11, 4), true, true},
        // Bit 15 of the syndrome: every device would need a spare row, and two have none in this group.
        {"all devices", ErrorIn(3, 0x12, 0x80), false, false},
        {"all devices of a fresh group", ErrorIn(8, 0x12, 0x80), true, true},
        {"one device of the row repaired in all", ErrorIn(8, 0x12, 36), true, false},
        {"a place that is not known", Untranslated, false, false},
        {"a row that is not there", ErrorIn(0, 0x10000, 8), false, false},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        const Created Came = Create(Case.Data);
        EXPECT_EQ(Came.Supported, Case.Supported);
        EXPECT_EQ(Came.Status, Case.Supported ? EFI_SUCCESS : EFI_UNSUPPORTED);
        EXPECT_EQ(Came.New, Case.New);
    }
    Run.Forget();
    EXPECT_EQ(Repair().StoreEntries(), EFI_SUCCESS);
    EXPECT_EQ(Repair().StoreEntries(), EFI_SUCCESS);
    EXPECT_EQ(Run.Count("ppr"), 4u) << "an entry is stored once";
}

}  // namespace
}  // namespace Simulator

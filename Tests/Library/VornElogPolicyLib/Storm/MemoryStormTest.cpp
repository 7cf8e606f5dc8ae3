// Storms of memory records: which counter is switched off, what the BMC hears of it, and a whole machine's storm.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/Memory/MemoryRecord.h"
#include "Simulator/Machine/Machine.h"
#include "Tests/Library/VornElogPolicyLib/Storm/StormMachine.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr UINT64 OVERFLOWED = UINT64{1} << 48;
constexpr UINT64 ECC = 0x9C2040000000011B, OTHER = 0x9C2040000004011B, TRANSPARENT_ECC = 0x9C3040000000011B;

// An error of socket 0, channel 2, DIMM 1, which is A6; its bank's counters have both overflowed.
struct UmcRecord : MemoryRecord {
    UmcRecord(UINT64 Status, UINT32 DimmInfoValidBits) : MemoryRecord(0x3A, 0x1000, 2) {
        MACHINE_CHECK_SUPPORT_DATA& Check = Data.MachineCheck;
        MCA_BANK_ERROR_INFO& Bank = Check.RasMcaErrorInfo.McaBankErrorInfo[0];
        Bank.McaBankNumber = 17;
        Bank.McaStatus = Status;
        Bank.McaIpid = 0x0000009600250F00;
        Bank.McaMisc0 = Bank.McaMisc1 = OVERFLOWED | 0xFFF00000000;
        Check.ValidNormalizedAddressInfoPsp = 1;
        Check.NormalizedAddressInfo.UmcChannel = 2;
        Check.DimmInfo.ValidBits = DimmInfoValidBits;
        Check.DimmInfo.DimmOnCh = 1;
    }
};

TEST(MemoryStorm, TheBmcHearsOfASilencedCounterAndItIsNotArmedAgain) {
    using Texts = std::vector<std::string>;
    struct Case {
        const char* Name;
        bool IsDiagnostic;
        UINT64 Status;
        UINT32 DimmInfoValidBits;
        bool IsTranslated, Fails;
        Texts Types;  // threshold types of the calls
        Texts Sel;
        bool Misc0Cleared, Misc1Cleared;
    };
    const std::string EccStorm = "D4 13 74 24 F1 05", OtherStorm = "D4 13 74 24 F0 05";
    for (const Case& Test : {
             Case{"ECC, the address told the DIMM", true, ECC, 1, true, false, {"0x0"}, {EccStorm}, true, false},
             Case{"ECC, the syndrome told it", true, ECC, 2, true, false, {"0x0"}, {EccStorm}, true, false},
             // Two DIMMs may be meant; both events name the decoded one.
             Case{"ECC, nothing told it", true, ECC, 0, true, false, {"0x0"}, {EccStorm, EccStorm}, true, false},
             Case{"ECC, not translated", true, ECC, 1, false, false, {"0x0"}, {}, true, false},
             Case{"ECC, the service fails", true, ECC, 1, true, true, {"0x0"}, {}, true, false},
             Case{"ECC in production mode", false, ECC, 1, true, false, {}, {}, false, false},
             Case{"another error", true, OTHER, 1, true, false, {"0x1"}, {OtherStorm}, false, true},
             Case{"another error in production mode",
                  false,
                  OTHER,
                  1,
                  true,
                  false,
                  {"0x1"},
                  {OtherStorm},
                  false,
                  true},
             Case{"transparent", true, TRANSPARENT_ECC, 1, true, false, {}, {}, false, false},
             Case{"transparent in production mode", false, TRANSPARENT_ECC, 1, true, false, {}, {}, false, false},
         }) {
        SCOPED_TRACE(Test.Name);
        StormMachine Machine(Test.IsDiagnostic);
        if (Test.Fails) {
            Machine.Fail("DisableMcaThreshold");
        }
        for (unsigned Number = 1; Number <= 10; Number++) {
            UmcRecord Record(Test.Status, Test.DimmInfoValidBits);
            Record.Data.MachineCheck.ValidNormalizedAddressInfoPsp = Test.IsTranslated;
            Record.Cper()->Header.TimeStamp = StampAt(Number);
            VornElogSmmProcessErrorRecordMemory(Record.Cper(), &Record.Data);
            const MCA_BANK_ERROR_INFO& Bank = RecordBank(Record.Data);
            EXPECT_EQ((Bank.McaMisc0 & OVERFLOWED) == 0, Number == 10 && Test.Misc0Cleared) << Number;
            EXPECT_EQ((Bank.McaMisc1 & OVERFLOWED) == 0, Number == 10 && Test.Misc1Cleared) << Number;
            EXPECT_EQ((Bank.McaMisc0 & Bank.McaMisc1) & ~OVERFLOWED, 0xFFF00000000u);
            if (Number == 9) {
                EXPECT_THAT(Machine.Events("service", "member"), IsEmpty());
            }
        }
        EXPECT_EQ(Machine.Events("service", "threshold-type", "0x").size(),
                  Test.Types.size() + (Test.Status == TRANSPARENT_ECC ? 1 : 0));
        EXPECT_EQ(Machine.Events("service", "member", "DisableMcaThreshold").size(), Test.Types.size());
        EXPECT_EQ(Machine.Events("service", "member", "DisableMcaTransparentErrorLogging").size(),
                  Test.Status == TRANSPARENT_ECC ? 1u : 0u);
        if (!Test.Types.empty()) {
            EXPECT_EQ(Machine.Events("service", "threshold-type", "0x"), Test.Types);
        }
        EXPECT_EQ(Machine.Sel(), Test.Sel);
        EXPECT_EQ(Machine.Traced("VornElogSmmProcessErrorRecordMemory: PSP normalized address data unavailable, not "
                                 "able to log SEL MEM record for SMI storm"),
                  !Test.IsTranslated);
    }
}

// Every channel of the machine errs once in 0.864 s, an hour long. The tenth error of each is its last SMI.
TEST(MemoryStorm, AHundredThousandErrorsOfAWholeMachineEndInTenSmisOfEachSource) {
    constexpr unsigned Errors = 100'000, Channels = 24;
    Simulator::Configuration Settings;
    Settings.Apei["McaErrThreshCount"] = 0xFFE;  // each error raises its SMI
    StormMachine Machine(Settings);
    Simulator::Machine& Hardware = Machine.Sim.Machine();
    unsigned Smis = 0;
    for (unsigned Number = 0; Number < Errors; Number++) {
        Simulator::MemoryError Error;
        Error.Where.Socket = Number % Channels / 12;
        Error.Where.Channel = Number % 12;
        Error.Where.Row = Number % 0x10000;
        Error.Kind = Simulator::MemoryErrorKind::RowCheck;
        Error.Transient = true;
        Machine.Sim.InjectMemoryError(Error, 1);
        if (Hardware.ProcessorAt(0).SmiSources != 0 || Hardware.ProcessorAt(8).SmiSources != 0) {
            Machine.Sim.RaiseSmi("machine-check");
            Smis++;
        }
        Machine.Sim.Wait(36'000);
    }
    EXPECT_EQ(Smis, 10 * Channels);
    EXPECT_EQ(Machine.Events("record", "section").size(), 10 * Channels);
    EXPECT_EQ(Machine.Events("service", "member", "DisableMcaThreshold").size(), Channels);
    EXPECT_EQ(Machine.Sel().size(), Channels);
    EXPECT_EQ(Machine.Events("sel", "bytes", "D4 13 74 24 F0").size(), Channels);
    // All 240 came within 8.64 s and nothing came later that would expire them.
    EXPECT_EQ(Machine.Entries(), 10 * Channels);
    EXPECT_EQ(Machine.Blocks() - Machine.Sim.BlocksAtBoot(), 2 * 10 * Channels);
}

}  // namespace

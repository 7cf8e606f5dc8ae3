// The engine's start and the data that it keeps.
#include "Library/VornElogPolicyLib/PolicyLib.h"

#include <gtest/gtest.h>

#include "Library/RasLib/PciSegment.h"
#include "Tests/Library/VornElogPolicyLib/PolicyMachine.h"

static EFI_STATUS Start() {
    return VornElogPolicyLibConstructorSmm(nullptr, nullptr);
}
static EFI_STATUS End() {
    return VornElogPolicyLibDestructorSmm(nullptr, nullptr);
}

TEST(PolicyStart, ClearsOldSciCausesAndNothingElse) {
    PolicyMachine Machine(true);
    Machine.Fail("SetRasDiagnosticModeData");
    End();
    PciSegmentWrite32(PciSegmentAddress(0, 0, 0, 0, 0x74), 0xFFFFFFFF);
    EXPECT_EQ(Start(), EFI_SUCCESS);
    EXPECT_EQ(PciSegmentRead32(PciSegmentAddress(0, 0, 0, 0, 0x74)), 0x8FFFFFFFu);
}

TEST(DimmData, ThresholdsFollowTheSlot) {
    struct Case {
        UINT8 Enabled;
        UINT32 Threshold;
        UINT32 HwThresholdCount;
        UINT16 EccErrCnt;
    };
    for (const bool IsDiagnostic : {false, true}) {
        PolicyMachine Machine(IsDiagnostic);
        for (const Case& Test :
             {Case{1, 0, 1, 0xFFFE}, Case{1, 31, 1, 0xFFFE}, Case{1, 64, 2, 0xFFFD}, Case{1, 24000, 750, 0xFD11},
              Case{1, 0x200000, 0x10000, 0xFFFF}, Case{0, 100, 0, 0}}) {
            End();
            Policy.DimmData[1][11][1] = {};
            VORN_MEMORY_SLOT_INFO Slot{};
            Slot.Populated = 1;
            Slot.Enabled = Test.Enabled;
            Slot.ThresholdInfo = 0x0B;
            Slot.ThresholdCount = Test.Threshold;
            VornElogSmmSeedDimmData(1, 11, 1, &Slot, 47);
            const DIMM_DATA& Dimm = Policy.DimmData[1][11][1];
            EXPECT_EQ(VornElogSmmDimmActiveCheck(0x40, 1, 11, 1), Test.Enabled);
            EXPECT_EQ(Dimm.pUniqueRowIdentifierList != nullptr, Test.Enabled != 0);
            EXPECT_EQ(Dimm.CeccPfaData.SwThresholdCount, Test.Enabled ? Test.Threshold : 0);
            EXPECT_EQ(Dimm.CeccPfaData.SwThresholdInfo, Test.Enabled ? 0x0B : 0);
            EXPECT_EQ(Dimm.CeccPfaData.HwThresholdCount, Test.HwThresholdCount);
            UmcEccErrCntRegInitData Init{1, 1};
            EXPECT_EQ(VornElogSmmGetUmcEccErrCntInitData(0x40, 1, 11, 1, &Init), EFI_SUCCESS);
            EXPECT_EQ(Init.EccErrCnt, IsDiagnostic && Test.Enabled ? 0xFFFF : Test.EccErrCnt);
            EXPECT_EQ(Init.EccErrThresh, 0);
        }
    }
}

// The memory controllers' counters: start values, shadows, what was added since.
#include "PlatformRas/Qtz/Smm/UmcCounters.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/PrivateData.h"
#include "PlatformRas/Qtz/Smm/ReadyToBoot.h"
#include "PlatformRas/Qtz/Smm/UmcShadowCounters.h"
#include "Tests/Support/BootedSimulation.h"
#include "Tests/Support/FakeUmc.h"

using testing::ElementsAre;

namespace {

// Booted with platform-first handling off: nothing was programmed yet.
Simulator::Configuration Unprogrammed(bool IsDiagnostic) {
    Simulator::Configuration Settings = IsDiagnostic ? DiagnosticConfiguration() : Simulator::Configuration{};
    Settings.Apei["PFEHEnable"] = 0;
    return Settings;
}

// One active DIMM, socket 1, channel 5, DIMM 1, whose counters start at 0xFFF0.
class UmcMachine {
 public:
    explicit UmcMachine(bool IsDiagnostic = false) : Sim(Unprogrammed(IsDiagnostic)), Umc(FakeUmc::Install(*Sim)) {
        Current = this;
        for (auto& Channels : mPrivateDataVornElogPolicyLib.DimmData) {
            for (auto& Dimms : Channels) {
                for (DIMM_DATA& Dimm : Dimms) {
                    Dimm.Flags.Present = 0;
                }
            }
        }
        DIMM_DATA& Active = mPrivateDataVornElogPolicyLib.DimmData[1][5][1];
        Active.Flags = {1, 1, 0};
        Active.UmcEccErrCntRegInitData = {0x1111, 0xFFF0};
        Ras = *mKyrRasServiceSmmProtocol;
        mKyrRasServiceSmmProtocol = &Ras;
        Ras.CorrectedErrorCounterPerDimm = [](UINT8 Socket, UINT8 Channel, UINT8 Dimm,
                                              const UmcEccErrCntRegInitData* Init) {
            Current->Calls.push_back(
                fmt::format("{} {} {}: {:x} {:x}", Socket, Channel, Dimm, Init->EccErrThresh, Init->EccErrCnt));
            return Dimm == 0 ? Current->Dimm0Status : Current->Status;
        };
        Ras.CorrectedErrorCounterIndividual = [](UINT8 Socket, UINT8 Channel, UINT8 SubChannel, UINT8 ChipSelect,
                                                 UINT8 RankMul, const UmcEccErrCntRegInitData* Init) {
            Current->Calls.push_back(fmt::format("{} {} {} {} {}: {:x} {:x}", Socket, Channel, SubChannel, ChipSelect,
                                                 RankMul, Init->EccErrThresh, Init->EccErrCnt));
            if (!EFI_ERROR(Current->Status)) {
                Current->Umc.Counter(Channel, SubChannel << 5 | ChipSelect << 3 | RankMul) = Init->EccErrCnt;
            }
            return Current->Status;
        };
        Umc.Register(FakeUmc::CNT_CTRL, 5) = 0x11;
        Umc.Register(FakeUmc::CNT_SEL, 5) = 0xFFFFFFFF;
        for (unsigned Index = 0; Index < 64; Index++) {
            Umc.Counter(5, Index) = 0xFFF0;
        }

        MACHINE_CHECK_SUPPORT_DATA& Check = Data.MachineCheck;
        Check.NormalizedAddressInfo.Socket = 1;
        Check.NormalizedAddressInfo.UmcChannel = 5;
        Check.DimmInfo.ChipSelect = 2;
        Check.DimmInfo.DimmOnCh = 1;
        Check.DimmInfo.RankOnDimm = 1;
    }
    EFI_STATUS Delta(UINT16* Delta = nullptr) {
        UmcCeccPfaThresholdData Out{9, 9, 9, 9, 9, 9, 9};
        const EFI_STATUS Result = VornGetUmcCeccErrorCounterDelta(DEBUG_VERBOSE, &Data, &Out);
        const UmcCeccPfaThresholdData Expected = EFI_ERROR(Result)
                                                     ? UmcCeccPfaThresholdData{}
                                                     : UmcCeccPfaThresholdData{1, 1, 5, 2, 1, 1, Out.EccErrCntDelta};
        EXPECT_EQ(std::memcmp(&Out, &Expected, sizeof(Out)), 0);
        if (Delta != nullptr) {
            *Delta = Out.EccErrCntDelta;
        }
        return Result;
    }
    UINT16 Shadow(UINT8 SubChannel, UINT8 RankMul, UINT8 ChipSelect = 2) {
        return VornGetPrivateDataUmcCeccErrorCounter(DEBUG_VERBOSE, 1, 5, SubChannel, ChipSelect, RankMul);
    }

    BootedSimulation Sim;
    FakeUmc& Umc;
    KYR_RAS_SERVICE_SMM_PROTOCOL Ras{};
    KYR_CHIPSET_SUPPORT_DATA Data{};
    std::vector<std::string> Calls;
    EFI_STATUS Status = EFI_SUCCESS;
    EFI_STATUS Dimm0Status = EFI_SUCCESS;

 private:
    static inline UmcMachine* Current = nullptr;
};

TEST(UmcCounters, ADeltaIsWhatSixteenCountersTookLessWhatTheLastStoodAbove) {
    struct Step {
        const char* Name;
        UINT8 SubChannel, RankMul;
        UINT16 Count;
        UINT16 Delta;
        UINT16 Shadow;
    };
    UmcMachine Machine;
    ASSERT_EQ(VornConfigureUmcEccErrCntRegisters(), EFI_SUCCESS);
    Machine.Calls.clear();
    for (const Step& Test : {
             Step{"nothing", 0, 0, 0xFFF0, 0, 0xFFF0},
             Step{"five", 0, 0, 0xFFF5, 5, 0xFFF5},
             Step{"two more", 0, 0, 0xFFF7, 2, 0xFFF7},
             Step{"three at the last", 1, 7, 0xFFF3, 3, 0xFFF3},
             Step{"one more there is less than the three before", 1, 7, 0xFFF4, 0xBEEF, 0xFFF4},
             Step{"nine more, less four", 1, 7, 0xFFFD, 5, 0xFFFD},
             Step{"backwards, in 16 bits: 0xFFE6 - 13", 0, 1, 0xFFD6, 0xFFD9, 0xFFD6},
             Step{"saturated: 15 - 13", 0, 3, 0xFFFF, 2, 0xFFF0},
             Step{"the last saturated: 2 - 13", 1, 7, 0xFFFF, 0xBEEF, 0xFFF0},
             Step{"and started again", 1, 7, 0xFFF1, 1, 0xFFF1},
         }) {
        SCOPED_TRACE(Test.Name);
        Machine.Umc.Counter(5, Test.SubChannel << 5 | 2 << 3 | Test.RankMul) = Test.Count;
        Machine.Umc.Counter(5, 3 << 3) = 0xFFFF;  // another chip select's are left alone
        UINT16 Delta = 7;
        EXPECT_EQ(Machine.Delta(&Delta), EFI_SUCCESS);
        EXPECT_EQ(Delta, Test.Delta);
        EXPECT_EQ(Machine.Shadow(Test.SubChannel, Test.RankMul), Test.Shadow);
        EXPECT_EQ(Machine.Umc.Register(FakeUmc::CNT_SEL, 5), 0x7FFFFFF7u) << "sub-channel 1, chip select 2, 7";
    }
    EXPECT_THAT(Machine.Calls, ElementsAre("1 5 0 2 3: 1111 fff0", "1 5 1 2 7: 1111 fff0"));
    EXPECT_EQ(Machine.Shadow(0, 0, 3), 0xFFF0);
    EXPECT_TRUE(
        Machine.Sim.Traced("ERROR CeccErrorCountAccumulatedPerPhysRankAfterUpdate 0x0001 < "
                           "CeccErrorCountAccumulatedPerPhysRankBeforeUpdate 0x0003"));
}

TEST(UmcCounters, ADeltaThatCannotBeTakenChangesNothing) {
    struct Case {
        const char* Name;
        void (*Break)(UmcMachine& Machine, MACHINE_CHECK_SUPPORT_DATA& Check);
        EFI_STATUS Expected;
    };
    for (const Case& Test : {
             Case{"no IO hub", [](auto&, auto&Check) { Check.NormalizedAddressInfo.Socket = 2; }, EFI_NOT_FOUND},
             Case{"inactive", [](auto&, auto&Check) { Check.DimmInfo.DimmOnCh = 0; }, EFI_NOT_FOUND},
             Case{"no such DIMM", [](auto&, auto&Check) { Check.DimmInfo.DimmOnCh = 2; }, EFI_NOT_FOUND},
             Case{"no such channel", [](auto&, auto&Check) { Check.NormalizedAddressInfo.UmcChannel = 12; },
                  EFI_NOT_FOUND},
             Case{"channel behind the last, wrapped to a good one",
                  [](auto&, auto&Check) {
                      Check.NormalizedAddressInfo.UmcChannel = 251;
                      Check.NormalizedAddressInfo.Die = 5;
                  },
                  EFI_INVALID_PARAMETER},
             Case{"no such chip select", [](auto&, auto&Check) { Check.DimmInfo.ChipSelect = 4; },
                  EFI_INVALID_PARAMETER},
             Case{"not counting",
                  [](auto&Machine, auto&) { Machine.Umc.Register(FakeUmc::CNT_CTRL, 5) = 0xFFFFFFFE; },
                  EFI_UNSUPPORTED},
             Case{"silent", [](auto&Machine, auto&) { Machine.Umc.Register(FakeUmc::CNT_CTRL, 5) = 0xFFFFFFFF; },
                  EFI_UNSUPPORTED},
         }) {
        SCOPED_TRACE(Test.Name);
        UmcMachine Machine;
        ASSERT_EQ(VornConfigureUmcEccErrCntRegisters(), EFI_SUCCESS);
        Machine.Umc.Counter(5, 2 << 3) = 0xFFF9;
        Test.Break(Machine, Machine.Data.MachineCheck);
        EXPECT_EQ(Machine.Delta(), Test.Expected);
        EXPECT_EQ(Machine.Shadow(0, 0), 0xFFF0);
    }
    UmcMachine Machine;
    UmcCeccPfaThresholdData Out{};
    EXPECT_EQ(VornGetUmcCeccErrorCounterDelta(DEBUG_VERBOSE, nullptr, &Out), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornGetUmcCeccErrorCounterDelta(DEBUG_VERBOSE, &Machine.Data, nullptr), EFI_INVALID_PARAMETER);
}

}  // namespace

// The engine's start, its end, and the data that it keeps.
#include "Library/VornElogPolicyLib/PolicyLib.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Library/RasLib/PciSegment.h"
#include "Tests/Library/VornElogPolicyLib/PolicyMachine.h"

using testing::IsEmpty;
using CommunicationCall = Simulator::Simulation::CommunicationCall;

static EFI_STATUS Start() {
    return VornElogPolicyLibConstructorSmm(nullptr, nullptr);
}
static EFI_STATUS End() {
    return VornElogPolicyLibDestructorSmm(nullptr, nullptr);
}

static unsigned BlocksMade() {
    return (Policy.pMcaCorrectedFiniteBuffer != nullptr) + (Policy.pMcaDeferredCircularBuffer != nullptr) +
           (Policy.pMcaUncorrectedFiniteBuffer != nullptr) + (Policy.pPciFiniteBuffer != nullptr) +
           (Policy.SmiStormQueue != nullptr) + (Policy.pQueuePciDeviceData != nullptr) +
           (Policy.pOsEsxiPageRetireInfo != nullptr);
}

TEST(PolicyStart, ClearsOldSciCausesAndNothingElse) {
    PolicyMachine Machine(true);
    Machine.Fail("SetRasDiagnosticModeData");
    End();
    PciSegmentWrite32(PciSegmentAddress(0, 0, 0, 0, 0x74), 0xFFFFFFFF);
    EXPECT_EQ(Start(), EFI_SUCCESS);
    EXPECT_EQ(PciSegmentRead32(PciSegmentAddress(0, 0, 0, 0, 0x74)), 0x8FFFFFFFu);
}

TEST(PolicyStart, AMissingProtocolEndsItThereAndLeavesNothing) {
    const char* const Guids[] = {"gKyrRasInitDataSmmProtocolGuid",   "gKyrPlatformApeiDataProtocolGuid",
                                 "gKyrRasServiceSmmProtocolGuid",    "gEfiSmmCpuServiceProtocolGuid",
                                 "gEfiSmmVariableProtocolGuid",      "gEfiVornApeiLoggingSmmProtocolGuid",
                                 "gVornKyrMemoryPPRSmmProtocolGuid", "gVornMemoryInterfaceMemorySmmProtocolGuid"};
    for (std::size_t Missing = 0; Missing < std::size(Guids); Missing++) {
        SCOPED_TRACE(Guids[Missing]);
        Simulator::Configuration Settings;
        Settings.Missing = {Guids[Missing]};
        PolicyMachine Machine(Settings);
        // The text of the second one has a letter too many.
        EXPECT_TRUE(
            Machine.Traced(std::string("VornElogPolicyLibConstructorSmm: ERROR Not Found locating protocol ") +
                           (Missing == 1 ? "gKyrpPlatformApeiDataProtocolGuid" : Guids[Missing])));
        EXPECT_EQ(BlocksMade(), 0u);
        EXPECT_EQ(End(), EFI_SUCCESS);
        EXPECT_THAT(Machine.Events("unregister", "what"), IsEmpty());
    }
}

TEST(PolicyStart, AnyAllocationMayFailAndTheEndFreesTheOthers) {
    PolicyMachine Machine;
    End();
    const std::uint64_t Blocks = Machine.Blocks();
    for (std::uint64_t Skip = 0; Skip < 9; Skip++) {
        Machine.Fail("SmmAllocatePool", EFI_OUT_OF_RESOURCES, 1, Skip);
        EXPECT_EQ(Start(), EFI_SUCCESS);
        EXPECT_EQ(BlocksMade(), Skip < 7 ? 6u : 7u);
        EXPECT_EQ(End(), EFI_SUCCESS);
        EXPECT_EQ(BlocksMade(), 0u);
        EXPECT_EQ(Machine.Blocks(), Blocks);
    }
    EXPECT_TRUE(
        Machine.Traced("ERROR Out of Resources allocating EfiRuntimeServicesData memory for corrected error"));
}

TEST(PolicyStart, ItsEndTakesBackTheRegistrationsThatWereMade) {
    PolicyMachine Machine;
    EXPECT_EQ(End(), EFI_SUCCESS);
    EXPECT_EQ(Machine.Events("unregister", "what").size(), 3u);
    EXPECT_EQ(End(), EFI_SUCCESS);
    EXPECT_EQ(Machine.Events("unregister", "what").size(), 3u);
    for (const auto& [Member, Expected] :
         {std::pair{"SmiHandlerRegister", EFI_SUCCESS}, std::pair{"SmmRegisterProtocolNotify", EFI_SUCCESS},
          std::pair{"SwDispatch2.Register", EFI_DEVICE_ERROR}}) {
        SCOPED_TRACE(Member);
        Machine.Forget();
        Machine.Fail(Member, EFI_DEVICE_ERROR, 1);
        EXPECT_EQ(Start(), Expected);
        EXPECT_EQ(End(), EFI_SUCCESS);
        EXPECT_EQ(Machine.Events("unregister", "what").size(), 2u);
    }
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

TEST(PostErrors, AreForwardedOnceTheirCountIsKnown) {
    struct Case {
        UINT16 Count;
        const char* Failing;
        EFI_STATUS Expected;
        bool IsLogged;
        bool IsRegisteredAfter;
    };
    for (const Case& Test :
         {Case{3, nullptr, EFI_SUCCESS, true, false}, Case{0, nullptr, EFI_NOT_FOUND, false, false},
          Case{3, "GetPostMessageCodes", EFI_SUCCESS, true, false},
          Case{3, "GetIpmiTransportProtocol", EFI_DEVICE_ERROR, false, true},
          Case{3, "GetBmcErrorCount", EFI_DEVICE_ERROR, false, true},
          Case{3, "SendBmcData", EFI_DEVICE_ERROR, true, false}}) {
        SCOPED_TRACE(testing::Message() << Test.Count << " " << (Test.Failing ? Test.Failing : "-"));
        PolicyMachine Machine;
        if (Test.Failing != nullptr) {
            Machine.Fail(Test.Failing);
        }
        EXPECT_EQ(Machine.Sim.HandOverPostErrors(Test.Count, {0x11, 0x22}), Test.Expected);
        EXPECT_EQ(Machine.Sel(), std::vector<std::string>(Test.IsLogged ? 1 : 0, "C1 2E 72 A2 01 00"));
        EXPECT_EQ(Machine.Events("unregister", "what").size(), Test.IsRegisteredAfter ? 0u : 1u);
        End();
        EXPECT_EQ(Machine.Events("unregister", "what").size(), 3u);
    }
}

TEST(PostErrors, BuffersFromTheWrongPlaceAreRefused) {
    PolicyMachine Machine;
    const CommunicationCall Good{
        .Handler = "gElogLogPOSTErrorToBMCGuid", .Data = {0, 0x11}, .NullSize = false, .Size = {}};
    std::vector<CommunicationCall> Calls(6, Good);
    Calls[0].Where = CommunicationCall::Place::Null;
    Calls[1].Where = CommunicationCall::Place::Smram;
    Calls[2].Where = CommunicationCall::Place::Straddling;
    Calls[3].NullSize = true;
    Calls[4].Size = 0;
    Calls[5].Size = 1;
    for (const CommunicationCall& Bad : Calls) {
        EXPECT_EQ(Machine.Sim.CallCommunicationHandler(Bad), EFI_INVALID_PARAMETER);
    }
    EXPECT_THAT(Machine.Sel(), IsEmpty());
    EXPECT_THAT(Machine.Events("unregister", "what"), IsEmpty());
}

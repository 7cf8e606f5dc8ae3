// Repair requests, runtime repair and the verification of its rows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Include/DramAddress.h"
#include "Include/UmcRegisters.h"
#include "Library/VornElogPolicyLib/Memory/PprRequest.h"
#include "Library/VornElogPolicyLib/Memory/RepairVerification.h"
#include "Library/VornElogPolicyLib/Memory/RuntimePpr.h"
#include "Library/VornElogPolicyLib/Memory/RuntimePprState.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/RuntimePpr.h"
#include "Tests/Library/VornElogPolicyLib/Memory/MemoryMachine.h"
#include "Tests/Support/FakeServices.h"
#include "Tests/Support/FakeUmc.h"

using testing::ElementsAre;

namespace {

// A machine whose platform wants runtime repair, before it is started.
class RepairMachine : public MemoryMachine {
 public:
    RepairMachine() : Umc(FakeUmc::Install(*Sim)) {
        Current = this;
        mPlatformApeiData->RuntimePprEnable[1] = TRUE;
        Services.Table.NumberOfCpus = 1;
        Services.Table.SmmInstallProtocolInterface = [](EFI_HANDLE* Handle, const EFI_GUID* Guid, UINT32 Type,
                                                        void* Interface) {
            EXPECT_TRUE(IsGuidEqual(*Guid, gKyrRuntimePprServiceSmmProtocolGuid));
            EXPECT_EQ(Type, 0u);
            if (!EFI_ERROR(Current->InstallStatus)) {
                Current->Service = static_cast<KYR_RUNTIME_PPR_SERVICE_SMM_PROTOCOL*>(Interface);
                *Handle = Current;
            }
            return Current->InstallStatus;
        };
        Services.Table.SmmUninstallProtocolInterface = [](EFI_HANDLE Handle, const EFI_GUID*, void* Interface) {
            EXPECT_EQ(Handle, Current);
            EXPECT_EQ(Interface, Current->Service);
            Current->Service = nullptr;
            return EFI_SUCCESS;
        };
        Services.Table.SmmLocateHandle = [](EFI_LOCATE_SEARCH_TYPE Search, const EFI_GUID* Guid, void*, UINTN*,
                                            EFI_HANDLE*) {
            EXPECT_EQ(Search, ByProtocol);
            EXPECT_TRUE(IsGuidEqual(*Guid, gKyrJrvRasOemSmmProtocolGuid));
            return EFI_NOT_FOUND;  // no instance: nobody is told
        };
        PspBaseAddress() = 0xE0012345;
        Services.Install(gVornElogIpmiSmmProtocolGuid, &Ipmi);
        Ipmi.LogMemoryHealthData = [](const VORN_MEMORY_HEALTH_REQUEST* Request, UINTN Bytes) {
            EXPECT_EQ(Bytes, 23u);
            const auto* Payload = static_cast<const UINT8*>(Request->Payload);
            return Current->Tell(fmt::format("health row {:x} result {}", Payload[11], Payload[17]));
        };
        Ras.ClrMcaStatus = [](UINTN Processor, UINTN Bank, BOOLEAN Completing) {
            EXPECT_EQ(Completing, FALSE);
            AsmWriteMsr64(static_cast<UINT32>(0xC0002001 + 16 * Bank), 0);
            return Current->Tell(fmt::format("clear {} {}", Processor, Bank));
        };
        Ras.SetMcaThreshold = [](const UINTN* Processor, const UINTN* Bank, const RasThresholdConfig* Config,
                                 BOOLEAN) {
            EXPECT_EQ(Config->McaMisc0DataValid, 1);
            EXPECT_EQ(Config->McaMisc1DataValid, 0);
            return Current->Tell(fmt::format("threshold {} {} {:x} type {}", *Processor, *Bank,
                                             Config->ThresholdCount, Config->ThresholdIntType));
        };
        Ppr.VornRuntimePPRHandler = [](const KYR_CHIPSET_SUPPORT_DATA*, BOOLEAN* Ready, UINT16 Type, UINT8* Mailbox,
                                       UINT8* Flag, BOOLEAN Enabled, UINT32* Served, void* Queue, void* CommandWord,
                                       UINT8*, UINT32*, void* Table) {
            EXPECT_EQ(Ready, &mReadyForNextRtPprReq);
            EXPECT_EQ(Enabled, TRUE);
            EXPECT_EQ(Mailbox, mPspMboxSmmBuffer);
            EXPECT_EQ(Flag, mPspMboxSmmFlagAddr);
            EXPECT_EQ(static_cast<UINT8*>(CommandWord), static_cast<UINT8*>(Queue) + 4);
            std::memset(Queue, 0x5A, 164);
            *Served = Current->Served;
            std::memcpy(Table, Current->Table, sizeof(Current->Table));
            Current->Tell(fmt::format("runtime {}", Type));
            return EFI_SUCCESS;
        };
        for (unsigned At = 0; At < 8; At++) {
            Table[At].McaBankNumber = 20 + At;
            Table[At].NormalizedAddress = 0x100000040 + At * 0x100000;
            Table[At].Socket = 1;
            Table[At].UmcChannel = 3;
            Table[At].Row = 0x10 + At;
        }
    }
    // A request that the PSP has finished.
    void Serve(unsigned Count) {
        Served = Count;
        MemoryError Error;
        ASSERT_EQ(VornElogSmmRequestPpr(&Error.Data, PPR_WARNING), EFI_SUCCESS);
        TakeStory();
    }
    UINT32& PspBaseAddress() {
        return Umc.Register(0x13B102E0 % FakeUmc::CHANNEL, 0x13B102E0 / FakeUmc::CHANNEL);
    }

    FakeServices Services;
    FakeUmc& Umc;
    VORN_ELOG_IPMI_SMM_PROTOCOL Ipmi{};
    KYR_RUNTIME_PPR_SERVICE_SMM_PROTOCOL* Service = nullptr;
    EFI_STATUS InstallStatus = EFI_SUCCESS;
    UINT32 Served = 0;
    RUNTIME_PPR_CHECK_ENTRY Table[8] = {};

 private:
    static inline RepairMachine* Current = nullptr;
};

TEST(RuntimePprInit, TakesWhatItNeedsOrNothing) {
    struct Case {
        const char* Name;
        void (*Break)(RepairMachine& Machine);
        EFI_STATUS Expected;
        bool IsEnabled;
    };
    for (const Case& Test : {
             Case{"started", [](auto&) {}, EFI_SUCCESS, true},
             Case{"the other switch",
                  [](auto&) {
                      mPlatformApeiData->RuntimePprEnable[0] = 1, mPlatformApeiData->RuntimePprEnable[1] = 0;
                  },
                  EFI_SUCCESS, true},
             Case{"not wanted", [](auto&) { mPlatformApeiData->RuntimePprEnable[1] = 0; }, EFI_SUCCESS, false},
             Case{"no first block", [](auto& Machine) { Machine.Services.FailAllocation = 1; }, EFI_OUT_OF_RESOURCES,
                  false},
             Case{"no second block", [](auto& Machine) { Machine.Services.FailAllocation = 2; }, EFI_OUT_OF_RESOURCES,
                  false},
             Case{"not installed", [](auto& Machine) { Machine.InstallStatus = EFI_ABORTED; }, EFI_ABORTED, false},
             Case{"no mailbox", [](auto& Machine) { Machine.PspBaseAddress() = 0x000FFFFF; }, EFI_NOT_FOUND, false},
             Case{"no IO hub", [](auto&) { mRbBusMap->RbCount = 0; }, EFI_NOT_FOUND, false},
         }) {
        SCOPED_TRACE(Test.Name);
        RepairMachine Machine;
        Test.Break(Machine);
        EXPECT_EQ(RuntimePprInit(), Test.Expected);
        EXPECT_EQ(mRtPprEn, Test.IsEnabled);
        EXPECT_EQ(mPlatformApeiData->RuntimePprEnable[0] | mPlatformApeiData->RuntimePprEnable[1], Test.IsEnabled);
        EXPECT_EQ(Machine.Services.LiveBlocks, Test.IsEnabled ? 2u : 0u);
        EXPECT_EQ(Machine.Service != nullptr, Test.IsEnabled);
        for (const auto& [Block, Size] : Machine.Services.Blocks) {
            EXPECT_EQ(Size, 164u);
            EXPECT_THAT(std::vector<UINT8>(static_cast<UINT8*>(Block), static_cast<UINT8*>(Block) + Size),
                        testing::Each(0));
        }
        if (Test.IsEnabled) {
            EXPECT_EQ(mPspBiosMboxCmdRegAddr, 0xE0010970u);
            EXPECT_EQ(Machine.Service->PspRuntimePprCompletion, PspRuntimePprCompletion);
        }
        EXPECT_EQ(Machine.Sim.Traced("[RAS Runtime PPR]RuntimePprInit: Runtime Post Package Repair is disabled"),
                  true)
            << "the machine's own start";
        EXPECT_EQ(Machine.Sim.Traced("[RAS Runtime PPR] Disable Runtime PPR. "), Test.Expected != EFI_SUCCESS);
    }
}

TEST(RuntimePpr, AMissedCompletionIsForcedByTheNextRequest) {
    struct Case {
        UINT32 QueueFull;
        UINT8 QueueFront;
        UINT32 CommandWord;
        bool IsForced;
    };
    for (const Case& Test : {Case{1, 3, 0x80000000, true}, Case{0, 3, 0x80000000, false},
                             Case{1, 2, 0x80000000, false}, Case{1, 3, 0x90000000, false}}) {
        SCOPED_TRACE(testing::Message() << Test.QueueFull << " " << +Test.QueueFront << " " << Test.CommandWord);
        RepairMachine Machine;
        ASSERT_EQ(RuntimePprInit(), EFI_SUCCESS);
        Machine.Serve(1);
        mQueueFull = Test.QueueFull;
        mQueueFront = Test.QueueFront;
        mRtPprReqDataBlock->PspCommandWord = Test.CommandWord;
        MemoryError Error;
        EXPECT_EQ(VornElogSmmRequestPpr(&Error.Data, PPR_CRITICAL), EFI_SUCCESS);
        const Story Told = Machine.TakeStory();
        EXPECT_EQ(std::count(Told.begin(), Told.end(), "health row 10 result 1"), Test.IsForced);
        EXPECT_EQ(Told.back(), "runtime 2");
    }
}

TEST(RepairVerification, AStuckScrubberIsToldAndTheVerificationGoesOn) {
    for (const bool IsOn : {false, true}) {
        RepairMachine Machine;
        ASSERT_EQ(RuntimePprInit(), EFI_SUCCESS);
        Machine.Serve(1);
        Machine.Umc.Register(FakeUmc::SCRUB_CTRL, 3) = IsOn ? 0x100 : 0;
        Machine.Umc.IsScrubberStuck = true;
        mPspRtPprComplFlag = TRUE;
        EXPECT_EQ(IsRtPprRepairedSuccess(), TRUE);
        EXPECT_TRUE(Machine.Sim.Traced(IsOn ? "Disable patrol scrubber: Failed" : "Enable patrol scrubber: Failed"));
        EXPECT_THAT(Machine.TakeStory(), testing::Contains("health row 10 result 1"));
    }
}

TEST(RepairVerification, WhatCannotBeReachedDoesNotPass) {
    RepairMachine Machine;
    ASSERT_EQ(RuntimePprInit(), EFI_SUCCESS);
    Machine.Table[0].Socket = 2;
    Machine.Table[1].McaBankNumber = 64;
    Machine.Table[2].CpuInfo.ProcessorNumber = 9;  // does not answer
    Machine.Table[3].NormalizedAddress = 0;
    Machine.Table[4].UmcChannel = 12;
    Machine.Serve(9);  // more than the table holds
    mPspRtPprComplFlag = TRUE;
    EXPECT_EQ(IsRtPprRepairedSuccess(), TRUE);
    Story Health;
    for (const std::string& Line : Machine.TakeStory()) {
        if (Line.starts_with("health")) {
            Health.push_back(Line.substr(7));
        }
    }
    EXPECT_THAT(Health, ElementsAre("row 10 result 2", "row 11 result 2", "row 12 result 2", "row 13 result 1",
                                    "row 14 result 2", "row 15 result 1", "row 16 result 1", "row 17 result 1"));
}

}  // namespace

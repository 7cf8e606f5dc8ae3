// How records are filed: classes, full buffers, marks.
#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/MachineCheck/DeferredHistory.h"
#include "Library/VornElogPolicyLib/MachineCheck/ThresholdDisable.h"
#include "Library/VornElogPolicyLib/ProcessErrorRecord.h"
#include "Tests/Library/VornElogPolicyLib/PolicyMachine.h"

static EFI_STATUS File(TestRecord Record) {
    return VornElogSmmProcessErrorRecord(Record.Cper(), &Record.Data);
}

TEST(Filing, LosesRecordsThatCannotBeCopiedAndThoseThatNoBufferTakes) {
    PolicyMachine Machine;
    const std::uint64_t Blocks = Machine.Blocks();
    for (const std::uint64_t Skip : {0, 1}) {
        Machine.Fail("SmmAllocatePool", EFI_OUT_OF_RESOURCES, 1, Skip);
        File(ProcessorRecord(UC));
        EXPECT_EQ(Machine.Blocks(), Blocks) << Skip;
    }
    for (unsigned Count = 0; Count < 769; Count++) {
        File(ProcessorRecord(UC));
    }
    FINITE_BUFFER* const Buffer = Policy.pMcaUncorrectedFiniteBuffer;
    EXPECT_EQ(Buffer->Tail, 768u);
    EXPECT_TRUE(Machine.Traced("ERROR adding element to finite buffer"));
    TestRecord(gCperSectionPcieGuid, 0, 208).Into(Policy.pPciFiniteBuffer);
    VornElogSmmClearErrorRecordBuffersMca();
    EXPECT_TRUE(FiniteBufferIsEmpty(Buffer));
    EXPECT_EQ(Machine.Blocks(), Blocks + 4);  // the lost record and the PCI one
    VornElogSmmClearErrorRecordBuffersPci();
    EXPECT_TRUE(FiniteBufferIsEmpty(Policy.pPciFiniteBuffer));
    EXPECT_EQ(Machine.Blocks(), Blocks + 2);

    Policy.pMcaUncorrectedFiniteBuffer = nullptr;
    File(ProcessorRecord(UC));
    VornElogSmmClearErrorRecordBuffersMca();
    EXPECT_EQ(Machine.Blocks(), Blocks + 4);
}

TEST(ThresholdDisable, CarriesTheFrontOfTheScanAsItLies) {
    ProcessorRecord Record(0);
    RasMcaErrorInfo& Info = Record.Data.MachineCheck.RasMcaErrorInfo;
    std::memset(&Info.CpuInfo, 0x5A, sizeof(Info.CpuInfo));
    Info.McgIp = 0x1122334455667788;
    Info.McaBankErrorInfo[1].McaBankNumber = 0x99AABBCCDD;
    const MCA_THRESHOLD_DISABLE_REQUEST Request = VornElogSmmThresholdDisableRequest(Record.Data, 1);
    EXPECT_EQ(Simulator::HexBytes(reinterpret_cast<const UINT8*>(&Request) + 38, 18),
              "5A 5A 88 77 66 55 44 33 22 11 DD CC BB AA 01 00 00 00");
}

static bool IsKnown(UINT64 Address, UINT32 Mode) {
    BOOLEAN Found = 7;
    EXPECT_EQ(VornElogSmmIsDeferredErrorPreviouslyLogged(Mode, Address, &Found), EFI_SUCCESS);
    return Found != 0;
}

TEST(DeferredHistory, ModesAskForDifferentMarksAndNothingIsReadPastARecord) {
    PolicyMachine Machine;
    MemoryRecord(0, 0x1000, 0).Into(Policy.pMcaDeferredCircularBuffer)->PoisonDetectionReported = 1;
    MemoryRecord(0, 0x2000, 0).Into(Policy.pMcaDeferredCircularBuffer)->PoisonConsumptionReported = 1;
    const bool Expected[4][2] = {{true, false}, {false, true}, {true, true}, {false, false}};
    for (UINT32 Mode = 0; Mode < 4; Mode++) {
        EXPECT_EQ(IsKnown(0x1005, Mode), Expected[Mode][0]) << Mode;
        EXPECT_EQ(IsKnown(0x203F, Mode), Expected[Mode][1]) << Mode;
    }
    EXPECT_FALSE(IsKnown(0, AnyCachelineMatch));
    TestRecord Short(gCperSectionPlatformMemoryGuid, 0, 23);  // the address's last byte is missing
    Short.Put(216, 0x3000, 7).Into(Policy.pMcaDeferredCircularBuffer);
    EXPECT_FALSE(IsKnown(0x3000, AnyCachelineMatch));
    EXPECT_TRUE(IsKnown(0, AnyCachelineMatch));
}

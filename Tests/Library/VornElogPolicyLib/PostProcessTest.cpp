// What happens to filed records at the end of an SMI.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/MachineCheck/MachineCheckSel.h"
#include "Library/VornElogPolicyLib/MachineCheck/PostProcessCorrected.h"
#include "Library/VornElogPolicyLib/MachineCheck/PostProcessDeferred.h"
#include "Library/VornElogPolicyLib/MachineCheck/PostProcessUncorrected.h"
#include "Library/VornElogPolicyLib/Notification/Cleanup.h"
#include "Library/VornElogPolicyLib/ProcessErrorRecord.h"
#include "Tests/Library/VornElogPolicyLib/PolicyMachine.h"

using testing::ElementsAre;

static void File(TestRecord Record) {
    VornElogSmmProcessErrorRecord(Record.Cper(), &Record.Data);
}

TEST(PostProcessCorrected, DiagnosticModeLogsEachNewestFirstAndTellsTheOsOfTheOldest) {
    PolicyMachine Machine(true);
    ProcessorRecord Older(0, 0, 2, 2), Newer(TRANSPARENT, 0, 3, 4);
    File(Older);
    File(Newer);
    VornElogSmmPostProcessErrorRecordsCorrected();
    VornElogSmmLogMachineCheckData(&Newer.Data);
    const auto Sel = Machine.MachineCheckSel();
    ASSERT_EQ(Sel.size(), 3u);
    EXPECT_EQ(Sel[0], Sel[2]);
    EXPECT_NE(Sel[0], Sel[1]);
    EXPECT_THAT(Machine.Sim.LoggedRecords(), ElementsAre(Older.Bytes));

    VornElogSmmClearErrorRecordBuffersMca();
    VornElogSmmPostProcessErrorRecordsCorrected();
    EXPECT_EQ(Machine.Sim.LoggedRecords().size(), 1u);
    VornElogSmmPostProcessCleanup();
    EXPECT_THAT(Machine.Events("sci", "cause"), ElementsAre("0x20000000"));
}

TEST(PostProcessDeferred, APoisonReportOfTheLineSilencesTheProcessorsRecord) {
    // The address is compared without its top byte.
    for (const auto& [Address, Logged] : {std::pair<UINT64, unsigned>{0xFF000000000012BF, 0}, {0x12C0, 1}}) {
        PolicyMachine Machine;
        auto* Report = MemoryRecord(0, 0x1280, 0).Into(Policy.pMcaDeferredCircularBuffer);
        Report->PoisonDetectionReported = 1;
        Report->Processed = 1;
        const auto* Entry = ProcessorRecord(DEFERRED, Address).Into(Policy.pMcaDeferredCircularBuffer);
        VornElogSmmPostProcessErrorRecordsDeferred();
        EXPECT_EQ(Machine.MachineCheckSel().size(), Logged);
        EXPECT_EQ(Entry->Processed, 1);
    }
}

TEST(PostProcessUncorrected, OnlyMemoryRecordsAreMarkedAndOnlyValidAddressesLookedUp) {
    for (const bool HasAddress : {true, false}) {
        PolicyMachine Machine;
        ProcessorRecord Foretold(DEFERRED, 0, 0), Fatal(UC | (HasAddress ? ADDRV : 0), 0x1000, 1, 2);
        Foretold.Put(208, 0x0400).Put(216, 0x1000).Into(Policy.pMcaDeferredCircularBuffer);
        File(Fatal);
        VornElogSmmPostProcessErrorRecordsUncorrected();
        const auto Logged = Machine.Sim.LoggedRecords();
        EXPECT_EQ(Logged, HasAddress ? std::vector({Fatal.Bytes, Foretold.Bytes}) : std::vector({Fatal.Bytes}));
    }
}

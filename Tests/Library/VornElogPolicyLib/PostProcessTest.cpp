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
using testing::IsEmpty;

static void File(TestRecord Record) {
    VornElogSmmProcessErrorRecord(Record.Cper(), &Record.Data);
}

TEST(MachineCheckSel, NamesTheSocketTheLowByteOfTheApicIdAndTheSeverity) {
    PolicyMachine Machine;
    CPU_INFO Cpu{};
    Cpu.LocalApicId = 0x1A3;
    Cpu.SocketId = 1;
    MCA_BANK_ERROR_INFO Bank{};
    for (const UINT64 Status : {UINT64{0}, UC, PCC, DEFERRED}) {
        Bank.McaStatus = Status;
        VornElogSmmMcBankData(&Cpu, &Bank);
    }
    EXPECT_THAT(Machine.MachineCheckSel(),
                ElementsAre("07 3C 6F AC 02 A3", "07 0D 07 A6 02 A3", "07 0D 07 A6 02 A3", "07 3C 6F AC 02 A3"));
    // The location follows the event, the registers the location: MCA_IPID of bank 0 first.
    const auto Sel = Machine.Sel();
    EXPECT_THAT(std::vector(Sel.begin(), Sel.begin() + 6),
                ElementsAre("07 3C 6F AC 02 A3", "C1 28 7E A3 01 00", "C1 28 7E 00 00 00", "C1 28 7E 00 00 00",
                            "C1 28 7E 00 00 01", "C1 28 7E 05 20 00"));

    Machine.Forget();
    Machine.Fail("GetPhysicalCpuInfo");
    const ProcessorRecord Record(0);
    VornElogSmmLogMachineCheckData(&Record.Data);
    VornElogSmmLogMachineCheckData(nullptr);
    EXPECT_THAT(Machine.Sel(), IsEmpty());
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

TEST(PostProcessDeferred, ProcessorRecordsAreLoggedOnceAndNeverToldToTheOs) {
    PolicyMachine Machine;
    for (const UINT64 Address : {0x1000, 0x2000}) {
        File(ProcessorRecord(DEFERRED, Address, 0, 2));
        VornElogSmmPostProcessErrorRecordsDeferred();
        VornElogSmmPostProcessErrorRecordsDeferred();
    }
    EXPECT_EQ(Machine.MachineCheckSel().size(), 2u);
    EXPECT_TRUE(Machine.Traced("Previously processed - halt further processing"));
    EXPECT_THAT(Machine.Sim.LoggedRecords(), IsEmpty());
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

TEST(PostProcessDeferred, APoisonCreationSendsItsSelEventAndInDiagnosticModeTheBank) {
    for (const bool IsDiagnostic : {false, true}) {
        PolicyMachine Machine(IsDiagnostic);
        ProcessorRecord Bank(DEFERRED);
        MemoryRecord Memory(0, 0, 0);
        VornElogSmmPostProcessErrorRecordDeferredMemory(nullptr, &Bank.Data, TRUE);
        VornElogSmmPostProcessErrorRecordDeferredMemory(Memory.Cper(), &Memory.Data, FALSE);
        EXPECT_FALSE(Machine.Traced("VornElogSmmRequestPpr: PPR type 3, supported"));
        VornElogSmmPostProcessErrorRecordDeferredMemory(Memory.Cper(), &Bank.Data, TRUE);
        EXPECT_EQ(Machine.Events("sel", "bytes", "D5 14 74 44 ").size(), 2u);
        EXPECT_EQ(Machine.MachineCheckSel().size(), IsDiagnostic ? 2u : 0u);
        EXPECT_EQ(Machine.Traced("VornElogSmmRequestPpr: PPR type 3, supported"), !IsDiagnostic);
    }
}

TEST(PostProcessUncorrected, ConsumedPoisonIsReportedOnceWithTheRecordThatForetoldIt) {
    PolicyMachine Machine;
    MemoryRecord Foretold(0, 0x185D960D40, 0);
    const auto* Deferred = Foretold.Into(Policy.pMcaDeferredCircularBuffer);
    MemoryRecord(0, 0x185D960D80, 0).Into(Policy.pMcaDeferredCircularBuffer);
    ProcessorRecord Newest(UC | ADDRV, 0x3F0000185D960D7F, 1, 2);
    File(ProcessorRecord(UC | ADDRV, 0x185D960D40, 0, 4));  // a second consumer in the same SMI
    File(Newest);
    VornElogSmmPostProcessErrorRecordsUncorrected();
    EXPECT_EQ(Machine.MachineCheckSel().size(), 1u);
    EXPECT_EQ(Deferred->PoisonConsumptionReported, 1);
    Foretold.Put(208, 0x0000000000041A00);
    EXPECT_THAT(Machine.Sim.LoggedRecords(), ElementsAre(Newest.Bytes, Foretold.Bytes));
    EXPECT_THAT(Machine.Events("ghes-log", "severity"), ElementsAre("0x1", "0x0"));
    VornElogSmmClearErrorRecordBuffersMca();
    VornElogSmmPostProcessCleanup();

    // Later consumers say nothing; one of another line does.
    Machine.Forget();
    File(ProcessorRecord(UC | ADDRV, 0x185D960D40, 1, 4));
    MemoryRecord(0x02, 0x185D960D48, 1).Into(Policy.pMcaUncorrectedFiniteBuffer);
    VornElogSmmPostProcessErrorRecordsUncorrected();
    VornElogSmmPostProcessCleanup();
    EXPECT_THAT(Machine.Sel(), IsEmpty());
    EXPECT_THAT(Machine.Events("ghes-log", "severity"), IsEmpty());
    EXPECT_THAT(Machine.Events("sci", "cause"), IsEmpty());
    MemoryRecord(0x02, 0x185D960D80, 1).Into(Policy.pMcaUncorrectedFiniteBuffer);
    VornElogSmmPostProcessErrorRecordsUncorrected();
    EXPECT_THAT(Machine.Events("ghes-log", "severity"), ElementsAre("0x1", "0x0"));
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

TEST(PostProcess, FailingServicesAndMissingBuffersStopNothing) {
    PolicyMachine Machine(true);
    Machine.Fail("ElogLogCper");
    for (const UINT64 Status : {UC, UINT64{0}, UC}) {
        File(ProcessorRecord(Status, 0, 1, 2));
    }
    VornElogSmmPostProcessErrorRecordsCorrected();
    VornElogSmmPostProcessErrorRecordsUncorrected();
    VornElogSmmPostProcessErrorRecordUncorrectedReporting(nullptr, nullptr);
    EXPECT_EQ(Machine.MachineCheckSel().size(), 3u);
    EXPECT_TRUE(Machine.Traced("ERROR pBufferEntryUncorrected is NULL, aborting..."));
    Policy.pMcaCorrectedFiniteBuffer = nullptr;
    Policy.pMcaUncorrectedFiniteBuffer = nullptr;
    Policy.pMcaDeferredCircularBuffer = nullptr;
    VornElogSmmPostProcessErrorRecordsCorrected();
    VornElogSmmPostProcessErrorRecordsDeferred();
    VornElogSmmPostProcessErrorRecordsUncorrected();
    VornElogSmmClearErrorRecordBuffersMca();
    VornElogSmmPostProcessCleanup();
    EXPECT_EQ(Machine.MachineCheckSel().size(), 3u);
    EXPECT_THAT(Machine.Events("sci", "cause"), IsEmpty());
}

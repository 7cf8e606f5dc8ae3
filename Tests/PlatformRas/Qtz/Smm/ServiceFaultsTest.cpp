// Services and allocations that fail while errors are handled: the run goes on, nothing is written that should not
// be, nothing leaks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Tests/PlatformRas/Qtz/Smm/MachineCheckStory.h"

namespace {

// A deferred error's record and chipset data stay in the history, the corrected one's entry and its node in the storm
// queue.
constexpr std::uint64_t KEPT_OF_STORY = 4;

struct FailingCase {
    const char* Name;
    const char* Member;
    EFI_STATUS Status;
    StoryOutcome Came;
    std::uint64_t Kept = KEPT_OF_STORY;
};
void PrintTo(const FailingCase& One, std::ostream* Out) {
    *Out << One.Member;
}

class FailingService : public testing::TestWithParam<FailingCase> {};

TEST_P(FailingService, CostsNoMoreThanItsOwnWork) {
    const FailingCase& Case = GetParam();
    BootedSimulation Sim(DiagnosticConfiguration());
    const std::uint64_t AtBoot = Sim->Pool().LiveBlocks;
    Sim->SetFailure(Case.Member, Simulator::Failure{Case.Status});
    RunStory(Sim);
    EXPECT_EQ(OutcomeOf(Sim), Case.Came);
    EXPECT_EQ(Sim->Pool().LiveBlocks - AtBoot, Case.Kept);
}

// In the order of StoryOutcome: records, sel, sends, logged, sci, mce, cloak, clear, rearm.
const FailingCase CASES[] = {
    {"None", "SetMcaThresholdMap", EFI_DEVICE_ERROR, WHOLE_STORY},
    {"AllocatePool", "SmmAllocatePool", EFI_OUT_OF_RESOURCES, NOTHING, 0},
    {"LocalSmiStatus", "GetAllLocalSmiStatus", EFI_DEVICE_ERROR, NOTHING, 0},
    // The OS's write is handled without a scan.
    {"SearchMcaError", "SearchMcaError", EFI_DEVICE_ERROR, {0, 0, 0, 0, 0, 0, 1, 1, 1}, 0},
    {"ExitType", "RasSmmExitType", EFI_DEVICE_ERROR, {3, 75, 3, 2, 2, 0, 2, 3, 2}},
    // Which register trapped stays unknown: nothing is cloaked, cleared or armed after the write.
    {"SaveState", "GetSmmSaveState", EFI_DEVICE_ERROR, {3, 75, 3, 2, 2, 1, 1, 2, 1}},
    {"CloakCfg", "SetMcaCloakCfg", EFI_DEVICE_ERROR, {3, 75, 3, 2, 2, 1, 0, 3, 2}},
    {"ClearStatus", "ClrMcaStatus", EFI_DEVICE_ERROR, {3, 75, 3, 2, 2, 1, 2, 0, 2}},
    {"Threshold", "SetMcaThreshold", EFI_DEVICE_ERROR, {3, 75, 3, 2, 2, 1, 2, 3, 0}},
    {"CpuInfo", "GetPhysicalCpuInfo", EFI_DEVICE_ERROR, {3, 0, 0, 2, 2, 1, 2, 3, 2}},
    {"LogBmcData", "LogBmcData", EFI_DEVICE_ERROR, {3, 0, 0, 2, 2, 1, 2, 3, 2}},
    // The event log's protocols are looked for at each send, the first event's too.
    {"SmmLocate", "SmmLocateProtocol", EFI_NOT_FOUND, {3, 0, 0, 2, 2, 1, 2, 3, 2}},
    {"GetSelRecords", "GetSelRecords", EFI_DEVICE_ERROR, {3, 75, 0, 2, 2, 1, 2, 3, 2}},
    {"DisplaySelRecords", "DisplaySelRecords", EFI_DEVICE_ERROR, WHOLE_STORY},
    {"SendSel", "SendConsolidatedOemCommand", EFI_DEVICE_ERROR, {3, 75, 0, 2, 2, 1, 2, 3, 2}},
    {"ClearSelRecords", "ClearSelRecords", EFI_DEVICE_ERROR, WHOLE_STORY},
    {"IsApeiOsLoaded", "ElogIsApeiOsLoaded", EFI_DEVICE_ERROR, {3, 75, 3, 0, 0, 1, 2, 3, 2}},
    {"ClearGhes", "ElogClearGhes", EFI_DEVICE_ERROR, {3, 75, 3, 0, 0, 1, 2, 3, 2}},
    {"NothingToClear", "ElogClearGhes", EFI_NOT_READY, WHOLE_STORY},
    // No record reached the OS: no interrupt sends it looking.
    {"LogCper", "ElogLogCper", EFI_DEVICE_ERROR, {3, 75, 3, 0, 0, 1, 2, 3, 2}},
    {"LogCperBusy", "ElogLogCper", EFI_ALREADY_STARTED, {3, 75, 3, 0, 0, 1, 2, 3, 2}},
    {"SignalSci", "ElogSignalSci", EFI_DEVICE_ERROR, {3, 75, 3, 2, 0, 1, 2, 3, 2}},
};
INSTANTIATE_TEST_SUITE_P(Each, FailingService, testing::ValuesIn(CASES),
                         [](const auto& Case) { return std::string(Case.param.Name); });

// A pool that takes nothing back: every block is reported, all errors are handled all the same.
TEST(FailingFree, IsReportedAndChangesNothingElse) {
    BootedSimulation Sim(DiagnosticConfiguration());
    Sim->SetFailure("SmmFreePool", Simulator::Failure{});
    RunStory(Sim);
    EXPECT_EQ(OutcomeOf(Sim), WHOLE_STORY);
    EXPECT_TRUE(Sim.Traced("KyrMcetoSmiCallback: ERROR Device Error returned by SmmFreePool\n"));
    EXPECT_TRUE(Sim.Traced("ERROR Device Error from SmmFreePool for Element 0 CPER\n"));
}

// The events of the run's SMIs, each SMI's apart. Files are numbered over the run and left out.
std::vector<std::string> EventsBySmi(BootedSimulation& Sim) {
    std::vector<std::string> Smis;
    for (const Simulator::Event& One : Sim->Events().Events()) {
        if (One.Kind == "smi-enter") {
            Smis.emplace_back();
        }
        if (!Smis.empty()) {
            auto Fields = One.Fields;
            Fields.erase("file");
            Smis.back() += One.Kind + " " + Fields.dump() + "\n";
        }
    }
    return Smis;
}

std::vector<std::size_t> BlocksBySmi(BootedSimulation& Sim) {
    std::vector<std::size_t> Left;
    Sim.Fail(CorrectedError());
    Left.push_back(Sim->BlocksLeftByLastSmi().size());
    Sim.Fail(DeferredError());
    Left.push_back(Sim->BlocksLeftByLastSmi().size());
    Sim.Fail(UncorrectedError());
    Left.push_back(Sim->BlocksLeftByLastSmi().size());
    Sim->OsWriteMsr(2, 0xC0002051, 0);
    Left.push_back(Sim->BlocksLeftByLastSmi().size());
    return Left;
}

// Each allocation of the path fails in a run of its own, until a run needs no further one.
TEST(FailingAllocation, CostsNoMoreThanTheErrorItBelongsTo) {
    std::uint64_t OfBoot = 0, Needed = 0;
    std::vector<std::string> Wanted;
    {
        BootedSimulation Sim(DiagnosticConfiguration());
        OfBoot = Sim->Pool().Allocations;
        EXPECT_THAT(BlocksBySmi(Sim), testing::ElementsAre(2, 2, 0, 0));
        Wanted = EventsBySmi(Sim);
        Needed = Sim->Pool().Allocations;
        ASSERT_EQ(Wanted.size(), 4u);
    }
    // The list of sources in each SMI; for each of the three errors node, error information, context and its node,
    // record, and the copies of record and chipset data; for the corrected one storm control's entry, its copy and
    // node.
    EXPECT_EQ(Needed - OfBoot, 4 + 3 * 7u + 3);

    for (std::uint64_t Number = 1; Number <= Needed; Number++) {
        SCOPED_TRACE("allocation " + std::to_string(Number));
        Simulator::Configuration Settings = DiagnosticConfiguration();
        Settings.FailAllocation = Number;
        BootedSimulation Sim(Settings);
        ASSERT_EQ(Sim.EntryStatus(), EFI_SUCCESS) << "no allocation stops the start";
        const std::vector<std::size_t> Left = BlocksBySmi(Sim);
        const std::vector<std::string> Came = EventsBySmi(Sim);
        ASSERT_EQ(Sim.Count("alloc-fail"), 1u);
        ASSERT_EQ(Came.size(), Wanted.size());

        // A buffer that could not be had at boot refuses its records, whose copies stay allocated then.
        const auto Refused = [&](const char* Text) { return Sim.Traced(Text) ? 2u : 0u; };
        // An entry that was copied but got no node stays too.
        const QUEUE* const Storm = mPrivateDataVornElogPolicyLib.SmiStormQueue;
        const std::size_t Remembered = (Storm == nullptr ? 0 : 2 * Storm->NumElements) +
                                       (Sim.Traced("memory for queue node (empty queue), aborting...") ? 1 : 0);
        EXPECT_EQ(Left[0], Refused("ERROR adding error to mPrivateDataVornElogPolicyLib.pMcaCorrectedFiniteBuffer") +
                               Remembered);
        const bool IsFiled = Came[1].find("\nsel ") != std::string::npos;
        EXPECT_EQ(Left[1], IsFiled ? 2u : Refused("to mPrivateDataVornElogPolicyLib.pMcaDeferredCircularBuffer"));
        EXPECT_EQ(Left[2], Refused("ERROR adding element to finite buffer"));
        EXPECT_EQ(Left[3], 0u);

        // Other SMIs see nothing of it.
        for (std::size_t Smi = 0; Smi < Wanted.size() && Number > OfBoot; Smi++) {
            const bool FailedHere = Came[Smi].find("alloc-fail") != std::string::npos;
            EXPECT_EQ(Came[Smi] == Wanted[Smi], !FailedHere) << "SMI " << Smi << " came as\n" << Came[Smi];
        }
    }
}

}  // namespace

// Services, allocations and registers that fail while memory errors are counted and repaired: the run goes on, no
// count is lost, no row leaks.
#include <gtest/gtest.h>

#include "Library/RasLib/Globals.h"
#include "Library/VornElogPolicyLib/Memory/RowHistory.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Simulator/Machine/Machine.h"
#include "Tests/Support/BootedSimulation.h"

namespace {

// 8 / 32 = 0, raised to 1: every error asks for its SMI. Pages at 1 error, warning at 4, critical at 8.
constexpr unsigned THRESHOLD = 8;

Simulator::Configuration MemoryConfiguration() {
    Simulator::Configuration Settings;
    Settings.Dram.DimmThreshold = THRESHOLD;
    Settings.Apei["RuntimePprEnable"] = 1;
    Settings.Attributes["CECriticalSEL"] = "Enabled";
    Settings.Attributes["PPROnUCE"] = "Enabled";
    return Settings;
}

// A row of socket 0, channel 0, DIMM 0 walks through its thresholds, the PSP repairs it, and data of channel 1 are
// poisoned.
void RunMemoryStory(BootedSimulation& Sim) {
    Simulator::MemoryError Row;
    Row.Where.Row = 0x1000;
    Row.Symbol = 18;
    for (unsigned Error = 0; Error < THRESHOLD; Error++) {
        Sim->InjectMemoryError(Row, 1);
        Sim->RaiseSmi("machine-check");
    }
    Sim->FinishRuntimeRepair({});
    Simulator::MemoryError Poison;
    Poison.Where.Channel = 1;
    Poison.Where.Row = 0x2000;
    Poison.Kind = Simulator::MemoryErrorKind::Deferred;
    Sim->InjectMemoryError(Poison, 1);
    Sim->RaiseSmi("machine-check");
}

// What succeeded since the boot.
struct MemoryOutcome {
    UINT32 Counted = 0;         // errors of the rank
    std::size_t Restarted = 0;  // counters
    std::size_t Retired = 0;    // pages
    std::size_t Created = 0;    // repairs
    std::size_t Stored = 0;     // repairs
    std::size_t Started = 0;    // repairs at run time
    std::size_t Verified = 0;   // runs of the verification that were reported
    std::size_t Health = 0;     // health events
    std::size_t Sel = 0;        // critical threshold, poison
    std::size_t Logged = 0;     // records in GHES
    std::size_t Sci = 0;
    std::size_t Off = 0;  // DIMMs whose counters were switched off

    bool operator==(const MemoryOutcome&) const = default;
};
void PrintTo(const MemoryOutcome& One, std::ostream* Out) {
    *Out << "counted " << One.Counted << " restarted " << One.Restarted << " retired " << One.Retired << " created "
         << One.Created << " stored " << One.Stored << " started " << One.Started << " verified " << One.Verified
         << " health " << One.Health << " sel " << One.Sel << " logged " << One.Logged << " sci " << One.Sci
         << " off " << One.Off;
}

MemoryOutcome OutcomeOf(BootedSimulation& Sim) {
    const std::map<std::string, std::string> Success{{"status", "EFI_SUCCESS"}};
    return {mPrivateDataVornElogPolicyLib.DimmData[0][0][0].Rank[0].CeccPfaCurrentErrorCount,
            Sim.Calls("CorrectedErrorCounterIndividual", Success).size(),
            Sim.Count("page-retire"),
            Sim.Count("ppr", {{"phase", "created"}}),
            Sim.Count("ppr", {{"phase", "stored"}}),
            Sim.Count("runtime-ppr", {{"phase", "started"}}),
            Sim.Count("runtime-ppr", {{"phase", "result"}}),
            Sim.Count("health"),
            Sim.Count("sel"),
            Sim.Count("ghes-log", Success),
            Sim.Count("sci"),
            Sim.Calls("CorrectedErrorCounterPerDimmDisable", Success).size()};
}

// Pool blocks that outlive the story when the rows' histories are emptied, less those of the start.
std::int64_t BlocksLeft(BootedSimulation& Sim) {
    VornElogSmmClearMemoryCeccHashTable(0, 0, 0, 0);
    return static_cast<std::int64_t>(Sim->Pool().LiveBlocks - Sim->BlocksAtBoot());
}

// A deferred error's record and chipset data stay in the history.
constexpr std::int64_t KEPT_OF_DEFERRED = 2;

// One page, retired at the first error. The row is created, stored and started with the warning, is there already
// when it is critical; the poison's row is the second. Health: page, warning, critical, repair, poison.
constexpr MemoryOutcome WHOLE_STORY{8, 8, 1, 2, 2, 2, 1, 5, 2, 3, 3, 1};

struct FailingMember {
    const char* Member;
    MemoryOutcome Came;
    const char* Trace = "ERROR Device Error";  // what the log says
    EFI_STATUS Status = EFI_DEVICE_ERROR;
    std::int64_t Kept = KEPT_OF_DEFERRED;
};

// In the order of MemoryOutcome: counted, restarted, retired, created, stored, started, verified, health, sel,
// logged, sci, off.
const FailingMember MEMBERS[] = {
    {"SetMcaThresholdMap", WHOLE_STORY, ""},
    {"SmmAllocatePool", {}, "ERROR", EFI_OUT_OF_RESOURCES, 0},
    // The row is not known: it has no health event and no repair.
    {"NormalizedToDimmAddress", {8, 8, 1, 0, 0, 0, 0, 0, 2, 3, 3, 1}, "during address translation"},
    // A counter that cannot be started again stays saturated, and its mark is counted with it: 1 + 2 * (FFFF - DEAD).
    {"CorrectedErrorCounterIndividual", {17061, 0, 1, 2, 2, 2, 1, 5, 2, 3, 3, 1}, "from Skt 0 Ch  0 SubCh 0"},
    {"CorrectedErrorCounterPerDimmDisable",
     {8, 8, 1, 2, 2, 2, 1, 5, 2, 3, 3, 0},
     "pKyrRasServiceSmmProtocol->CorrectedErrorCounterPerDimmDisable"},
    // The record that crosses a threshold stands in for the row with most errors.
    {"MapSymbolToDramDevice", WHOLE_STORY, "->MapSymbolToDramDevice, aborting..."},
    {"GetAttributeValue", {8, 8, 1, 1, 1, 1, 1, 5, 1, 3, 3, 1}, "ERROR Not Found", EFI_NOT_FOUND},
    {"LogMemoryHealthData", {8, 8, 1, 2, 2, 2, 1, 0, 2, 3, 3, 1}, "from LogMemoryHealthData"},
    {"LogBmcData", {8, 8, 1, 2, 2, 2, 1, 5, 0, 3, 3, 1}},
    {"GetSlotInfoPtr", WHOLE_STORY, "ERROR Device Error from GetSlotInfoPtr"},
    // Nor is the attribute store found.
    {"SmmLocateProtocol", {8, 8, 1, 1, 1, 1, 1, 0, 0, 3, 3, 1}, "gVornElogIpmi", EFI_NOT_FOUND},
    {"ElogLogPageRetire", {8, 8, 0, 2, 2, 2, 1, 5, 2, 3, 3, 1}},
    {"ElogIsApeiOsLoaded", {8, 8, 0, 2, 2, 2, 1, 5, 2, 0, 0, 1}},
    {"ElogClearGhes", {8, 8, 0, 2, 2, 2, 1, 5, 2, 0, 0, 1}},
    {"ElogLogCper", {8, 8, 1, 2, 2, 2, 1, 5, 2, 0, 0, 1}},
    {"ElogSignalSci", {8, 8, 1, 2, 2, 2, 1, 5, 2, 3, 0, 1}},
    {"KyrPostPackageRepairSupported", {8, 8, 1, 0, 0, 0, 0, 4, 2, 3, 3, 1}, "from KyrPostPackageRepairSupported"},
    {"VornPostPackageCreateEntry", {8, 8, 1, 0, 0, 0, 0, 4, 2, 3, 3, 1}, "from VornPostPackageCreateEntry"},
    {"VornPostPackageRepairUpdateToUefiVariable", {8, 8, 1, 2, 0, 2, 1, 5, 2, 3, 3, 1}, "UpdateToUefiVariable"},
    {"VornRuntimePPRHandler", {8, 8, 1, 2, 2, 0, 0, 4, 2, 3, 3, 1}, "from VornRuntimePPRHandler"},
    {"RuntimePprResult", {8, 8, 1, 2, 2, 2, 0, 5, 2, 3, 3, 1}, "reporting to OEM RAS protocol"},
    {"SmmLocateHandle", {8, 8, 1, 2, 2, 2, 0, 5, 2, 3, 3, 1}, "locating gKyrJrvRasOemSmmProtocolGuid"},
    {"SmmHandleProtocol", {8, 8, 1, 2, 2, 2, 0, 5, 2, 3, 3, 1}, "reporting to OEM RAS protocol", EFI_NOT_FOUND},
    {"SetMcaThreshold", WHOLE_STORY, "ERROR Device Error from RtPprAdjustErrCounter"},
    // The poison's SMI finds the bank as it was: no new errors count as too many.
    {"ClrMcaStatus", {0xFFFFFFFF, 8, 1, 2, 2, 2, 1, 5, 2, 3, 3, 1}, "ClrMcaStatus on Processor 0 Bank 15"},
};

TEST(MemoryFaults, AServiceThatFailsCostsNoMoreThanItsOwnWork) {
    for (const FailingMember& Case : MEMBERS) {
        SCOPED_TRACE(Case.Member);
        BootedSimulation Sim(MemoryConfiguration());
        Sim->SetFailure(Case.Member, Simulator::Failure{Case.Status});
        RunMemoryStory(Sim);
        EXPECT_EQ(OutcomeOf(Sim), Case.Came);
        EXPECT_TRUE(Sim.Traced(Case.Trace)) << Case.Trace;
        EXPECT_EQ(BlocksLeft(Sim), Case.Kept);
    }
}

// A pool that takes nothing back: every block is reported, everything is done all the same.
TEST(MemoryFaults, APoolThatTakesNothingBackChangesNothingElse) {
    BootedSimulation Sim(MemoryConfiguration());
    Sim->SetFailure("SmmFreePool", Simulator::Failure{});
    RunMemoryStory(Sim);
    EXPECT_EQ(OutcomeOf(Sim), WHOLE_STORY);
    for (const char* Text : {"VornElogSmmClearMemoryCeccHashTable: ERROR Device Error from SmmFreePool",
                             "VornElogSmmProcessMemoryHealthEventHostEcc: ERROR Device Error from SmmFreePool",
                             "ReportRuntimePprResults: ERROR Device Error from SmmFreePool"}) {
        EXPECT_TRUE(Sim.Traced(Text)) << Text;
    }
}

// Each allocation fails in a run of its own, until a run needs no further one.
TEST(MemoryFaults, AnAllocationThatFailsCostsOneErrorAtMost) {
    std::uint64_t OfBoot = 0, Needed = 0;
    {
        BootedSimulation Sim(MemoryConfiguration());
        OfBoot = Sim->Pool().Allocations;
        RunMemoryStory(Sim);
        EXPECT_EQ(OutcomeOf(Sim), WHOLE_STORY);
        Needed = Sim->Pool().Allocations;
        EXPECT_EQ(BlocksLeft(Sim), KEPT_OF_DEFERRED);
    }
    // In each SMI the list of sources, the record and the two copies.
    EXPECT_GT(Needed, OfBoot + (THRESHOLD + 1) * 4);
    for (std::uint64_t Number = 1; Number <= Needed; Number++) {
        SCOPED_TRACE("allocation " + std::to_string(Number));
        Simulator::Configuration Settings = MemoryConfiguration();
        Settings.FailAllocation = Number;
        BootedSimulation Sim(Settings);
        ASSERT_EQ(Sim.EntryStatus(), EFI_SUCCESS);
        RunMemoryStory(Sim);
        EXPECT_EQ(Sim.Count("alloc-fail"), 1u);
        if (Number <= OfBoot) {
            continue;  // what the driver does without a buffer of the start is its start's matter
        }
        const MemoryOutcome Came = OutcomeOf(Sim);
        // An SMI that cannot look leaves its error to the next one, but a saturated counter counts no further; an
        // error whose memory record cannot be had is not counted against its rank.
        EXPECT_GE(Came.Counted, WHOLE_STORY.Counted - 1);
        EXPECT_LE(Came.Counted, WHOLE_STORY.Counted);
        EXPECT_GE(Came.Restarted, WHOLE_STORY.Restarted - 1);
        EXPECT_GE(Came.Created, 1u);
        EXPECT_GE(Came.Health, WHOLE_STORY.Health - 2);
        // It becomes a processor's record, which storm control keeps with an entry of its own.
        const std::size_t Substitutes =
            Sim.Count("record", {{"section", "processor-specific"}, {"header-severity", "0x2"}});
        const std::int64_t Left = BlocksLeft(Sim) - 4 * static_cast<std::int64_t>(Substitutes);
        EXPECT_TRUE(Left == KEPT_OF_DEFERRED || Left == 0) << Left;
    }
}

// No IO hub answers: registers read all ones.
TEST(MemoryFaults, AControllerThatDoesNotAnswerIsNotCountedAndItsRowDoesNotPass) {
    BootedSimulation Sim(MemoryConfiguration());
    struct {
        RB_BUS_MAP Count;
        RB_BUS_ENTRY Entries[1];
    } Silent{};
    Silent.Count.RbCount = 1;
    Silent.Entries[0].RbBusBase = 0x7D;
    RB_BUS_MAP* const Answering = mRbBusMap;
    mRbBusMap = &Silent.Count;
    RunMemoryStory(Sim);
    mRbBusMap = Answering;
    EXPECT_TRUE(Sim.Traced("ERROR UMC:EccErrCntCtrl of Skt 0 Ch  0 does not answer, aborting..."));
    EXPECT_TRUE(Sim.Traced("[RAS Runtime PPR]FindUmc: ERROR UMC channel 0 of socket 0 does not answer"));
    // No number at all: the warning at the first error, critical at the second. No page was counted.
    EXPECT_EQ(OutcomeOf(Sim), (MemoryOutcome{0xFFFFFFFF, 0, 0, 2, 2, 2, 1, 4, 2, 2, 2, 1}));
    EXPECT_EQ(Sim.Events("runtime-ppr", {{"phase", "result"}}).at(0).Fields.at("bytes"), "02");
    EXPECT_EQ(BlocksLeft(Sim), KEPT_OF_DEFERRED);
}

}  // namespace

// A booted machine: the same run twice, memory that is accounted for, the way in and out of SMM.
#include "Simulator/Simulation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "Platform/Protocol/RasService.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/ServiceTables.h"
#include "Tests/Support/BootedSimulation.h"

namespace Simulator {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint64_t UNCORRECTED = 0xBEA0000000000108;

MachineCheck FatalError() {
    MachineCheck Error;
    Error.Processor = 1;
    Error.Bank = 5;
    Error.Status = UNCORRECTED;
    Error.Addr = 0x0001FFFFAD66D6FE;
    Error.Synd = 0x4D000000;
    Error.Ip = 0xFFFFFFFF81012345;
    return Error;
}

TEST(SimulationTest, TheSameRunTwiceLeavesTheSameJournal) {
    std::string Journals[2], Traces[2];
    for (int Run = 0; Run < 2; Run++) {
        BootedSimulation Machine{DiagnosticConfiguration()};
        ASSERT_EQ(Machine.EntryStatus(), EFI_SUCCESS);
        Machine.Fail(FatalError());
        Machine->OsWriteMsr(1, 0x415, 0);
        Machine->HandOverPostErrors(2, {1, 2});
        Journals[Run] = Machine->Events().ToJsonLines();
        Traces[Run] = Machine->TraceLog();
    }
    EXPECT_EQ(Journals[0], Journals[1]);
    const auto Differs = std::mismatch(Traces[0].begin(), Traces[0].end(), Traces[1].begin(), Traces[1].end());
    EXPECT_EQ(std::string(Differs.first, std::find(Differs.first, Traces[0].end(), '\n')), "");
    EXPECT_EQ(Traces[0].size(), Traces[1].size());
    EXPECT_GT(Journals[0].size(), 1000u);
}

// Nothing of the first boot may show in the second one.
TEST(SimulationTest, LoadingRestoresTheDriversState) {
    std::string First, Second;
    {
        BootedSimulation Machine;
        Machine.Fail(FatalError());
        First = Machine->Events().ToJsonLines();
    }
    {
        Configuration Broken;
        Broken.Missing = {"gKyrRasServiceSmmProtocolGuid"};
        BootedSimulation Machine{Broken};
        EXPECT_EQ(Machine.EntryStatus(), EFI_NOT_FOUND);
        EXPECT_THAT(Machine->Firmware().Dangling(), IsEmpty());
        Machine.Fail(FatalError());
        EXPECT_EQ(Machine.Events("smi-exit").back().Fields.at("handlers"), "0x0");
    }
    {
        BootedSimulation Machine;
        Machine.Fail(FatalError());
        Second = Machine->Events().ToJsonLines();
    }
    EXPECT_EQ(First, Second);
}

TEST(SimulationTest, AnUncorrectedErrorComesOutOfSmmAsAnException) {
    BootedSimulation Machine;
    Machine.Forget();
    Machine.Fail(FatalError());
    EXPECT_EQ(Machine.Events("smi-enter")[0].Fields.at("sources").dump(),
              R"([{"processor":"0x1","status":"0x100"}])");
    EXPECT_THAT(Machine.Kinds(), Contains("mce"));
    EXPECT_EQ(Machine.Kinds().back(), "mce") << "the exception follows the exit";
    EXPECT_EQ(Machine->Machine().ProcessorAt(1).SmiSources, 0u) << "served";
    EXPECT_EQ(Machine->OsReadMsr(1, 0xC0002051), UNCORRECTED) << "the OS sees the bank now";
    EXPECT_EQ(Machine->ReadMsrRaw(1, 0x17A) & 4, 4u) << "a machine check is in progress";

    // The OS clears the bank: the write traps, firmware cloaks the bank again and finishes the write.
    Machine.Forget();
    Machine->OsWriteMsr(1, 0xC0002051, 0);
    EXPECT_EQ(Machine.Events("smi-enter")[0].Fields.at("sources").dump(),
              R"([{"processor":"0x1","status":"0x800"}])");
    EXPECT_EQ(Machine->ReadMsrRaw(1, 0xC0002051), 0u);
    EXPECT_EQ(Machine->ReadMsrRaw(1, 0xC0010121), 0xFFFFFFFFu);
    EXPECT_EQ(Machine.Count("mce"), 0u);
}

TEST(SimulationTest, RecordsAreSeenWhereTheyEnterThePolicyEngine) {
    BootedSimulation Machine;
    Machine.Forget();
    Machine.Fail(FatalError());
    const EventList Records = Machine.Events("record");
    ASSERT_EQ(Records.size(), 1u);
    EXPECT_EQ(Records[0].Fields.at("section"), "processor-specific");
    EXPECT_EQ(Records[0].Fields.at("header-severity"), "0x1");
}

TEST(SimulationTest, MemoryThatOutlivesAnSmiIsListed) {
    BootedSimulation Machine;
    EXPECT_FALSE(Machine->BlocksLeftByLastSmi().empty()) << "what the boot allocated";
    const PoolStatistics Booted = Machine->Pool();
    Machine.Fail(FatalError());
    EXPECT_GT(Machine->Pool().Allocations, Booted.Allocations);
    EXPECT_EQ(Machine->Pool().LiveBytes, Booted.LiveBytes);
    EXPECT_THAT(Machine->BlocksLeftByLastSmi(), IsEmpty());
}

TEST(SimulationTest, SwitchedOffJournalAndTraceCostAndKeepNothing) {
    Configuration Settings = DiagnosticConfiguration();
    Settings.TraceLevels = 0;
    Settings.CheckPool = false;
    BootedSimulation Machine{Settings};
    Machine->Events().SetRecording(false);
    Machine.Forget();
    Machine.Fail(FatalError());
    EXPECT_THAT(Machine.Kinds(), IsEmpty());
    EXPECT_EQ(Machine->TraceLog(), "");
    EXPECT_EQ(Machine->LoggedRecords().size(), 1u) << "the machine works all the same";
}

}  // namespace
}  // namespace Simulator

// A booted machine: a driver loaded afresh, and a run without journal and trace.
#include "Simulator/Simulation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Simulator/Firmware/Firmware.h"
#include "Tests/Support/BootedSimulation.h"

namespace Simulator {
namespace {

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

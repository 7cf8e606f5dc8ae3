#include "Library/RasLib/ProcessorAccess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Library/RasLib/Globals.h"
#include "Simulator/Simulation.h"

namespace {

constexpr UINT64 SILENT = 5;

class ProcessorAccess : public testing::Test {
 protected:
    ProcessorAccess() : Machine(Settings()) {
        EXPECT_EQ(Machine.Boot(), EFI_SUCCESS);
    }
    static Simulator::Configuration Settings() {
        Simulator::Configuration Made;
        Made.SilentProcessors = {SILENT};
        return Made;
    }
    Simulator::Simulation Machine;
};

void CountRun(void* Argument) {
    ++*static_cast<int*>(Argument);
}

TEST_F(ProcessorAccess, RunsOnAnyProcessorAndGivesUpOnASilentOne) {
    const UINT64 Count = gSmst->NumberOfCpus;
    ASSERT_EQ(Count, 16u);
    const struct {
        UINT64 Processor;
        EFI_STATUS Status;
        int Runs;
    } Cases[] = {
        {0, EFI_SUCCESS, 1},
        {15, EFI_SUCCESS, 1},
        {16, EFI_INVALID_PARAMETER, 0},
        {UINT64_MAX, EFI_INVALID_PARAMETER, 0},
        {SILENT, EFI_TIMEOUT, 0},
    };
    for (const auto& Case : Cases) {
        int Runs = 0;
        const std::uint64_t Before = Machine.Now();
        EXPECT_EQ(LibRasSmmRunFunc(CountRun, &Runs, Case.Processor), Case.Status);
        EXPECT_EQ(Runs, Case.Runs);
        EXPECT_EQ(Machine.Now() - Before, Case.Status == EFI_TIMEOUT ? 0x1000000u : 0u) << "microseconds stalled";
    }
    EXPECT_THAT(Machine.TraceLog(),
                testing::HasSubstr("[RAS LIB] LibRasSmmRunFunc - A timeout error occurred. AP number: "
                                   "0x00000005., RetryCnt: 0x01000000\n"));
}

}  // namespace

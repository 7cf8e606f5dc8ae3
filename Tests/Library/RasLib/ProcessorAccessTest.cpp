#include "Library/RasLib/ProcessorAccess.h"

#include <gtest/gtest.h>

#include "Simulator/Simulation.h"

namespace {

TEST(ProcessorAccess, RunsOnAnyProcessorAndGivesUpOnASilentOne) {
    Simulator::Configuration Settings;
    Settings.SilentProcessors = {5};
    Simulator::Simulation Machine(Settings);
    ASSERT_EQ(Machine.Boot(), EFI_SUCCESS);
    for (const auto& [Processor, Status] : {std::pair{0, EFI_SUCCESS}, std::pair{15, EFI_SUCCESS},
                                            std::pair{16, EFI_INVALID_PARAMETER}, std::pair{5, EFI_TIMEOUT}}) {
        int Runs = 0;
        const std::uint64_t Before = Machine.Now();
        const auto Count = [](void* Argument) { ++*static_cast<int*>(Argument); };
        EXPECT_EQ(LibRasSmmRunFunc(Count, &Runs, static_cast<UINT64>(Processor)), Status);
        EXPECT_EQ(Runs, Status == EFI_SUCCESS ? 1 : 0);
        EXPECT_EQ(Machine.Now() - Before, Status == EFI_TIMEOUT ? 0x1000000u : 0u) << "microseconds stalled";
    }
}

}  // namespace

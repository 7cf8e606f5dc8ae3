#include "Library/RasLib/ProcessorAccess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Include/McaRegisters.h"
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

TEST_F(ProcessorAccess, ProcessorZeroIsNeverSentFor) {
    EFI_SMM_SYSTEM_TABLE2 NoStartup = *gSmst;
    NoStartup.SmmStartupThisAp = [](EFI_AP_PROCEDURE, UINTN, void*) {
        ADD_FAILURE() << "processor 0 was sent for";
        return EFI_SUCCESS;
    };
    EFI_SMM_SYSTEM_TABLE2* Saved = gSmst;
    gSmst = &NoStartup;
    int Runs = 0;
    EXPECT_EQ(LibRasSmmRunFunc(CountRun, &Runs, 0), EFI_SUCCESS);
    EXPECT_EQ(Runs, 1);
    gSmst = Saved;
}

TEST_F(ProcessorAccess, ReachesTheRegistersOfThatProcessorOnly) {
    RAS_MSR_ACCESS Write{MSR_MCA_CLOAK_CFG, 0x123456789ABCDEF0, 7};
    RasSmmMsrAccess(3, &Write);
    EXPECT_EQ(Machine.ReadMsrRaw(3, MSR_MCA_CLOAK_CFG), 0x123456789ABCDEF0u);
    EXPECT_NE(Machine.ReadMsrRaw(2, MSR_MCA_CLOAK_CFG), 0x123456789ABCDEF0u);
    RAS_MSR_ACCESS Read{MSR_MCA_CLOAK_CFG, 0, 0};
    RasSmmMsrAccess(3, &Read);
    EXPECT_EQ(Read.MsrValue, 0x123456789ABCDEF0u);
    for (const UINT64 Unreached : {UINT64{16}, UINT64{17}, SILENT}) {
        RAS_MSR_ACCESS Untouched{MSR_MCA_CLOAK_CFG, 0xAA, 0};
        RasSmmMsrAccess(Unreached, &Untouched);
        EXPECT_EQ(Untouched.MsrValue, 0xAAu);
    }

    RAS_CPUID_REQUEST Cpuid{1, 0, 0, 0, 0};
    RasSmmCpuidOnProcessor(9, &Cpuid);
    EXPECT_NE(Cpuid.Eax, 0u);
    EXPECT_EQ(Cpuid.Ebx >> 24, RasSmmGetApicIdOnProcessor(9)) << "leaf 1 tells the initial APIC ID";
    EXPECT_NE(RasSmmGetApicIdOnProcessor(9), RasSmmGetApicIdOnProcessor(8));
    EXPECT_EQ(RasSmmGetApicIdOnProcessor(SILENT), 0u);
}

TEST_F(ProcessorAccess, MachineCheckIpIsReadOnlyWhenItIsValid) {
    Simulator::MachineCheck Error;
    Error.Processor = 9;
    Error.Bank = 5;
    Error.Status = 0xBEA0000000000108;
    Error.Ip = 0xFFFFFFFF81234567;
    Machine.InjectMachineCheck(Error);
    UINT64 McgIp = 0x55;
    RasSmmReadMcgIpOnProcessor(8, &McgIp);
    EXPECT_EQ(McgIp, 0x55u);
    RasSmmReadMcgIpOnProcessor(9, &McgIp);
    EXPECT_EQ(McgIp, 0xFFFFFFFF81234567u);
}

}  // namespace

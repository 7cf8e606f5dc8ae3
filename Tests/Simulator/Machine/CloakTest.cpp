// What the operating system sees of firmware's banks, what of its writes traps, and what becomes pending.
#include <gtest/gtest.h>

#include "Include/McaErrorInfo.h"
#include "Platform/Protocol/RasService.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/ServiceTables.h"
#include "Simulator/Simulation.h"

namespace Simulator {
namespace {

constexpr std::uint64_t CORRECTED = 0x9C20400000000135;
constexpr std::uint64_t DEFERRED = 0x8420100000000136;
constexpr std::uint64_t UNCORRECTED = 0xB420000000000137;
constexpr std::uint64_t MCE_REDIRECTED = 1 << 8;
constexpr std::uint64_t WRITE_TRAPPED = 1 << 11;
constexpr std::uint64_t THRESHOLD_OR_DEFERRED = 1 << 17 | 1 << 18;

Configuration WithApei(std::initializer_list<std::pair<const std::string, std::uint64_t>> Fields) {
    Configuration Settings;
    Settings.Apei = Fields;
    return Settings;
}

MachineCheck ErrorAt(unsigned Processor, unsigned Bank, std::uint64_t Status) {
    MachineCheck Error;
    Error.Processor = Processor;
    Error.Bank = Bank;
    Error.Status = Status;
    Error.Addr = 0x1234;
    return Error;
}

TEST(Cloak, HidesABankFromTheOperatingSystemAndFromNobodyElse) {
    Simulation Run{Configuration{}};
    Run.InjectMachineCheck(ErrorAt(5, 3, CORRECTED));
    for (const std::uint32_t Msr : {0xC0002031u, 0xC0002032u, 0xC0002035u, 0x40Du, 0x40Eu}) {
        EXPECT_EQ(Run.OsReadMsr(5, Msr), 0u) << std::hex << Msr;
    }
    EXPECT_EQ(Run.ReadMsrRaw(5, 0xC0002031), CORRECTED);
    EXPECT_EQ(Run.ReadMsrRaw(5, 0x40D), CORRECTED) << "the legacy alias";
    RasServiceTable()->SetMcaCloakCfg(5, 0, 1 << 3);
    EXPECT_EQ(Run.OsReadMsr(5, 0xC0002031), CORRECTED);
    EXPECT_EQ(Run.OsReadMsr(5, 0x40E), 0x1234u);
    EXPECT_EQ(Run.OsReadMsr(5, 0xC0002035), 0x000300B000000000u);
}

// The trap comes before the write: the register still holds its value when SMM is left, unless firmware clears it.
TEST(Cloak, TrapsWritesToStatusRegistersThroughEveryAlias) {
    const struct {
        std::uint32_t Msr;
        bool Traps;
    } Cases[] = {
        {0xC0002001, true},  {0xC0002008, true},  {0x401, true},       {1, true},      {0, true},
        {0xC0002002, false}, {0xC0002003, false}, {0xC0002009, false}, {0x402, false}, {0x400, false},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.Msr);
        Simulation Run{Configuration{}};
        Run.InjectMachineCheck(ErrorAt(2, 0, CORRECTED));
        RasServiceTable()->SetMcaCloakCfg(2, 0, 1);
        EXPECT_EQ(Run.Machine().OsWriteMsr(2, Case.Msr, 0), Case.Traps);
        const Processor& Writer = Run.Machine().ProcessorAt(2);
        EXPECT_EQ(Writer.SmiSources, Case.Traps ? WRITE_TRAPPED : 0);
        EXPECT_EQ(Run.ReadMsrRaw(2, 0xC0002001), CORRECTED);
        std::uint32_t Ecx = 0;
        std::memcpy(&Ecx, Writer.SaveState.data() + 248, sizeof(Ecx));
        EXPECT_EQ(Ecx, Case.Traps ? Case.Msr : 0);
    }
}

TEST(Cloak, AnErrorBecomesPendingAsItsKindDemands) {
    const struct {
        const char* What;
        Configuration Settings;
        std::uint64_t Status;
        unsigned Errors;
        std::uint64_t Uncloaked;
        std::uint64_t Sources;
        std::size_t Exceptions;
    } Cases[] = {
        {"uncorrected", {}, UNCORRECTED, 1, 0, MCE_REDIRECTED, 0},
        {"uncorrected, not enabled", {}, UNCORRECTED & ~(1ULL << 60), 1, 0, 0, 0},
        {"uncorrected in a bank that the OS sees", {}, UNCORRECTED, 1, 1, 0, 1},
        {"deferred", {}, DEFERRED, 1, 0, THRESHOLD_OR_DEFERRED, 0},
        {"corrected below the threshold", {}, CORRECTED, 9, 0, 0, 0},
        {"corrected at the threshold", {}, CORRECTED, 10, 0, THRESHOLD_OR_DEFERRED, 0},
        {"corrected, thresholds off", WithApei({{"McaErrThreshEn", 0}}), CORRECTED, 5000, 0, 0, 0},
        {"corrected, next to its limit", WithApei({{"McaErrThreshCount", 0xFFE}}), CORRECTED, 1, 0,
         THRESHOLD_OR_DEFERRED, 0},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        Simulation Run{Case.Settings};
        RasServiceTable()->SetMcaCloakCfg(3, 0, Case.Uncloaked);
        for (unsigned Count = 0; Count < Case.Errors; Count++) {
            Run.InjectMachineCheck(ErrorAt(3, 0, Case.Status));
        }
        EXPECT_EQ(Run.Machine().ProcessorAt(3).SmiSources, Case.Sources);
        std::size_t Exceptions = 0;
        for (const Event& One : Run.Events().Events()) {
            Exceptions += One.Kind == "mce" ? 1 : 0;
        }
        EXPECT_EQ(Exceptions, Case.Exceptions);
    }
}

}  // namespace
}  // namespace Simulator

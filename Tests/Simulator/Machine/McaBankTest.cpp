// How hardware logs errors in a bank, whatever software does about it.
#include "Simulator/Machine/McaBank.h"

#include <gtest/gtest.h>

namespace Simulator {
namespace {

constexpr std::uint64_t CORRECTED = 0x9C20400000000135;    // Val En MiscV AddrV SyndV CECC
constexpr std::uint64_t DEFERRED = 0x8420100000000136;     // Val AddrV SyndV Deferred
constexpr std::uint64_t UNCORRECTED = 0xB420000000000137;  // Val UC En AddrV SyndV
constexpr std::uint64_t OVERFLOW_BIT = 1ULL << 62;
constexpr std::uint64_t CORE_IPID = 0x000000B000000000;
constexpr std::uint64_t UMC_IPID = 0x0000009600050F00;
constexpr std::uint64_t LOG_DEFERRED_IN_STATUS = 1ULL << 34;
constexpr std::uint64_t COUNTING_TO_SMI = 0xD00C000000000000;  // Valid CntP IntP CntEn IntType 2

McaBank BankOf(std::uint64_t Ipid) {
    McaBank Bank;
    Bank.Reset(Ipid);
    return Bank;
}

MachineCheck ErrorOf(std::uint64_t Status, std::uint64_t Addr = 0) {
    MachineCheck Error;
    Error.Status = Status;
    Error.Addr = Addr;
    return Error;
}

TEST(McaBank, KeepsTheWorstErrorAndMarksTheOverflow) {
    const struct {
        const char* What;
        std::uint64_t Older, Younger, Status, Addr;
    } Cases[] = {
        {"corrected twice", CORRECTED, CORRECTED, CORRECTED | OVERFLOW_BIT, 0x1000},
        {"deferred over corrected", CORRECTED, DEFERRED, DEFERRED | OVERFLOW_BIT, 0x2000},
        {"uncorrected over corrected", CORRECTED, UNCORRECTED, UNCORRECTED | OVERFLOW_BIT, 0x2000},
        {"corrected after deferred", DEFERRED, CORRECTED, DEFERRED | OVERFLOW_BIT, 0x1000},
        {"uncorrected over deferred", DEFERRED, UNCORRECTED, UNCORRECTED | OVERFLOW_BIT, 0x2000},
        {"corrected after uncorrected", UNCORRECTED, CORRECTED, UNCORRECTED | OVERFLOW_BIT, 0x1000},
        {"uncorrected twice", UNCORRECTED, UNCORRECTED, UNCORRECTED | OVERFLOW_BIT, 0x1000},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        McaBank Bank = BankOf(CORE_IPID);
        Bank.Set(MCA_CONFIG, Bank.Read(MCA_CONFIG) | LOG_DEFERRED_IN_STATUS);
        Bank.Log(ErrorOf(Case.Older, 0x1000));
        Bank.Log(ErrorOf(Case.Younger, 0x2000));
        EXPECT_EQ(Bank.Read(MCA_STATUS), Case.Status);
        EXPECT_EQ(Bank.Read(MCA_ADDR), Case.Addr);
    }
}

TEST(McaBank, CountsCorrectedErrorsUpToTheLimitAndInterruptsOnce) {
    McaBank Bank = BankOf(CORE_IPID);
    Bank.Set(MCA_MISC0, COUNTING_TO_SMI | 0xFFDULL << 32);
    EXPECT_EQ(Bank.Log(ErrorOf(CORRECTED)).ThresholdInterrupt, 0u);
    EXPECT_EQ(Bank.Read(MCA_MISC0), COUNTING_TO_SMI | 0xFFEULL << 32);
    EXPECT_EQ(Bank.Log(ErrorOf(UNCORRECTED)).ThresholdInterrupt, 0u) << "an uncorrected error is not counted";
    EXPECT_EQ(Bank.Log(ErrorOf(CORRECTED)).ThresholdInterrupt, 2u);
    EXPECT_EQ(Bank.Read(MCA_MISC0), COUNTING_TO_SMI | 1ULL << 48 | 0xFFFULL << 32);
    EXPECT_EQ(Bank.Log(ErrorOf(CORRECTED)).ThresholdInterrupt, 0u) << "the counter stays where it overflowed";
    EXPECT_EQ(Bank.Read(MCA_MISC0), COUNTING_TO_SMI | 1ULL << 48 | 0xFFFULL << 32);
}

TEST(McaBank, LetsSoftwareWriteWhatHardwareLetsItWrite) {
    const struct {
        const char* What;
        std::uint32_t Register;
        std::uint64_t Before, Written, After;
        bool Allowed;
    } Cases[] = {
        {"status takes zero", MCA_STATUS, CORRECTED, 0, 0, true},
        {"status takes nothing else", MCA_STATUS, CORRECTED, 1, CORRECTED, false},
        {"deferred status takes nothing else", MCA_DESTAT, DEFERRED, 1, DEFERRED, false},
        {"what a counter is stays", MCA_MISC0, 0xD000000001000000, 0x0008000000000000, 0xD008000001000000, true},
        {"a locked counter stays", MCA_MISC0, 0xF00C0FF500000000, 0, 0xF00C0FF500000000, true},
        {"abilities stay", MCA_CONFIG, 0x0000000100000027, 0x0000004400000000, 0x0000004400000027, true},
        {"the identity stays", MCA_IPID, UMC_IPID, 0, UMC_IPID, true},
        {"an address can be written", MCA_ADDR, 1, 2, 2, true},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        McaBank Bank = BankOf(CORE_IPID);
        Bank.Set(Case.Register, Case.Before);
        EXPECT_EQ(Bank.Write(Case.Register, Case.Written), Case.Allowed);
        EXPECT_EQ(Bank.Read(Case.Register), Case.After);
    }
}

}  // namespace
}  // namespace Simulator

#include "Simulator/Machine/McaBank.h"

namespace Simulator {

namespace {

// Which error may replace which: a bank keeps the worst one.
enum class Class { Corrected, Deferred, Uncorrected };

Class ClassOf(std::uint64_t Status) {
    if (McaStatus::UC::Get(Status) != 0) {
        return Class::Uncorrected;
    }
    return McaStatus::Deferred::Get(Status) != 0 ? Class::Deferred : Class::Corrected;
}

constexpr std::uint64_t MISC_READ_ONLY =
    McaMisc::Valid::Mask | McaMisc::CntP::Mask | McaMisc::Locked::Mask | McaMisc::IntP::Mask | McaMisc::BlkPtr::Mask;
constexpr std::uint64_t CONFIG_WRITABLE = McaConfig::DeferredIntType::Mask | McaConfig::LogDeferredInMcaStat::Mask |
                                          McaConfig::TransparentErrorLoggingEnable::Mask |
                                          McaConfig::McaXEnable::Mask;

struct BankType {
    unsigned First;
    unsigned Count;
    std::uint16_t McaType;
    std::uint16_t HardwareId;
    std::uint32_t InstanceId;
    std::uint32_t InstanceStep;
};

constexpr BankType BANK_TYPES[] = {
    {0, 1, 0, 0xB0, 0, 0},                      // load-store
    {1, 1, 1, 0xB0, 0, 0},                      // instruction fetch
    {2, 1, 2, 0xB0, 0, 0},                      // L2 cache
    {3, 1, 3, 0xB0, 0, 0},                      // decode
    {5, 1, 5, 0xB0, 0, 0},                      // execution unit
    {6, 1, 6, 0xB0, 0, 0},                      // floating point
    {7, 8, 7, 0xB0, 0x40000000, 1},             // L3 slices
    {15, 12, 0, 0x96, 0x00050F00, 0x00100000},  // memory controllers
    {27, 1, 1, 0x2E, 0x00000500, 0},            // power, interrupts and link
    {28, 1, 0, 0x18, 0x13B17000, 0},            // NBIO
    {29, 1, 0, 0x46, 0x1A3C0000, 0},            // PCIe core
    {30, 1, 0, 0x2E, 0x00000400, 0},            // coherent station
    {31, 1, 0, 0x01, 0x03B30400, 0},            // system management unit
};

}  // namespace

std::uint64_t DefaultBankIpid(unsigned Bank) {
    for (const BankType& Type : BANK_TYPES) {
        if (Bank >= Type.First && Bank < Type.First + Type.Count) {
            return McaIpid::McaType::Of(Type.McaType) | McaIpid::HardwareID::Of(Type.HardwareId) |
                   McaIpid::InstanceId::Of(Type.InstanceId + (Bank - Type.First) * Type.InstanceStep);
        }
    }
    return 0;
}

void McaBank::Reset(std::uint64_t Ipid) {
    Registers = {};
    FruText.clear();
    const std::uint64_t Counter = McaMisc::Valid::Of(1) | McaMisc::CntP::Of(1) | McaMisc::IntP::Of(1);
    Registers[MCA_CTL] = UINT64_MAX;
    Registers[MCA_MISC0] = Counter;
    if (McaIpid::IsUmc(Ipid)) {
        Registers[MCA_MISC0] |= McaMisc::BlkPtr::Of(1);
        Registers[MCA_MISC1] = Counter;
    }
    Registers[MCA_CONFIG] =
        McaConfig::McaX::Of(1) | McaConfig::McaXEnable::Of(1) | McaConfig::TransparentErrorLoggingSupported::Of(1) |
        McaConfig::DeferredErrorLoggingSupported::Of(1) | McaConfig::DeferredIntTypeSupported::Of(1);
    Registers[MCA_IPID] = Ipid;
}

bool McaBank::Write(std::uint32_t Register, std::uint64_t Value) {
    std::uint64_t& Target = Registers[Register];
    switch (Register) {
        case MCA_STATUS:
        case MCA_DESTAT:
            if (Value != 0) {
                return false;
            }
            Target = 0;
            return true;
        case MCA_MISC0:
        case MCA_MISC1:
            if (McaMisc::Locked::Get(Target) == 0) {
                Target = (Target & MISC_READ_ONLY) | (Value & ~MISC_READ_ONLY);
            }
            return true;
        case MCA_CONFIG:
            Target = (Target & ~CONFIG_WRITABLE) | (Value & CONFIG_WRITABLE);
            return true;
        case MCA_IPID:
            return true;
        default:
            Target = Value;
            return true;
    }
}

BankOutcome McaBank::Log(const MachineCheck& Error) {
    if (Error.Config) {
        Registers[MCA_CONFIG] = *Error.Config;
    }
    if (Error.Ipid) {
        Registers[MCA_IPID] = *Error.Ipid;
    }
    BankOutcome Outcome;
    const bool Valid = McaStatus::Val::Get(Error.Status) != 0;
    const bool Transparent = McaStatus::Transparent::Get(Error.Status) != 0;
    const Class Kind = ClassOf(Error.Status);
    if (Valid && Transparent && McaConfig::TransparentErrorLoggingEnable::Get(Registers[MCA_CONFIG]) == 0) {
        return Outcome;
    }
    const bool Deferred = Error.DeStat.has_value() || (Valid && Kind == Class::Deferred);
    if (Deferred) {
        LogDeferred(Error);
        Outcome.DeferredInterrupt = McaConfig::DeferredIntType::Get(Registers[MCA_CONFIG]);
    }
    if (Valid && (Kind != Class::Deferred || McaConfig::LogDeferredInMcaStat::Get(Registers[MCA_CONFIG]) != 0)) {
        LogStatus(Error);
    }
    Outcome.MachineCheckException = Valid && Kind == Class::Uncorrected && McaStatus::En::Get(Error.Status) != 0;
    const bool Counted = Valid && Kind == Class::Corrected;
    if (Counted || Error.Misc0 || Error.Misc1) {
        Outcome.ThresholdInterrupt = CountCorrected(Error);
    }
    return Outcome;
}

void McaBank::LogStatus(const MachineCheck& Error) {
    const std::uint64_t Older = Registers[MCA_STATUS];
    const bool Occupied = McaStatus::Val::Get(Older) != 0;
    if (Occupied && ClassOf(Error.Status) <= ClassOf(Older)) {
        Registers[MCA_STATUS] = McaStatus::Overflow::Set(Older, 1);
        return;
    }
    Registers[MCA_STATUS] = Occupied ? McaStatus::Overflow::Set(Error.Status, 1) : Error.Status;
    Registers[MCA_ADDR] = Error.Addr.value_or(0);
    Registers[MCA_SYND] = Error.Synd.value_or(0);
    Registers[MCA_SYND1] = Error.Synd1.value_or(0);
    Registers[MCA_SYND2] = Error.Synd2.value_or(0);
    FruText = Error.FruText;
}

void McaBank::LogDeferred(const MachineCheck& Error) {
    const std::uint64_t Older = Registers[MCA_DESTAT];
    if (McaStatus::Val::Get(Older) != 0) {
        Registers[MCA_DESTAT] = McaStatus::Overflow::Set(Older, 1);
        return;
    }
    Registers[MCA_DESTAT] = Error.DeStat.value_or(Error.Status);
    Registers[MCA_DEADDR] = Error.DeAddr ? *Error.DeAddr : Error.Addr.value_or(0);
    if (McaStatus::Val::Get(Registers[MCA_STATUS]) == 0) {
        Registers[MCA_SYND] = Error.Synd.value_or(0);
        FruText = Error.FruText;
    }
}

// Counts the error, or takes the counters as given; returns the interrupt type of a counter that overflowed.
std::uint64_t McaBank::CountCorrected(const MachineCheck& Error) {
    // A memory controller's first counter is for DRAM ECC errors, its second for all others.
    const bool Second = HasSecondCounter() && McaStatus::ErrorCodeExt::Get(Error.Status) != 0;
    std::uint64_t Interrupt = 0;
    const struct {
        std::uint32_t Register;
        const std::optional<std::uint64_t>& Given;
        bool Counts;
    } Counters[] = {{MCA_MISC0, Error.Misc0, !Second}, {MCA_MISC1, Error.Misc1, Second}};
    for (const auto& [Register, Given, Counts] : Counters) {
        std::uint64_t& Counter = Registers[Register];
        if (Given) {
            Counter = *Given;
            if (McaMisc::Ovrflw::Get(Counter) != 0) {
                Interrupt = McaMisc::ThresholdIntType::Get(Counter);
            }
            continue;
        }
        const bool Running = McaMisc::CntP::Get(Counter) != 0 && McaMisc::CntEn::Get(Counter) != 0;
        const std::uint64_t Count = McaMisc::ErrCnt::Get(Counter);
        const bool Corrected = McaStatus::Val::Get(Error.Status) != 0 && ClassOf(Error.Status) == Class::Corrected;
        if (!Counts || !Running || !Corrected || Count == MCA_ERROR_COUNTER_LIMIT) {
            continue;
        }
        Counter = McaMisc::ErrCnt::Set(Counter, Count + 1);
        if (Count + 1 == MCA_ERROR_COUNTER_LIMIT) {
            Counter = McaMisc::Ovrflw::Set(Counter, 1);
            Interrupt = McaMisc::ThresholdIntType::Get(Counter);
        }
    }
    return Interrupt;
}

}  // namespace Simulator

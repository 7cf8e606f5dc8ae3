#include "Simulator/Machine/Processor.h"

#include <cstring>

#include "Platform/Protocol/RasService.h"

namespace Simulator {

namespace {

constexpr std::uint32_t MSR_P5_ADDRESS = 0;  // aliases of bank 0's address and status
constexpr std::uint32_t MSR_P5_STATUS = 1;
constexpr std::uint32_t MSR_MCG_CAP = 0x179;
constexpr std::uint32_t MSR_MCG_CTL = 0x17B;
constexpr std::uint32_t MSR_MCA_END = MSR_MCA_BASE + 0x1000;

using McgRipv = Field<std::uint64_t, 0>;
using McgMcip = Field<std::uint64_t, 2>;
using McgCapCount = Field<std::uint64_t, 7, 0>;
using McgCapCtlP = Field<std::uint64_t, 8>;

constexpr std::uint32_t CPUID_FEATURES_ECX = 0x7EF8320B;
constexpr std::uint32_t CPUID_FEATURES_EDX = 0x178BFBFF;

}  // namespace

Processor::Processor(const ProcessorLocation& Where, unsigned LogicalPerSocket, unsigned BankCount,
                     std::uint32_t Signature, std::uint64_t MmioCfgBase)
    : Place(Where),
      LogicalPerSocket(LogicalPerSocket),
      Signature(Signature),
      MmioCfgBase(MmioCfgBase),
      Banks(BankCount) {
    for (unsigned Number = 0; Number < BankCount; Number++) {
        Banks[Number].Reset(DefaultBankIpid(Number));
    }
}

CPUID_RESULT Processor::Cpuid(std::uint32_t Leaf) const {
    switch (Leaf) {
        case 0:  // highest leaf; the vendor's name is left blank
            return {1, 0x20202020, 0x20202020, 0x20202020};
        case 1:
            return {Signature, Place.ApicId << 24 | LogicalPerSocket << 16 | 8 << 8, CPUID_FEATURES_ECX,
                    CPUID_FEATURES_EDX};
        default:
            return {};
    }
}

// Both ranges and the two oldest aliases name the same registers. Banks that are not populated decode as well.
std::optional<Processor::BankRegister> Processor::Decode(std::uint32_t Msr) {
    if (Msr >= MSR_MCA_BASE && Msr < MSR_MCA_END) {
        return BankRegister{(Msr - MSR_MCA_BASE) / MCA_REGISTERS_PER_BANK, Msr % MCA_REGISTERS_PER_BANK};
    }
    if (Msr >= MSR_MCA_LEGACY_BASE && Msr < MSR_MCA_LEGACY_END) {
        return BankRegister{(Msr - MSR_MCA_LEGACY_BASE) / 4, Msr % 4};
    }
    if (Msr == MSR_P5_ADDRESS) {
        return BankRegister{0, MCA_ADDR};
    }
    if (Msr == MSR_P5_STATUS) {
        return BankRegister{0, MCA_STATUS};
    }
    return std::nullopt;
}

std::optional<std::uint64_t> Processor::ReadMsr(std::uint32_t Msr) const {
    if (const auto Target = Decode(Msr)) {
        return Target->Bank < Banks.size() ? Banks[Target->Bank].Read(Target->Register) : 0;
    }
    switch (Msr) {
        case MSR_MCG_CAP:
            return McgCapCount::Of(Banks.size()) | McgCapCtlP::Of(1);
        case MSR_MCG_STATUS:
            return McgStatus;
        case MSR_MCG_CTL:
            return UINT64_MAX;
        case MSR_MCG_IP:
            return McgIp;
        case MSR_MCA_CLOAK_CFG:
            return CloakMask;
        case MSR_MMIO_CFG_BASE_ADDR:
            return MmioCfgBase;
        default:
            return std::nullopt;
    }
}

Processor::WriteResult Processor::WriteMsr(std::uint32_t Msr, std::uint64_t Value) {
    if (const auto Target = Decode(Msr)) {
        if (Target->Bank >= Banks.size()) {
            return WriteResult::Done;
        }
        return Banks[Target->Bank].Write(Target->Register, Value) ? WriteResult::Done : WriteResult::OnlyZeroAllowed;
    }
    switch (Msr) {
        case MSR_MCG_STATUS:
            McgStatus = Value;
            return WriteResult::Done;
        case MSR_MCG_CTL:
        case MSR_MCG_IP:
            return WriteResult::Done;
        case MSR_MCA_CLOAK_CFG:
            CloakMask = Value;
            return WriteResult::Done;
        default:
            return WriteResult::NoSuchRegister;
    }
}

std::optional<std::uint64_t> Processor::OsReadMsr(std::uint32_t Msr) const {
    const auto Target = Decode(Msr);
    if ((Target && IsCloaked(Target->Bank)) || Msr == MSR_MCA_CLOAK_CFG) {
        return 0;
    }
    return ReadMsr(Msr);
}

Processor::WriteResult Processor::OsWriteMsr(std::uint32_t Msr, std::uint64_t Value) {
    const auto Target = Decode(Msr);
    if ((Target && IsCloaked(Target->Bank)) || Msr == MSR_MCA_CLOAK_CFG) {
        return WriteResult::Done;
    }
    return WriteMsr(Msr, Value);
}

bool Processor::TrapsOsWrite(std::uint32_t Msr) const {
    const auto Target = Decode(Msr);
    if (!Target || Target->Bank >= 64 || (ManagedMask >> Target->Bank & 1) == 0) {
        return false;
    }
    return Target->Register == MCA_STATUS || Target->Register == MCA_DESTAT || Msr == MSR_P5_ADDRESS;
}

bool Processor::Log(const MachineCheck& Error, BankOutcome& Outcome) {
    Outcome = Banks[Error.Bank].Log(Error);
    if (Error.Ip || Outcome.MachineCheckException) {
        McgStatus = McgStatus::EIPV::Set(McgStatus, Error.Ip ? 1 : 0);
        McgStatus = McgRipv::Set(McgStatus, McaStatus::PCC::Get(Error.Status) == 0 ? 1 : 0);
        McgIp = Error.Ip.value_or(0);
    }
    const std::uint64_t Source = LocalSmiStatus::SmiSrcMca::Of(1) | LocalSmiStatus::SmiSrcLvtExt::Of(1);
    if (Outcome.ThresholdInterrupt == 2 || Outcome.DeferredInterrupt == 2) {
        SmiSources |= Source;
    }
    if (Outcome.MachineCheckException && IsCloaked(Error.Bank)) {
        SmiSources |= LocalSmiStatus::MceRedirSts::Of(1);
    }
    const bool AtOnce = Outcome.MachineCheckException && !IsCloaked(Error.Bank);
    if (AtOnce) {
        DeliverException();
    }
    return AtOnce;
}

void Processor::DeliverException() {
    McgStatus = McgMcip::Set(McgStatus, 1);
}

void Processor::PendWriteTrap(std::uint32_t Msr) {
    SmiSources |= LocalSmiStatus::WrMsr::Of(1);
    std::memcpy(SaveState.data() + SMM_SAVE_STATE_ECX_OFFSET, &Msr, sizeof(Msr));
}

}  // namespace Simulator

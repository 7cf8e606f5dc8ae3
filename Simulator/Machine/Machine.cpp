#include "Simulator/Machine/Machine.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace Simulator {

namespace {

Machine* TheMachine = nullptr;

std::string MsrFault(const char* Verb, unsigned Processor, std::uint32_t Msr, const char* Why) {
    return fmt::format("{} MSR 0x{:08X} on processor {}: {}", Verb, Msr, Processor, Why);
}

}  // namespace

Machine::Machine(const Configuration& Settings, Journal& Journal)
    : Config(Settings),
      Events(Journal),
      CmosClock(Settings.Clock, Settings.ClockUpdateStuck, Settings.ClockBatteryDead) {
    if (TheMachine != nullptr) {
        throw std::logic_error("at most one simulation lives in a process at a time");
    }
    Config.PciSegments = PciSegmentCount(Config);
    BuildProcessors();
    BuildFabricAndPci();
    BuildMmio();
    Memory = std::make_unique<MemorySystem>(*this);
    TheMachine = this;
}

Machine::~Machine() {
    TheMachine = nullptr;
}

Machine& Machine::Current() {
    if (TheMachine == nullptr) {
        std::fputs("a hardware primitive was called without a simulation\n", stderr);
        std::abort();
    }
    return *TheMachine;
}

SmnSpace& Machine::SmnOf(std::size_t RootComplexIndex) {
    return ComplexFunctions.at(RootComplexIndex)->Smn;
}

void Machine::LogMachineCheck(const MachineCheck& Error) {
    if (Error.Processor >= ProcessorCount()) {
        throw std::invalid_argument(
            fmt::format("processor {} does not exist; the machine has {}", Error.Processor, ProcessorCount()));
    }
    Processor& Target = Processors[Error.Processor];
    if (Error.Bank >= Target.BankCount()) {
        throw std::invalid_argument(
            fmt::format("bank {} does not exist; a processor has {}", Error.Bank, Target.BankCount()));
    }
    if (McaStatus::Val::Get(Error.Status) == 0 && !Error.DeStat) {
        throw std::invalid_argument("a machine check needs a status with its valid bit (63) set");
    }
    BankOutcome Outcome;
    if (Target.Log(Error, Outcome)) {
        Note("mce", [&] { return nlohmann::ordered_json{{"processor", Hex(Error.Processor)}}; });
    }
    const auto Interrupt = [&](const char* Source) {
        Note("lvt", [&] { return nlohmann::ordered_json{{"processor", Hex(Error.Processor)}, {"source", Source}}; });
    };
    if (Outcome.ThresholdInterrupt == 1) {
        Interrupt("threshold");
    }
    if (Outcome.DeferredInterrupt == 1) {
        Interrupt("deferred");
    }
    switch (Memory->CountLogged(Target.Location().Socket, Target.Bank(Error.Bank).Read(MCA_IPID), Error)) {
        case ECC_INTERRUPT_SMI:
            Target.SmiSources |= LocalSmiStatus::SmiSrcMca::Of(1) | LocalSmiStatus::SmiSrcLvtExt::Of(1);
            break;
        case ECC_INTERRUPT_OS:
            Interrupt("ecc-counter");
            break;
        default:
            break;
    }
}

void Machine::Advance(std::uint64_t Microseconds) {
    Time += Microseconds;
    Memory->Advance(Microseconds);
    Hierarchies->AdvanceTo(Time);
}

std::uint64_t Machine::OsReadMsr(unsigned Number, std::uint32_t Msr) {
    if (Number >= ProcessorCount()) {
        throw std::invalid_argument(fmt::format("processor {} does not exist", Number));
    }
    if (const auto Value = Processors[Number].OsReadMsr(Msr)) {
        return *Value;
    }
    throw std::invalid_argument(MsrFault("OS reads", Number, Msr, "there is no such register"));
}

bool Machine::OsWriteMsr(unsigned Number, std::uint32_t Msr, std::uint64_t Value) {
    if (Number >= ProcessorCount()) {
        throw std::invalid_argument(fmt::format("processor {} does not exist", Number));
    }
    Processor& Target = Processors[Number];
    if (Target.TrapsOsWrite(Msr)) {
        Target.PendWriteTrap(Msr);
        return true;
    }
    switch (Target.OsWriteMsr(Msr, Value)) {
        case Processor::WriteResult::NoSuchRegister:
            throw std::invalid_argument(MsrFault("OS writes", Number, Msr, "there is no such register"));
        case Processor::WriteResult::OnlyZeroAllowed:
            throw std::invalid_argument(MsrFault("OS writes", Number, Msr, "the register takes only zero"));
        case Processor::WriteResult::Done:
            break;
    }
    return false;
}

void Machine::LeaveSmm() {
    for (Processor& One : Processors) {
        One.SmiSources = 0;
        if (!One.ExceptionOnExit) {
            continue;
        }
        One.ExceptionOnExit = false;
        One.DeliverException();
        Note("mce", [&] { return nlohmann::ordered_json{{"processor", Hex(One.Location().Number)}}; });
    }
}

std::uint8_t Machine::ReadIo(std::uint16_t Port) {
    Accesses.IoReads++;
    std::uint8_t Value = 0xFF;
    CmosClock.Read(Port, Time, Value);
    return Value;
}

void Machine::WriteIo(std::uint16_t Port, std::uint8_t Value) {
    Accesses.IoWrites++;
    NoteWrite("io", Port, 8, Value);
    CmosClock.Write(Port, Value);
}

std::uint64_t Machine::ReadMsr(std::uint32_t Msr) {
    Accesses.MsrReads++;
    if (const auto Value = Processors[Running].ReadMsr(Msr)) {
        return *Value;
    }
    ReportFault(MsrFault("the driver reads", Running, Msr, "there is no such register"));
    return UINT64_MAX;
}

void Machine::WriteMsr(std::uint32_t Msr, std::uint64_t Value) {
    Accesses.MsrWrites++;
    Note("write", [&] {
        return nlohmann::ordered_json{{"space", "msr"},
                                      {"processor", Hex(Running)},
                                      {"address", Hex(Msr)},
                                      {"width", Hex(64)},
                                      {"value", Hex(Value)}};
    });
    switch (Processors[Running].WriteMsr(Msr, Value)) {
        case Processor::WriteResult::NoSuchRegister:
            ReportFault(MsrFault("the driver writes", Running, Msr, "there is no such register, or it is read-only"));
            break;
        case Processor::WriteResult::OnlyZeroAllowed:
            ReportFault(MsrFault("the driver writes", Running, Msr, "the register takes only zero"));
            break;
        case Processor::WriteResult::Done:
            break;
    }
}

CPUID_RESULT Machine::Cpuid(std::uint32_t Leaf) {
    Accesses.Cpuids++;
    return Processors[Running].Cpuid(Leaf);
}

void Machine::Print(std::string_view Prefix, std::string_view Message) {
    Serial += Prefix;
    Serial += Message;
}

void Machine::NoteWrite(std::string_view Space, std::uint64_t Address, unsigned Width, std::uint64_t Value) {
    Note("write", [&] {
        return nlohmann::ordered_json{
            {"space", Space}, {"address", Hex(Address)}, {"width", Hex(Width)}, {"value", Hex(Value)}};
    });
}

void Machine::ReportFault(std::string What) {
    if (PendingFault.empty()) {
        PendingFault = std::move(What);
    }
}

void Machine::ThrowPendingFault() {
    if (!PendingFault.empty()) {
        const std::string What = std::exchange(PendingFault, {});
        throw Fault(What);
    }
}

}  // namespace Simulator

#include "Simulator/Simulation.h"

#include <fmt/format.h>

#include <charconv>
#include <cstring>
#include <stdexcept>

#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/MemoryLayout.h"
#include "Simulator/Firmware/Names.h"
#include "Simulator/Machine/Machine.h"
#include "Simulator/SimulationState.h"

namespace Simulator {

Simulation::Simulation(const Configuration& Settings) : Everything(std::make_unique<State>(Settings)) {}
Simulation::~Simulation() = default;

void Simulation::InjectMachineCheck(const MachineCheck& Error) {
    Everything->Hardware.LogMachineCheck(Error);
}

void Simulation::RaiseSmi(std::string_view Kind) {
    constexpr std::string_view SOFTWARE = "software-0x";
    Simulator::Firmware& Here = Everything->Platform;
    if (Kind == "machine-check") {
        Here.RunSmi(Kind, [&] { return Here.Dispatch.Software(Here.MachineCheckSmiValue()); });
    } else if (Kind == "root-complex") {
        Here.RunSmi(Kind, [&] { return Here.Dispatch.RootComplexes(); });
    } else if (Kind.starts_with(SOFTWARE)) {
        std::uint64_t Value = 0;
        const std::string_view Digits = Kind.substr(SOFTWARE.size());
        const auto [End, Error] = std::from_chars(Digits.data(), Digits.data() + Digits.size(), Value, 16);
        if (Error != std::errc{} || End != Digits.data() + Digits.size() ||
            Value > SmiDispatch::MAXIMUM_SOFTWARE_VALUE) {
            throw std::invalid_argument(
                fmt::format("\"{}\" is no software SMI; software-0x00 to software-0xFF are", Kind));
        }
        Here.RunSmi(Kind, [&] { return Here.Dispatch.Software(Value); });
    } else {
        throw std::invalid_argument(
            fmt::format("\"{}\" is no SMI of this machine; machine-check, root-complex and software-0xNN are", Kind));
    }
    Everything->Hardware.ThrowPendingFault();
}

bool Simulation::IsRootComplexSmiPending() const {
    return Everything->Hardware.Pcie().HasSmiPending();
}

std::uint32_t Simulation::EvaluateCxlOsc(std::uint32_t Support, std::uint32_t Control) {
    Simulator::Firmware& Here = Everything->Platform;
    CXL_POLICY_DATA& Shared = *Here.Data.Apei.CxlPolicyData;
    Shared.OscDword4 = Support;
    Shared.OscDword5 = Control;
    Here.RunSmi("cxl-osc", [&] { return Here.Dispatch.Software(Shared.SwSmiValue); });
    Everything->Hardware.Note("cxl-osc", [&] {
        return nlohmann::ordered_json{
            {"support", Hex(Support)}, {"requested", Hex(Control)}, {"granted", Hex(Shared.OscDword5)}};
    });
    Everything->Hardware.ThrowPendingFault();
    return Shared.OscDword5;
}

void Simulation::Wait(std::uint64_t Microseconds) {
    // Nanoseconds of CXL event records and the years of the clock hold so much.
    constexpr std::uint64_t LONGEST_RUN = 876'000 * std::uint64_t{3'600'000'000};
    if (Microseconds > LONGEST_RUN || Now() > LONGEST_RUN - Microseconds) {
        throw std::invalid_argument("no machine runs longer than a hundred years");
    }
    Everything->Hardware.Advance(Microseconds);
}

void Simulation::InjectMemoryError(const MemoryError& Error, std::uint64_t Count) {
    Everything->Hardware.Dram().Inject(Error, Count);
}

void Simulation::PinTranslation(const ChannelAddress& Where, const std::optional<PinnedTranslation>& To) {
    Everything->Platform.Dram.Pin(Where, To);
}

EFI_STATUS Simulation::FinishRuntimeRepair(const RepairOutcome& Outcome) {
    Simulator::Firmware& Here = Everything->Platform;
    if (!Here.Repair.FinishRuntime(Outcome)) {
        return EFI_NOT_STARTED;
    }
    const EFI_STATUS Status = Outcome.Signals ? Here.RaisePspSmi(Outcome.Status) : EFI_SUCCESS;
    Everything->Hardware.ThrowPendingFault();
    return Status;
}

std::uint64_t Simulation::OsReadMsr(unsigned Processor, std::uint32_t Msr) {
    return Everything->Hardware.OsReadMsr(Processor, Msr);
}

void Simulation::OsWriteMsr(unsigned Processor, std::uint32_t Msr, std::uint64_t Value) {
    if (Everything->Hardware.OsWriteMsr(Processor, Msr, Value)) {
        RaiseSmi("machine-check");
    }
}

EFI_STATUS Simulation::CallCommunicationHandler(const CommunicationCall& Call) {
    const EFI_GUID* Guid = FindGuid(Call.Handler);
    if (Guid == nullptr) {
        throw std::invalid_argument(fmt::format("\"{}\" is no GUID that a handler is registered for", Call.Handler));
    }
    UINTN Size = Call.Size.value_or(Call.Data.size());
    CommunicationBuffer Buffer(Call.Where, Call.Data, Size);
    Simulator::Firmware& Here = Everything->Platform;
    const EFI_STATUS Status = Here.RunSmi("communication", [&] {
        const DispatchResult Result =
            Here.Dispatch.Communication(*Guid, Buffer.Address(), Call.NullSize ? nullptr : &Size);
        Everything->Hardware.Note("comm", [&] {
            return nlohmann::ordered_json{{"handler", Call.Handler}, {"status", StatusName(Result.Status)}};
        });
        return Result;
    });
    Everything->Hardware.ThrowPendingFault();
    return Status;
}

// The first byte of the buffer is not the message area's; then the number of codes, then the codes.
EFI_STATUS Simulation::HandOverPostErrors(std::uint16_t Count, const std::vector<std::uint8_t>& MessageCodes) {
    if (MessageCodes.size() > UINT8_MAX) {
        throw std::invalid_argument("at most 255 POST message codes");
    }
    Everything->Platform.Events.SetPostErrors(Count);
    CommunicationCall Call;
    Call.Handler = "gElogLogPOSTErrorToBMCGuid";
    Call.Data = {0, static_cast<std::uint8_t>(MessageCodes.size())};
    Call.Data.insert(Call.Data.end(), MessageCodes.begin(), MessageCodes.end());
    return CallCommunicationHandler(Call);
}

void Simulation::SetFailure(const std::string& Member, std::optional<Failure> How) {
    Everything->Platform.Faults.Set(Member, How);
}

void Simulation::SetSilentProcessors(const std::set<unsigned>& Processors) {
    Everything->Platform.SilentProcessors = Processors;
}

Journal& Simulation::Events() {
    return Everything->Events;
}

const Configuration& Simulation::Settings() const {
    return Everything->Platform.Settings;
}

std::uint64_t Simulation::Now() const {
    return Everything->Hardware.Now();
}

std::string Simulation::TraceLog() const {
    return Everything->Hardware.SerialOutput();
}

std::vector<std::uint8_t> Simulation::SelRaw() const {
    return Everything->Platform.Events.SelRaw();
}

std::vector<std::vector<std::uint8_t>> Simulation::LoggedRecords() const {
    return Everything->Platform.Apei.LoggedRecords();
}

std::vector<std::uint8_t> Simulation::GhesStatusBlock() const {
    return Everything->Platform.Apei.StatusBlock();
}

PoolStatistics Simulation::Pool() const {
    return Everything->Platform.SmmPool.Statistics();
}

std::uint64_t Simulation::BlocksAtBoot() const {
    return Everything->BlocksAtBoot;
}

std::vector<PoolBlock> Simulation::BlocksLeftByLastSmi() const {
    return Everything->Platform.SmmPool.LiveBlocksOf(Everything->Platform.SmiCount());
}

AccessStatistics Simulation::Accesses() const {
    return Everything->Hardware.Accesses;
}

void Simulation::ResetAccesses() {
    Everything->Hardware.Accesses = {};
}

std::uint64_t Simulation::ReadMsrRaw(unsigned Processor, std::uint32_t Msr) const {
    if (Processor >= Everything->Hardware.ProcessorCount()) {
        throw std::invalid_argument(fmt::format("processor {} does not exist", Processor));
    }
    const auto Value = Everything->Hardware.ProcessorAt(Processor).ReadMsr(Msr);
    if (!Value) {
        throw std::invalid_argument(fmt::format("MSR 0x{:08X} does not exist", Msr));
    }
    return *Value;
}

Simulator::Machine& Simulation::Machine() {
    return Everything->Hardware;
}

Simulator::Firmware& Simulation::Firmware() {
    return Everything->Platform;
}

}  // namespace Simulator

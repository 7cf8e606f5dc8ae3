// Downstream port containment and the errors of root port programmed IO (PCI Express Base 6.0, section 6.2.11).
#include "Simulator/Machine/PcieFabric.h"

namespace Simulator {

namespace {

constexpr unsigned TRIGGER_FATAL = 1;
constexpr unsigned LOG_WITH_HEADER = 4;  // doublewords

}  // namespace

bool PcieFabric::CanTrigger(const PcieFunction& Port, Severity What) const {
    if (Port.Has().Dpc == 0 || Port.IsContained()) {
        return false;
    }
    const unsigned Enable = DpcControl::TriggerEnable::Get(static_cast<UINT16>(Port.Dpc(DPC_CONTROL, 2)));
    return Enable != 0 && (Enable != TRIGGER_FATAL || What == Severity::Fatal);
}

void PcieFabric::Trigger(PcieFunction& Port, unsigned Reason, unsigned Extension, std::uint16_t Source) {
    const unsigned Dpc = Port.Has().Dpc;
    const auto Control = static_cast<UINT16>(Port.Dpc(DPC_CONTROL, 2));
    auto Status = static_cast<UINT16>(Port.Dpc(DPC_STATUS, 2));
    Status = DpcStatus::TriggerStatus::Set(Status, 1);
    Status = DpcStatus::TriggerReason::Set(Status, static_cast<UINT16>(Reason));
    Status = DpcStatus::TriggerReasonExtension::Set(Status, static_cast<UINT16>(Extension));
    Port.Poke(Dpc + DPC_STATUS, 2, Status);
    Port.Poke(Dpc + DPC_ERROR_SOURCE_ID, 2, Source);
    UpdateLink(Port);
    SignalContainment(Port, Control);
}

// An interrupt for the OS, and a correctable error message by which the firmware hears of it.
void PcieFabric::SignalContainment(PcieFunction& Port, unsigned Control) {
    if (DpcControl::InterruptEnable::Get(static_cast<UINT16>(Control)) != 0) {
        Port.SetBits(Port.Has().Dpc + DPC_STATUS, 2, DpcStatus::InterruptStatus::Of(1));
        if (OsInterrupt) {
            OsInterrupt(Port, "dpc");
        }
    }
    if (DpcControl::ErrCorEnable::Get(static_cast<UINT16>(Control)) != 0 && Enables(Port, Severity::Correctable)) {
        Send(Port, Severity::Correctable, true);
    }
}

// A request of the host failed below the root port. What is severe enough contains the port, the rest is signalled
// as advisory; either may be a system error beside that.
void PcieFabric::ReportRpPio(PcieFunction& At, const PcieError& Error) {
    if (!At.HasRootPortExtensions()) {
        return;
    }
    const unsigned Dpc = At.Has().Dpc;
    const std::uint32_t Bit = 1u << Error.Bit;
    const std::uint32_t Before = At.Dpc(DPC_RP_PIO_STATUS, 4);
    At.SetBits(Dpc + DPC_RP_PIO_STATUS, 4, Bit);
    if ((At.Dpc(DPC_RP_PIO_MASK, 4) & Bit) != 0) {
        return;
    }
    auto Status = static_cast<UINT16>(At.Dpc(DPC_STATUS, 2));
    const bool IsFirst = (Before & ~At.Dpc(DPC_RP_PIO_MASK, 4)) == 0;
    if (IsFirst) {
        At.Poke(Dpc + DPC_STATUS, 2, DpcStatus::RpPioFirstErrorPointer::Set(Status, static_cast<UINT16>(Error.Bit)));
        const auto Capability = static_cast<UINT16>(At.Dpc(DPC_CAPABILITY, 2));
        if (DpcCapability::RpPioLogSize::Get(Capability) >= LOG_WITH_HEADER) {
            const TlpWords Header = Error.Header.value_or(
                Error.Bit < 8 ? ConfigurationRequest(false, static_cast<std::uint16_t>(At.SecondaryBus() << 8), 0)
                              : MemoryRequest(false, 0, At.RequesterId()));
            for (unsigned Index = 0; Index < Header.size(); Index++) {
                At.Poke(Dpc + DPC_RP_PIO_HEADER_LOG + 4 * Index, 4, Header[Index]);
            }
        }
    }
    if ((At.Dpc(DPC_RP_PIO_SYS_ERROR, 4) & Bit) != 0 && At.Hub != nullptr) {
        At.Hub->FirmwareEvent(At.HubPort);
    }
    if ((At.Dpc(DPC_RP_PIO_SEVERITY, 4) & Bit) == 0) {
        SignalContainment(At, At.Dpc(DPC_CONTROL, 2));
    } else if (CanTrigger(At, Severity::Fatal)) {
        Trigger(At, DpcReasonSeeExtension, DpcReasonExtensionRpPio, 0);
    }
}

}  // namespace Simulator

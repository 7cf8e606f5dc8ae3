// How an error becomes status, a log and a message, and how messages travel to the root port and the IO hub
// (PCI Express Base 6.0, sections 6.2.3 to 6.2.6; figures 6-2 and 6-3).
#include <bit>

#include "Simulator/Machine/PcieFabric.h"

namespace Simulator {

namespace {

// Severities of a function without AER: those that AER has as defaults.
constexpr std::uint32_t FATAL_BY_DEFAULT = AerUncorrectable::DataLinkProtocolError | AerUncorrectable::SurpriseDown |
                                           AerUncorrectable::FlowControlProtocolError |
                                           AerUncorrectable::ReceiverOverflow | AerUncorrectable::MalformedTlp |
                                           AerUncorrectable::UncorrectableInternalError;
// Errors whose TLP is logged.
constexpr std::uint32_t WITH_HEADER = AerUncorrectable::PoisonedTlpReceived | AerUncorrectable::CompletionTimeout |
                                      AerUncorrectable::CompleterAbort | AerUncorrectable::UnexpectedCompletion |
                                      AerUncorrectable::MalformedTlp | AerUncorrectable::EcrcError |
                                      AerUncorrectable::UnsupportedRequest | AerUncorrectable::AcsViolation |
                                      AerUncorrectable::McBlockedTlp | AerUncorrectable::AtomicOpEgressBlocked |
                                      AerUncorrectable::TlpPrefixBlocked | AerUncorrectable::PoisonedTlpEgressBlocked;

// What fails when nobody says what: a write to the function's memory, or for errors of a requester its own read.
TlpWords UsualHeader(const PcieFunction& At, std::uint32_t Bit) {
    const bool IsRequester =
        Bit == AerUncorrectable::CompletionTimeout || Bit == AerUncorrectable::UnexpectedCompletion;
    return IsRequester ? MemoryRequest(false, 0x100000, At.RequesterId()) : MemoryRequest(true, At.BarBase(0), 0);
}

constexpr std::uint32_t SERR_ASSERTED = 1 << 12;  // secondary uncorrectable errors
constexpr unsigned SECONDARY_PERR = 11;

}  // namespace

bool PcieFabric::CanHave(const PcieFunction& Where, const PcieError& Error) {
    switch (Error.From) {
        case PcieError::Source::Correctable:
        case PcieError::Source::Uncorrectable:
            return Where.IsPcie();
        case PcieError::Source::RpPio:
            return Where.HasRootPortExtensions();
        case PcieError::Source::Secondary:
            return Where.PortType() == PcieToPciBridge;
        case PcieError::Source::PciStatus:
            return true;
        case PcieError::Source::PciSecondary:
            return Where.IsBridge();
    }
    return false;
}

void PcieFabric::Inject(PcieFunction& Where, const PcieError& Error) {
    if (Where.IsDead() || !CanHave(Where, Error)) {
        return;
    }
    switch (Error.From) {
        case PcieError::Source::Correctable:
            ReportCorrectable(Where, Error);
            break;
        case PcieError::Source::Uncorrectable:
            ReportUncorrectable(Where, Error);
            break;
        case PcieError::Source::RpPio:
            ReportRpPio(Where, Error);
            break;
        case PcieError::Source::Secondary:
            ReportSecondary(Where, Error);
            break;
        case PcieError::Source::PciStatus:
        case PcieError::Source::PciSecondary:
            ReportPciStatus(Where, Error);
            break;
    }
}

void PcieFabric::ReportCorrectable(PcieFunction& At, const PcieError& Error) {
    const std::uint32_t Bit = 1u << Error.Bit;
    At.SetBits(At.Has().Pcie + PCIE_DEVICE_STATUS, 2, PcieDeviceStatus::CorrectableErrorDetected);
    if (At.Has().Aer != 0) {
        At.SetBits(At.Has().Aer + AER_CORRECTABLE_STATUS, 4, Bit);
        if ((At.Aer(AER_CORRECTABLE_MASK) & Bit) != 0) {
            return;
        }
    }
    if (Enables(At, Severity::Correctable)) {
        Send(At, Severity::Correctable);
    }
}

void PcieFabric::ReportUncorrectable(PcieFunction& At, const PcieError& Error) {
    if (!At.IsPcie()) {
        return;
    }
    const std::uint32_t Bit = 1u << Error.Bit;
    const bool HasAer = At.Has().Aer != 0;
    const bool IsUnsupported = Bit == AerUncorrectable::UnsupportedRequest;
    const bool IsFatal = ((HasAer ? At.Aer(AER_UNCORRECTABLE_SEVERITY) : FATAL_BY_DEFAULT) & Bit) != 0;
    const TlpWords Header = Error.Header.value_or(UsualHeader(At, Bit));
    const TlpWords* Log = (Bit & WITH_HEADER) != 0 ? &Header : nullptr;
    if (Bit == AerUncorrectable::PoisonedTlpReceived) {
        At.SetBits(PCI_STATUS, 2, PciStatus::DetectedParityError);
    }
    if (Bit == AerUncorrectable::CompleterAbort) {
        At.SetBits(PCI_STATUS, 2, PciStatus::SignaledTargetAbort);
    }
    if (IsUnsupported) {
        At.SetBits(At.Has().Pcie + PCIE_DEVICE_STATUS, 2, PcieDeviceStatus::UnsupportedRequestDetected);
    }
    // The requester of a non-posted request hears of it by the completion, and reports it if it matters.
    const bool IsCompleters = (IsUnsupported || Bit == AerUncorrectable::CompleterAbort) && IsNonPosted(Header);
    if (!IsFatal && At.IsRoleBased() &&
        (Error.Advisory || IsCompleters || Bit == AerUncorrectable::UnexpectedCompletion)) {
        ReportAdvisory(At, Error, Log);
        return;
    }
    At.SetBits(At.Has().Pcie + PCIE_DEVICE_STATUS, 2,
               IsFatal ? PcieDeviceStatus::FatalErrorDetected : PcieDeviceStatus::NonFatalErrorDetected);
    if (HasAer && !LogUncorrectable(At, Error.Bit, Log)) {
        return;
    }
    const Severity What = IsFatal ? Severity::Fatal : Severity::NonFatal;
    if (At.IsDownstreamPort() && CanTrigger(At, What)) {
        Trigger(At, DpcReasonUnmaskedUncorrectable, 0, 0);
        return;
    }
    const bool IsReported = !IsUnsupported || (At.Peek(PCI_COMMAND, 2) & PciCommand::SerrEnable) != 0 ||
                            (At.Pcie(PCIE_DEVICE_CONTROL, 2) & PcieDeviceControl::UnsupportedRequestReportingEnable);
    if (IsReported && Enables(At, What)) {
        Send(At, What);
    }
}

void PcieFabric::ReportAdvisory(PcieFunction& At, const PcieError& Error, const TlpWords* Header) {
    const std::uint32_t Bit = 1u << Error.Bit;
    At.SetBits(At.Has().Pcie + PCIE_DEVICE_STATUS, 2, PcieDeviceStatus::CorrectableErrorDetected);
    if (At.Has().Aer != 0) {
        At.SetBits(At.Has().Aer + AER_CORRECTABLE_STATUS, 4, AerCorrectable::AdvisoryNonFatalError);
        if ((At.Aer(AER_CORRECTABLE_MASK) & AerCorrectable::AdvisoryNonFatalError) != 0) {
            return;
        }
        LogUncorrectable(At, Error.Bit, Header);
    }
    const std::uint32_t Control = At.Pcie(PCIE_DEVICE_CONTROL, 2);
    const bool IsReported = Bit != AerUncorrectable::UnsupportedRequest ||
                            (Control & PcieDeviceControl::UnsupportedRequestReportingEnable) != 0;
    if (IsReported && Enables(At, Severity::Correctable)) {
        Send(At, Severity::Correctable);
    }
}

// The first unmasked error keeps its pointer and its header until software clears its status. False: it is masked.
bool PcieFabric::LogUncorrectable(PcieFunction& At, unsigned Bit, const TlpWords* Header) {
    const unsigned Aer = At.Has().Aer;
    const std::uint32_t Before = At.Aer(AER_UNCORRECTABLE_STATUS);
    At.SetBits(Aer + AER_UNCORRECTABLE_STATUS, 4, 1u << Bit);
    if ((At.Aer(AER_UNCORRECTABLE_MASK) >> Bit & 1) != 0) {
        return false;
    }
    const std::uint32_t Control = At.Aer(AER_CAPABILITIES_CONTROL);
    if ((Before >> AerCapabilitiesControl::FirstErrorPointer::Get(Control) & 1) != 0) {
        return true;
    }
    At.Poke(Aer + AER_CAPABILITIES_CONTROL, 4, AerCapabilitiesControl::FirstErrorPointer::Set(Control, Bit));
    for (unsigned Index = 0; Header != nullptr && Index < Header->size(); Index++) {
        At.Poke(Aer + AER_HEADER_LOG + 4 * Index, 4, (*Header)[Index]);
    }
    return true;
}

bool PcieFabric::Enables(PcieFunction& At, Severity What) const {
    const bool ByCommand = What != Severity::Correctable && (At.Peek(PCI_COMMAND, 2) & PciCommand::SerrEnable) != 0;
    const std::uint32_t Bit = What == Severity::Correctable ? PcieDeviceControl::CorrectableErrorReportingEnable
                              : What == Severity::NonFatal  ? PcieDeviceControl::NonFatalErrorReportingEnable
                                                            : PcieDeviceControl::FatalErrorReportingEnable;
    return ByCommand || (At.IsPcie() && (At.Pcie(PCIE_DEVICE_CONTROL, 2) & Bit) != 0);
}

void PcieFabric::Send(PcieFunction& From, Severity What, bool ForFirmware) {
    if (What != Severity::Correctable && (From.Peek(PCI_COMMAND, 2) & PciCommand::SerrEnable) != 0) {
        From.SetBits(PCI_STATUS, 2, PciStatus::SignaledSystemError);
    }
    Travel(From, {What, From.RequesterId(), ForFirmware});
}

void PcieFabric::Travel(PcieFunction& From, Packet Message) {
    if (From.IsRootPort() || From.IsEventCollector()) {
        ReceiveAtRoot(From, Message, true);
        return;
    }
    if (From.Above == nullptr) {
        if (PcieFunction* Collector = CollectorOf(From)) {
            ReceiveAtRoot(*Collector, Message, false);
        }
        return;
    }
    const bool IsUncorrectable = Message.What != Severity::Correctable;
    for (PcieFunction* Port = From.Above; Port != nullptr; Port = Port->Above) {
        if (Port->IsDownstreamPort() && !Port->Wire.IsUp) {
            return;
        }
        if (IsUncorrectable) {
            Port->SetBits(PCI_SECONDARY_STATUS, 2, PciStatus::SignaledSystemError);
        }
        if (IsUncorrectable && Port->IsDownstreamPort() && CanTrigger(*Port, Message.What)) {
            Trigger(*Port, Message.What == Severity::Fatal ? DpcReasonErrFatalReceived : DpcReasonErrNonFatalReceived,
                    0, Message.Requester);
            return;
        }
        if ((Port->Peek(PCI_BRIDGE_CONTROL, 2) & PciBridgeControl::SerrEnable) == 0 ||
            !Enables(*Port, Message.What)) {
            return;
        }
        if (IsUncorrectable && (Port->Peek(PCI_COMMAND, 2) & PciCommand::SerrEnable) != 0) {
            Port->SetBits(PCI_STATUS, 2, PciStatus::SignaledSystemError);
        }
        if (Port->IsRootPort()) {
            ReceiveAtRoot(*Port, Message, false);
            return;
        }
    }
}

void PcieFabric::ReceiveAtRoot(PcieFunction& Root, const Packet& Message, bool IsInternal) {
    using namespace AerRootErrorStatus;
    const unsigned Class = Message.What == Severity::Correctable ? 0 : Message.What == Severity::NonFatal ? 1 : 2;
    if (const unsigned Aer = Root.Has().Aer; Aer != 0) {
        const std::uint32_t Status = Root.Aer(AER_ROOT_ERROR_STATUS);
        const std::uint32_t Source = Root.Aer(AER_ERROR_SOURCE_ID);
        const bool IsCorrectable = Message.What == Severity::Correctable;
        const bool IsFirst = (Status & (IsCorrectable ? ErrCorReceived : ErrFatalNonFatalReceived)) == 0;
        std::uint32_t Set = 0;
        if (IsCorrectable) {
            Set = IsFirst ? ErrCorReceived : MultipleErrCorReceived;
        } else {
            const bool IsFatal = Message.What == Severity::Fatal;
            Set = IsFirst ? ErrFatalNonFatalReceived | (IsFatal ? FirstUncorrectableFatal : 0)
                          : MultipleErrFatalNonFatalReceived;
            Set |= IsFatal ? FatalErrorMessagesReceived : NonFatalErrorMessagesReceived;
        }
        Root.SetBits(Aer + AER_ROOT_ERROR_STATUS, 4, Set);
        if (IsFirst) {
            Root.Poke(Aer + AER_ERROR_SOURCE_ID, 4,
                      IsCorrectable ? AerErrorSourceId::Correctable::Set(Source, Message.Requester)
                                    : AerErrorSourceId::Uncorrectable::Set(Source, Message.Requester));
        }
        if ((Root.Aer(AER_ROOT_ERROR_COMMAND) >> Class & 1) != 0 && OsInterrupt) {
            OsInterrupt(Root, "aer");
        }
    }
    if (Root.Hub == nullptr) {
        return;
    }
    if (Message.ForFirmware) {
        Root.Hub->FirmwareEvent(Root.HubPort);
    } else if ((Root.Pcie(PCIE_ROOT_CONTROL, 2) >> Class & 1) != 0) {
        constexpr IoHub::Signal SIGNALS[] = {IoHub::Signal::Correctable, IoHub::Signal::NonFatal,
                                             IoHub::Signal::Fatal};
        Root.Hub->SystemError(Root.HubPort, SIGNALS[Class], IsInternal);
    }
}

// A system error stays asserted while the root status shows what it was signalled for.
bool PcieFabric::Asserts(const PcieFunction& Root) const {
    if (Root.Has().Aer == 0 || !Root.IsPcie()) {
        return false;
    }
    const std::uint32_t Status = Root.Aer(AER_ROOT_ERROR_STATUS);
    const std::uint32_t Control = Root.Pcie(PCIE_ROOT_CONTROL, 2);
    const bool IsInternal = AerErrorSourceId::Correctable::Get(Root.Aer(AER_ERROR_SOURCE_ID)) == Root.RequesterId();
    const bool Correctable = (Status & AerRootErrorStatus::ErrCorReceived) != 0 &&
                             (Control & PcieRootControl::SystemErrorOnCorrectableErrorEnable) != 0 &&
                             Root.Hub->CorrectedAction(Root.HubPort, IsInternal) == IohcActionControl::GENERATE_SMI;
    return Correctable ||
           ((Status & AerRootErrorStatus::NonFatalErrorMessagesReceived) != 0 &&
            (Control & PcieRootControl::SystemErrorOnNonFatalErrorEnable) != 0) ||
           ((Status & AerRootErrorStatus::FatalErrorMessagesReceived) != 0 &&
            (Control & PcieRootControl::SystemErrorOnFatalErrorEnable) != 0);
}

// Integrated endpoints report through an event collector on their bus.
PcieFunction* PcieFabric::CollectorOf(const PcieFunction& Integrated) {
    for (const RootPort& One : Ports) {
        if (One.Function->IsEventCollector() && One.Function->Segment == Integrated.Segment &&
            One.Function->RootBus == Integrated.RootBus) {
            return One.Function;
        }
    }
    return nullptr;
}

// PCI Express to PCI/PCI-X Bridge 1.0: errors of the conventional bus, by the bridge's secondary severities.
void PcieFabric::ReportSecondary(PcieFunction& At, const PcieError& Error) {
    const unsigned Aer = At.Has().Aer;
    const std::uint32_t Bit = 1u << Error.Bit;
    bool IsMasked = Aer == 0;
    bool IsFatal = true;
    if (Aer != 0) {
        At.SetBits(Aer + AER_SECONDARY_UNCORRECTABLE_STATUS, 4, Bit);
        IsMasked = (At.Aer(AER_SECONDARY_UNCORRECTABLE_MASK) & Bit) != 0;
        IsFatal = (At.Aer(AER_SECONDARY_UNCORRECTABLE_SEVERITY) & Bit) != 0;
    }
    if (Bit == SERR_ASSERTED) {
        At.SetBits(PCI_SECONDARY_STATUS, 2, PciStatus::SignaledSystemError);
        IsMasked = IsMasked && (At.Peek(PCI_BRIDGE_CONTROL, 2) & PciBridgeControl::SerrEnable) == 0;
    }
    if (IsMasked) {
        return;
    }
    for (unsigned Index = 0; Aer != 0 && Error.Header && Index < Error.Header->size(); Index++) {
        At.Poke(Aer + AER_SECONDARY_HEADER_LOG + 4 * Index, 4, (*Error.Header)[Index]);
    }
    At.SetBits(At.Has().Pcie + PCIE_DEVICE_STATUS, 2,
               IsFatal ? PcieDeviceStatus::FatalErrorDetected : PcieDeviceStatus::NonFatalErrorDetected);
    const Severity What = IsFatal ? Severity::Fatal : Severity::NonFatal;
    if (Enables(At, What)) {
        Send(At, What);
    }
}

void PcieFabric::ReportPciStatus(PcieFunction& At, const PcieError& Error) {
    const std::uint32_t Bit = 1u << Error.Bit;
    const bool IsSecondary = Error.From == PcieError::Source::PciSecondary;
    const std::uint32_t Command = At.Peek(PCI_COMMAND, 2), Control = At.Peek(PCI_BRIDGE_CONTROL, 2);
    const bool AnswersParity = IsSecondary ? (Control & PciBridgeControl::ParityErrorResponseEnable) != 0
                                           : (Command & PciCommand::ParityErrorResponse) != 0;
    const bool SignalsSystemError = (Command & PciCommand::SerrEnable) != 0;
    if (Bit == PciStatus::MasterDataParityError && !AnswersParity) {
        return;
    }
    // A secondary side hears system errors; a primary one signals them where it may.
    if (!IsSecondary && Bit == PciStatus::SignaledSystemError && !SignalsSystemError) {
        return;
    }
    At.SetBits(IsSecondary ? PCI_SECONDARY_STATUS : PCI_STATUS, 2, Bit);
    if (Bit == PciStatus::SignaledSystemError && !At.IsPcie()) {
        if (!IsSecondary) {
            AssertSystemError(At);
        } else if ((Control & PciBridgeControl::SerrEnable) != 0 && SignalsSystemError) {
            At.SetBits(PCI_STATUS, 2, PciStatus::SignaledSystemError);
            AssertSystemError(At);
        }
    }
    if (!IsSecondary && Bit == PciStatus::DetectedParityError && AnswersParity && At.Above != nullptr) {
        ReportSecondary(*At.Above, {PcieError::Source::Secondary, SECONDARY_PERR});
    }
}

// A conventional function asserts SERR#: a PCI bridge passes it on, a PCIe-to-PCI bridge turns it into a message. On
// a link there is no such wire: the function sends the message itself.
void PcieFabric::AssertSystemError(PcieFunction& From) {
    PcieFunction* Bridge = From.Above;
    if (Bridge == nullptr) {
        return;
    }
    if (Bridge->PortType() == PcieToPciBridge) {
        ReportSecondary(*Bridge, {PcieError::Source::Secondary, std::countr_zero(SERR_ASSERTED) + 0u});
    } else if (!Bridge->IsPcie()) {
        ReportPciStatus(*Bridge, {PcieError::Source::PciSecondary, 14});
    } else {
        Travel(From, {Severity::Fatal, From.RequesterId()});
    }
}

}  // namespace Simulator

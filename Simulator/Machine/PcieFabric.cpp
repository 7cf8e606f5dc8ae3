#include "Simulator/Machine/PcieFabric.h"

#include <algorithm>

#include "Simulator/Machine/PcieHierarchy.h"

namespace Simulator {

namespace {

constexpr unsigned LAST_BUS = 255;
constexpr unsigned RECEIVED_MASTER_ABORT = 3;  // secondary uncorrectable errors of a bridge

// What a function's boot firmware enables. System errors stay off in Command: Device Control governs.
constexpr std::uint32_t ENDPOINT_COMMAND = PciCommand::MemorySpaceEnable | PciCommand::BusMasterEnable;
constexpr std::uint32_t CONVENTIONAL_COMMAND =
    ENDPOINT_COMMAND | PciCommand::ParityErrorResponse | PciCommand::SerrEnable;
constexpr std::uint32_t BRIDGE_CONTROL = PciBridgeControl::ParityErrorResponseEnable | PciBridgeControl::SerrEnable;
constexpr std::uint32_t SYSTEM_ERRORS = PcieRootControl::SystemErrorOnCorrectableErrorEnable |
                                        PcieRootControl::SystemErrorOnNonFatalErrorEnable |
                                        PcieRootControl::SystemErrorOnFatalErrorEnable;

// A conventional bus has a master abort to tell; a switch may end requests silently.
bool IsPcieLink(const PcieFunction& Port) {
    return Port.IsDownstreamPort() || Port.PortType() == PcieSwitchUpstreamPort;
}

bool HasInWindow(const PcieFunction& Bridge, std::uint64_t Address) {
    const auto From = [&Bridge](unsigned Register) { return std::uint64_t{Bridge.Peek(Register, 2) & 0xFFF0} << 16; };
    const auto Upper = [&Bridge](unsigned Register) { return std::uint64_t{Bridge.Peek(Register, 4)} << 32; };
    constexpr std::uint64_t UNIT = PciMemoryWindow::UnitMask;
    const std::uint64_t First = From(PCI_PREFETCHABLE_MEMORY_BASE) | Upper(PCI_PREFETCHABLE_BASE_UPPER);
    const std::uint64_t Last = From(PCI_PREFETCHABLE_MEMORY_LIMIT) | Upper(PCI_PREFETCHABLE_LIMIT_UPPER) | UNIT;
    return (From(PCI_MEMORY_BASE) <= Address && Address <= (From(PCI_MEMORY_LIMIT) | UNIT)) ||
           (First <= Address && Address <= Last);
}

}  // namespace

PcieFabric::PcieFabric(const PcieSettings& Wanted, const std::vector<RootComplex>& Complexes, PciSpace& Functions)
    : Settings(Wanted), Space(Functions), RootBuses(Complexes.size()) {
    for (const RootComplex& One : Complexes) {
        Hubs.push_back(std::make_unique<IoHub>(One));
    }
    PcieHierarchyBuilder(*this).Build();
    for (const auto& One : Hubs) {
        IoHub* Here = One.get();
        Here->StillAsserted = [this, Here](unsigned Port) {
            return Here->Port(Port) != nullptr && Asserts(*Here->Port(Port));
        };
        Here->StrapChanged = [this, Here](unsigned Port) {
            if (PcieFunction* Function = Here->Port(Port); Function != nullptr && Function->IsDownstreamPort()) {
                ApplyStrap(*Function);
            }
        };
    }
    Space.SetRouter(this);
}

PcieFabric::~PcieFabric() {
    Space.SetRouter(nullptr);
}

void PcieFabric::ForEach(const std::function<void(PcieFunction&)>& Do) {
    const std::function<void(std::vector<std::unique_ptr<PcieFunction>>&)> Walk = [&](auto& Bus) {
        for (const auto& One : Bus) {
            Do(*One);
            Walk(One->Below);
        }
    };
    for (auto& Bus : RootBuses) {
        Walk(Bus);
    }
}

PcieFunction* PcieFabric::Find(std::string_view Name) {
    PcieFunction* Found = nullptr;
    ForEach([&](PcieFunction& One) {
        if (!Name.empty() && One.GivenName() == Name) {
            Found = &One;
        }
    });
    return Found;
}

PcieFunction* PcieFabric::Find(const PciAddress& Where) {
    // A function that bridges do not lead to has its address all the same.
    PcieFunction* Found = dynamic_cast<PcieFunction*>(Space.Find(Where));
    if (Found != nullptr) {
        return Found;
    }
    ForEach([&](PcieFunction& One) {
        if (Found == nullptr && One.Where() == Where) {
            Found = &One;
        }
    });
    return Found;
}

const PcieSlotSetting* PcieFabric::SlotOf(const PcieFunction& Function) const {
    for (const PcieFunction* At = &Function; At != nullptr; At = At->Above) {
        const auto Found = std::ranges::find(Slots, At, [](const auto& One) { return One.first; });
        if (Found != Slots.end()) {
            return &Found->second;
        }
    }
    return nullptr;
}

bool PcieFabric::HasSmiPending() const {
    return std::ranges::any_of(Hubs, [](const auto& One) { return One->HasSmiPending(); });
}

void PcieFabric::EnableReporting(PcieFunction& Function, bool IsFirmwareFirst) const {
    if (Function.IsBridge()) {
        Function.SetBits(PCI_COMMAND, 2, ENDPOINT_COMMAND);
        Function.SetBits(PCI_BRIDGE_CONTROL, 2, BRIDGE_CONTROL);
    } else {
        Function.SetBits(PCI_COMMAND, 2, Function.IsPcie() ? ENDPOINT_COMMAND : CONVENTIONAL_COMMAND);
    }
    if (!Function.IsPcie()) {
        Function.SetBits(PCI_COMMAND, 2, PciCommand::SerrEnable);
        return;
    }
    Function.SetBits(Function.Has().Pcie + PCIE_DEVICE_CONTROL, 2, PcieDeviceStatus::ErrorBits);
    if (const unsigned Aer = Function.Has().Aer; Aer != 0) {
        Function.Poke(Aer + AER_UNCORRECTABLE_MASK, 4, 0);
        // Advisory errors stay masked where hardware masks them but at root ports, which hear of all the others.
        const bool IsRoot = Function.IsRootPort() || Function.IsEventCollector();
        Function.Poke(Aer + AER_CORRECTABLE_MASK, 4, IsRoot ? 0 : AerCorrectable::AdvisoryNonFatalError);
    }
    if (IsFirmwareFirst && (Function.IsRootPort() || Function.IsEventCollector())) {
        Function.SetBits(Function.Has().Pcie + PCIE_ROOT_CONTROL, 2, SYSTEM_ERRORS);
    }
}

void PcieFabric::EnableReporting(bool IsFirmwareFirst) {
    ForEach([&](PcieFunction& One) {
        if (One.IsSetUpByFirmware) {
            EnableReporting(One, IsFirmwareFirst);
        }
    });
}

// ---- Configuration requests

void PcieFabric::RoutesChanged() {
    Space.Invalidate();
}

void PcieFabric::Route() {
    for (const auto& Bus : RootBuses) {
        for (const auto& One : Bus) {
            Space.Publish(One->Where(), *One);
        }
    }
    for (const auto& Bus : RootBuses) {
        for (const auto& One : Bus) {
            RouteBelow(*One, 1, LAST_BUS);
        }
    }
}

// A bridge forwards to its secondary bus and to those behind it, as far as the bridges above let it.
void PcieFabric::RouteBelow(PcieFunction& Bridge, unsigned First, unsigned Last) {
    if (!Bridge.IsBridge()) {
        return;
    }
    const unsigned Secondary = Bridge.SecondaryBus();
    const unsigned Subordinate = std::min(Bridge.SubordinateBus(), Last);
    if (Secondary < First || Secondary > Subordinate) {
        return;
    }
    Space.Claim(Bridge.Segment, Secondary, Subordinate, Bridge);
    if ((Bridge.IsDownstreamPort() && !Bridge.Wire.IsUp) || Bridge.IsInD3Hot()) {
        return;
    }
    for (const auto& One : Bridge.Below) {
        Space.Publish({Bridge.Segment, Secondary, One->Device, One->Function}, *One);
        RouteBelow(*One, Secondary + 1, Subordinate);
    }
}

// Who ends the request: a port whose link is down, or that has no such device behind it, does so itself and logs an
// unsupported request as its completer; else the completion comes from below and the port only notes it. A port in
// containment ends requests silently.
void PcieFabric::NobodyAnswers(PciFunction& Claimed, const PciAddress& Where, unsigned Register, bool IsWrite) {
    auto& Port = static_cast<PcieFunction&>(Claimed);
    const bool Logs = Settings.Probes == ProbeLogging::All ||
                      (Settings.Probes == ProbeLogging::RootPorts && (Port.IsRootPort() || !IsPcieLink(Port)));
    if (Port.IsDead() || !Logs) {
        return;
    }
    const TlpWords Header = ConfigurationRequest(
        IsWrite, static_cast<std::uint16_t>(Where.Bus << 8 | Where.Device << 3 | Where.Function), Register);
    const bool IsNext = Where.Bus == Port.SecondaryBus();
    if (Port.IsDownstreamPort() && Port.IsContained()) {
        return;
    }
    const bool IsCompleter = Port.IsDownstreamPort()
                                 ? !Port.Wire.IsUp || Port.IsInD3Hot() || (IsNext && Where.Device != 0)
                                 : Port.PortType() == PcieSwitchUpstreamPort;
    if (IsCompleter) {
        ReportUncorrectable(Port, {PcieError::Source::Uncorrectable, 20, Header});
        return;
    }
    Port.SetBits(PCI_SECONDARY_STATUS, 2, PciStatus::ReceivedMasterAbort);
    if (Port.HasRootPortExtensions()) {
        ReportRpPio(Port, {PcieError::Source::RpPio, 0, Header});
    } else if (Port.PortType() == PcieToPciBridge) {
        ReportSecondary(Port, {PcieError::Source::Secondary, RECEIVED_MASTER_ABORT, Header});
    }
}

// ---- Memory requests to registers behind base addresses

PcieFabric::MappedRegister PcieFabric::FindRegister(std::uint64_t Address, unsigned Width) {
    for (PcieFunction* Function : WithRegisters) {
        const bool Answers = (Function->Peek(PCI_COMMAND, 2) & PciCommand::MemorySpaceEnable) != 0 &&
                             !Function->IsDead() && !Function->IsInD3Hot() &&
                             Space.Find(Function->Where()) == Function;
        for (const PcieFunction::MappedBar& Bar : Function->MappedBars()) {
            const std::uint64_t Base = Answers ? Function->BarBase(Bar.Index) : Bar.AssignedBase;
            const std::uint64_t Offset = Address - Base;
            if (Offset < Bar.Size && Width <= Bar.Size - Offset) {
                return {true, Answers ? Bar.Device : nullptr, Offset};
            }
        }
    }
    // The bridges above lead there, whoever has left.
    const bool IsRouted = std::ranges::any_of(WithRegisters, [&](const PcieFunction* Function) {
        return Function->Above != nullptr && HasInWindow(*Function->Above, Address);
    });
    return {IsRouted, nullptr, 0};
}

void PcieFabric::MapBar(PcieFunction& Function, unsigned Index, std::uint64_t Size, MmioDevice& Device) {
    Function.MapBar(Index, Size, Device);
    if (std::ranges::find(WithRegisters, &Function) == WithRegisters.end()) {
        WithRegisters.push_back(&Function);
    }
}

// A request that is routed to a function which does not answer ends like one to an absent function: all ones.
std::optional<std::uint64_t> PcieFabric::ReadMemory(std::uint64_t Address, unsigned Width) {
    const MappedRegister Found = FindRegister(Address, Width);
    if (Found.IsRouted && Found.Device == nullptr) {
        return UINT64_MAX >> (64 - 8 * Width);
    }
    return Found.Device == nullptr ? std::nullopt : Found.Device->Read(Found.Offset, Width);
}

bool PcieFabric::WriteMemory(std::uint64_t Address, unsigned Width, std::uint64_t Value) {
    const MappedRegister Found = FindRegister(Address, Width);
    return Found.Device == nullptr ? Found.IsRouted : Found.Device->Write(Found.Offset, Width, Value);
}

}  // namespace Simulator

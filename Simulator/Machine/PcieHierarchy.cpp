#include "Simulator/Machine/PcieHierarchy.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <map>
#include <stdexcept>

#include "Simulator/Machine/PcieRegisters.h"

namespace Simulator {

namespace {

constexpr std::uint64_t MIB = 1 << 20;

// Memory behind root complexes, above ECAM and above all DRAM.
constexpr std::uint64_t MEMORY_BASE = 0xC0000000, MEMORY_STRIDE = 0x3000000;
constexpr std::uint64_t PREFETCHABLE_BASE = std::uint64_t{1} << 44, PREFETCHABLE_STRIDE = std::uint64_t{1} << 36;
constexpr std::uint64_t IO_BASE = 0x1000, IO_STRIDE = 0xE00, IO_END = 0x10000;

constexpr std::uint64_t AlignUp(std::uint64_t Value, std::uint64_t To) {
    return (Value + To - 1) / To * To;
}

unsigned WindowRegister(std::uint64_t Address, unsigned Kind) {
    return static_cast<unsigned>(Address >> 16 & 0xFFF0) | Kind;
}

// Opens a bridge's windows for what was laid out below it.
void OpenWindows(PcieFunction& Bridge, std::uint64_t Memory, std::uint64_t MemoryEnd, std::uint64_t Prefetchable,
                 std::uint64_t PrefetchableEnd) {
    if (MemoryEnd > Memory) {
        Bridge.Poke(PCI_MEMORY_BASE, 2, WindowRegister(Memory, 0));
        Bridge.Poke(PCI_MEMORY_LIMIT, 2, WindowRegister(MemoryEnd - 1, 0));
    }
    if (PrefetchableEnd > Prefetchable) {
        Bridge.Poke(PCI_PREFETCHABLE_MEMORY_BASE, 2, WindowRegister(Prefetchable, 1));
        Bridge.Poke(PCI_PREFETCHABLE_MEMORY_LIMIT, 2, WindowRegister(PrefetchableEnd - 1, 1));
        Bridge.Poke(PCI_PREFETCHABLE_BASE_UPPER, 4, static_cast<std::uint32_t>(Prefetchable >> 32));
        Bridge.Poke(PCI_PREFETCHABLE_LIMIT_UPPER, 4, static_cast<std::uint32_t>((PrefetchableEnd - 1) >> 32));
    }
}

void SetBusNumbers(PcieFunction& Bridge, unsigned Primary, unsigned Secondary, unsigned Subordinate) {
    Bridge.Poke(PCI_PRIMARY_BUS_NUMBER, 1, Primary);
    Bridge.Poke(PCI_SECONDARY_BUS_NUMBER, 1, Secondary);
    Bridge.Poke(PCI_SUBORDINATE_BUS_NUMBER, 1, Subordinate);
}

// What a function of its kind cannot have is no setting to be passed over.
void CheckSetting(const PcieFunctionSetting& Setting) {
    const bool IsPort = Setting.Kind == PcieKind::RootPort || Setting.Kind == PcieKind::SwitchDownstreamPort;
    const bool IsConventional = Setting.Kind == PcieKind::Pci || Setting.Kind == PcieKind::PciBridge;
    const auto Refuse = [&](const char* Why) {
        throw std::invalid_argument(fmt::format("\"{}\" {}", Setting.Name, Why));
    };
    if (!IsPort && (Setting.Slot || Setting.Dpc || Setting.SurpriseDown)) {
        Refuse("is no root port and no switch's downstream port: it has no slot, no DPC, no strap for surprises");
    }
    if (!IsBridgeKind(Setting.Kind) && Setting.SpareBuses != 0) {
        Refuse("is no bridge: no bus numbers are kept for what lies below it");
    }
    if (IsConventional && (Setting.Cxl || Setting.Sfi || Setting.SerialNumber)) {
        Refuse("is a conventional function: it has no extended capabilities");
    }
}

void CheckBar(const PcieFunctionSetting& Setting, const BarSetting& Bar) {
    const unsigned Count = IsBridgeKind(Setting.Kind) ? PCI_TYPE1_BASE_ADDRESSES : PCI_TYPE0_BASE_ADDRESSES;
    const auto Refuse = [&](const std::string& Why) {
        throw std::invalid_argument(
            fmt::format("\"{}\", base address register {}: {}", Setting.Name, Bar.Index, Why));
    };
    if (Bar.Index + (Bar.Is64 ? 1 : 0) >= Count) {
        Refuse(fmt::format("the function has {} of them; one of 64 bits takes two", Count));
    }
    if (Bar.IsIo && (Bar.Is64 || Bar.IsPrefetchable)) {
        Refuse("IO space has 32 bits and is not prefetchable");
    }
    const std::uint64_t Smallest = Bar.IsIo ? 4 : 16;
    if (Bar.Size != 0 && (!std::has_single_bit(Bar.Size) || Bar.Size < Smallest)) {
        Refuse(fmt::format("the size is 0 or a power of two from {} on", Smallest));
    }
    const std::uint64_t Highest = Bar.Is64 ? UINT64_MAX : UINT32_MAX;
    if (Bar.Size > Highest || Bar.Base > Highest || (Bar.Size != 0 && Bar.Base % Bar.Size != 0)) {
        Refuse("the base is a multiple of the size, and both fit into the register");
    }
}

}  // namespace

void PcieHierarchyBuilder::Build() {
    for (std::size_t Index = 0; Index < Fabric.Hubs.size(); Index++) {
        const RootComplex& Complex = Fabric.Hubs[Index]->Location();
        Resources& Here = Free.emplace_back();
        Here.NextBus = Complex.BusBase + 1;
        Here.LastBus = Complex.LastBus;
        Here.Memory = MEMORY_BASE + Index * MEMORY_STRIDE;
        Here.MemoryEnd = Here.Memory + MEMORY_STRIDE;
        Here.Prefetchable = PREFETCHABLE_BASE + Index * PREFETCHABLE_STRIDE;
        Here.PrefetchableEnd = Here.Prefetchable + PREFETCHABLE_STRIDE;
        Here.Io = IO_BASE + Index * IO_STRIDE;
    }
    if (Fabric.Settings.Dump) {
        AddDump(*Fabric.Settings.Dump);
    }
    const bool IsDefault = Fabric.Settings.IsDefault && !Fabric.Settings.Dump;
    for (const PciePortSetting& One : IsDefault ? DefaultPciePorts() : Fabric.Settings.Ports) {
        if (One.RootComplex < Fabric.Hubs.size()) {
            AddPort(One);
        } else if (!IsDefault) {
            throw std::invalid_argument(
                fmt::format("there is no root complex {}; the machine has {}", One.RootComplex, Fabric.Hubs.size()));
        }
    }
    for (Bus& All : Fabric.RootBuses) {
        MarkMultiFunction(All);
    }
    Fabric.ForEach([](PcieFunction& One) { One.RememberReset(); });
}

void PcieHierarchyBuilder::AddHubPort(PcieFunction& Function, std::size_t RootComplex, std::optional<unsigned> Number,
                                      bool CxlCapable, unsigned CxlMode) {
    IoHub& Hub = *Fabric.Hubs[RootComplex];
    Resources& Here = Free[RootComplex];
    const unsigned Port = Number.value_or(Here.NextPort);
    if (Port >= IoHub::PORTS || Hub.Port(Port) != nullptr) {
        throw std::invalid_argument(
            fmt::format("root complex {}: port {} is taken or does not exist", RootComplex, Port));
    }
    Function.HubPort = Port;
    Here.NextPort = Port + 1;
    Hub.SetPort(Port, Function);
    Fabric.Ports.push_back({&Function, static_cast<unsigned>(RootComplex), CxlCapable, CxlMode});
}

void PcieHierarchyBuilder::AddPort(const PciePortSetting& Setting) {
    const std::size_t Index = Setting.RootComplex;
    Resources& Here = Free[Index];
    const unsigned Number = Setting.Port.value_or(Here.NextPort);
    Bus& Root = Fabric.RootBuses[Index];
    PcieFunction& Port =
        Add(Root, Setting.Function, nullptr, Index, Setting.Function.Device.value_or(FreeDevice(Root, Number + 1)));
    // A restricted CXL device stands for its port, which is no function of its own.
    const bool IsPort = Setting.Function.Kind == PcieKind::RootPort ||
                        Setting.Function.Kind == PcieKind::EventCollector || Setting.CxlCapable;
    if (IsPort) {
        AddHubPort(Port, Index, Number, Setting.CxlCapable, Setting.CxlMode);
    }
    AddBelow(Port, Setting.Function, Here, Index);
    FinishFunction(Port, Setting.Function);
}

void PcieHierarchyBuilder::Place(PcieFunction& Function, PcieFunction* Above, std::size_t RootComplex) {
    const Simulator::RootComplex& Complex = Fabric.Hubs[RootComplex]->Location();
    Function.Above = Above;
    Function.Hub = Fabric.Hubs[RootComplex].get();
    Function.HubPort = Above == nullptr ? 0 : Above->HubPort;
    Function.Segment = Complex.Segment;
    Function.RootBus = Complex.BusBase;
}

unsigned PcieHierarchyBuilder::FreeDevice(const Bus& All, unsigned First) {
    while (std::ranges::any_of(All, [First](const auto& One) { return One->Device == First; })) {
        First++;
    }
    return First;
}

PcieFunction& PcieHierarchyBuilder::Add(Bus& To, const PcieFunctionSetting& Setting, PcieFunction* Above,
                                        std::size_t RootComplex, unsigned Device) {
    const auto IsThere = [&](const auto& One) { return One->Device == Device && One->Function == Setting.Function; };
    if (Device > 31 || Setting.Function > 7 || std::ranges::any_of(To, IsThere)) {
        throw std::invalid_argument(fmt::format("\"{}\": device {} function {} is taken or does not exist",
                                                Setting.Name, Device, Setting.Function));
    }
    CheckSetting(Setting);
    if (!Setting.Name.empty() && Fabric.Find(Setting.Name) != nullptr) {
        throw std::invalid_argument(fmt::format("two functions are called \"{}\"", Setting.Name));
    }
    To.push_back(std::make_unique<PcieFunction>(Fabric, Setting.Name));
    PcieFunction& Made = *To.back();
    Made.Device = Device;
    Made.Function = Setting.Function;
    Place(Made, Above, RootComplex);
    LayOutRegisters(Made, Setting);
    if (Setting.Slot) {
        Fabric.Slots.emplace_back(&Made, *Setting.Slot);
    }
    return Made;
}

void PcieHierarchyBuilder::AddBelow(PcieFunction& Bridge, const PcieFunctionSetting& Setting, Resources& Here,
                                    std::size_t RootComplex) {
    LayOutBars(Bridge, Setting, Here);
    if (!IsBridgeKind(Setting.Kind)) {
        if (!Setting.Below.empty()) {
            throw std::invalid_argument(fmt::format("\"{}\" is no bridge: nothing lies below it", Setting.Name));
        }
        return;
    }
    const unsigned Secondary = Here.NextBus++;
    // Functions below ask for their bus while they are built.
    SetBusNumbers(Bridge, Bridge.Where().Bus, Secondary, Secondary);
    const std::uint64_t Memory = Here.Memory = AlignUp(Here.Memory, MIB);
    const std::uint64_t Prefetchable = Here.Prefetchable = AlignUp(Here.Prefetchable, MIB);
    for (const PcieFunctionSetting& One : Setting.Below) {
        const bool IsSameDevice = One.Function != 0 && !Bridge.Below.empty();
        const unsigned Device =
            One.Device.value_or(IsSameDevice ? Bridge.Below.back()->Device : FreeDevice(Bridge.Below, 0));
        PcieFunction& Made = Add(Bridge.Below, One, &Bridge, RootComplex, Device);
        AddBelow(Made, One, Here, RootComplex);
        FinishFunction(Made, One);
    }
    MarkMultiFunction(Bridge.Below);
    Here.NextBus += Setting.SpareBuses;
    Here.Memory = AlignUp(Here.Memory, MIB);
    Here.Prefetchable = AlignUp(Here.Prefetchable, MIB);
    if (Here.NextBus - 1 > Here.LastBus) {
        throw std::invalid_argument(
            fmt::format("root complex {}: there are no buses left for what lies below it", RootComplex));
    }
    SetBusNumbers(Bridge, Bridge.Where().Bus, Secondary, Here.NextBus - 1);
    OpenWindows(Bridge, Memory, Here.Memory, Prefetchable, Here.Prefetchable);
}

void PcieHierarchyBuilder::LayOutBars(PcieFunction& Function, const PcieFunctionSetting& Setting, Resources& Here) {
    constexpr BarSetting DEFAULT{0, 0, 0x10000, true, false, false};
    std::vector<BarSetting> Bars = Setting.Bars;
    if (Bars.empty() && !IsBridgeKind(Setting.Kind) && Setting.Kind != PcieKind::EventCollector) {
        Bars.push_back(DEFAULT);
    }
    for (const BarSetting& One : Bars) {
        CheckBar(Setting, One);
        const std::uint32_t Flags =
            One.IsIo ? 1 : (One.Is64 ? PciBar::Type::Of(PciBar::Type64) : 0) | (One.IsPrefetchable ? 8 : 0);
        std::uint64_t Base = One.Base;
        if (Base == 0 && One.Size != 0 && One.IsIo) {
            Base = AlignUp(Here.Io, One.Size);
            Here.Io = Base + One.Size;
        } else if (Base == 0 && One.Size != 0) {
            std::uint64_t& From = One.IsPrefetchable && One.Is64 ? Here.Prefetchable : Here.Memory;
            Base = AlignUp(From, One.Size);
            From = Base + One.Size;
        }
        const bool IsFull =
            Here.Io > IO_END || Here.Memory > Here.MemoryEnd || Here.Prefetchable > Here.PrefetchableEnd;
        if (One.Base == 0 && (IsFull || One.Size > PREFETCHABLE_STRIDE)) {
            throw std::invalid_argument(fmt::format(
                "\"{}\": its root complex has no room left for base address register {}", Setting.Name, One.Index));
        }
        Function.SetBar(One.Index, Base, One.Size, Flags);
    }
}

void PcieHierarchyBuilder::FinishFunction(PcieFunction& Function, const PcieFunctionSetting& Setting) {
    Function.DeriveRules();
    if (Function.IsDownstreamPort()) {
        FinishPort(Function, Setting);
    }
    if (!Setting.Registers.empty()) {
        for (const RegisterSetting& One : Setting.Registers) {
            Function.Poke(One.Offset, One.Width, One.Value);
        }
        Function.DeriveRules();
    }
}

void PcieHierarchyBuilder::FinishPort(PcieFunction& Port, const PcieFunctionSetting& Setting) {
    const unsigned Pcie = Port.Has().Pcie;
    const bool IsOccupied = !Setting.Slot || Setting.Slot->Occupied;
    Port.Wire.IsPresent = !Setting.Below.empty() && IsOccupied;
    Port.Wire.IsUp = Port.Wire.IsPresent && !Fabric.IsHeldDown(Port);
    Port.Wire.Training = Fabric.Settings.LinkTraining;
    if (Port.Wire.IsUp &&
        (Port.Pcie(PCIE_LINK_CAPABILITIES, 4) & PcieLinkCapabilities::DataLinkLayerLinkActiveReportingCapable) != 0) {
        Port.SetBits(Pcie + PCIE_LINK_STATUS, 2, PcieLinkStatus::DataLinkLayerLinkActive);
    }
    if (Setting.Slot && !Port.Wire.IsPresent) {
        Port.ClearBits(Pcie + PCIE_SLOT_STATUS, 2, PcieSlotStatus::PresenceDetectState);
    }
    if (Setting.SurpriseDown) {
        Port.SetBits(Pcie + PCIE_LINK_CAPABILITIES, 4, PcieLinkCapabilities::SurpriseDownErrorReportingCapable);
        if (Port.IsRootPort()) {
            Port.Hub->SetSurpriseDownStrap(Port.HubPort, PcieErrorControl::SURPRISE_DOWN_REPORTED);
        }
    }
}

void PcieHierarchyBuilder::MarkMultiFunction(Bus& All) {
    for (const auto& One : All) {
        const bool HasMore = std::ranges::any_of(
            All, [&](const auto& Other) { return Other->Device == One->Device && Other->Function != 0; });
        if (HasMore) {
            One->SetBits(PCI_HEADER_TYPE, 1, PciHeaderType::MultiFunction::Mask);
        }
    }
}

// ---- Functions of another machine

std::size_t PcieHierarchyBuilder::RootComplexOf(const PciAddress& Where) const {
    for (std::size_t Index = 0; Index < Fabric.Hubs.size(); Index++) {
        const RootComplex& Complex = Fabric.Hubs[Index]->Location();
        if (Complex.Segment == Where.Segment && Complex.BusBase <= Where.Bus && Where.Bus <= Complex.LastBus) {
            return Index;
        }
    }
    throw std::invalid_argument(fmt::format("no root complex of the machine has {}", PciAddressText(Where)));
}

// A root port for functions that the dump shows without the bridge above them.
PcieFunction& PcieHierarchyBuilder::MakePortFor(const PciAddress& Orphan, unsigned LastBus) {
    const std::size_t Index = RootComplexOf(Orphan);
    Bus& Root = Fabric.RootBuses[Index];
    PcieFunctionSetting Setting;
    Setting.Kind = PcieKind::RootPort;
    PcieFunction& Port = Add(Root, Setting, nullptr, Index, FreeDevice(Root, 1));
    AddHubPort(Port, Index, std::nullopt, false, 0);
    SetBusNumbers(Port, Port.RootBus, Orphan.Bus, LastBus);
    Port.DeriveRules();
    return Port;
}

void PcieHierarchyBuilder::AddDump(const PciDumpSetting& Setting) {
    const std::vector<DumpedFunction> Known = ReadPciDump(Setting.Text);
    std::map<PciAddress, std::unique_ptr<PcieFunction>> Made;
    std::map<PciAddress, PcieFunction*> All;
    for (const DumpedFunction& One : Known) {
        auto& Function = Made[One.Where] = std::make_unique<PcieFunction>(Fabric, "");
        for (unsigned Offset = 0; Offset < One.Bytes.size(); Offset++) {
            Function->Poke(Offset, 1, One.Bytes[Offset]);
        }
        Function->Device = One.Where.Device;
        Function->Function = One.Where.Function;
        Function->IsSetUpByFirmware = Setting.Reporting;
        All[One.Where] = Function.get();
    }
    std::map<std::pair<unsigned, unsigned>, PcieFunction*> Stand;  // root ports that the dump does not show
    // Addresses come in order: a bridge is placed before what lies behind it.
    for (auto& [Where, Function] : Made) {
        const std::size_t Index = RootComplexOf(Where);
        PcieFunction* Above = nullptr;
        if (const DumpedFunction* Bridge = BridgeTo(Known, Where)) {
            Above = All.at(Bridge->Where);
        } else if (Where.Bus != Fabric.Hubs[Index]->Location().BusBase) {
            PcieFunction*& Port = Stand[{Where.Segment, Where.Bus}];
            if (Port == nullptr) {
                Port = &MakePortFor(Where, LastBusBehind(Known, Where));
            }
            Above = Port;
        }
        Place(*Function, Above, Index);
        Function->DeriveRules();
        GuessBars(*Function);
        if (Above == nullptr && (Function->IsRootPort() || Function->IsEventCollector())) {
            AddHubPort(*Function, Index, std::nullopt, false, 0);
        }
        Bus& To = Above == nullptr ? Fabric.RootBuses[Index] : Above->Below;
        To.push_back(std::move(Function));
    }
    Fabric.ForEach([this](PcieFunction& One) {
        One.Wire.IsPresent = !One.Below.empty();
        One.Wire.IsUp = !One.IsDownstreamPort() || !Fabric.IsHeldDown(One);
        One.Wire.Training = Fabric.Settings.LinkTraining;
        if (One.Above != nullptr) {
            One.HubPort = One.Above->HubPort;
        }
    });
}

unsigned PcieHierarchyBuilder::LastBusBehind(const std::vector<DumpedFunction>& Known, const PciAddress& Orphan) {
    unsigned Last = Orphan.Bus;
    for (const DumpedFunction& One : Known) {
        if (One.IsBridge() && One.Where.Segment == Orphan.Segment && One.Where.Bus == Orphan.Bus) {
            Last = std::max<unsigned>(Last, One.Bytes[PCI_SUBORDINATE_BUS_NUMBER]);
        }
    }
    return Last;
}

}  // namespace Simulator

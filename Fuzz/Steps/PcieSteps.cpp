#include "Fuzz/Steps/PcieSteps.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "Include/PciRegisters.h"
#include "Simulator/Firmware/DpcOperatingSystem.h"
#include "Simulator/Machine/Machine.h"
#include "Simulator/Machine/PciDump.h"

using Simulator::PcieKind;

namespace {

constexpr unsigned MOST_FUNCTIONS = 24;
constexpr unsigned DEEPEST = 4;
constexpr unsigned SPACE_SIZE = 4096;

constexpr PcieKind KINDS_BELOW_PCIE[] = {PcieKind::Endpoint,
                                         PcieKind::SwitchUpstreamPort,
                                         PcieKind::LegacyEndpoint,
                                         PcieKind::PcieToPciBridge,
                                         PcieKind::Endpoint,
                                         PcieKind::SwitchDownstreamPort,
                                         PcieKind::Pci,
                                         PcieKind::RootPort};
constexpr PcieKind KINDS_BELOW_SWITCH[] = {PcieKind::SwitchDownstreamPort, PcieKind::SwitchDownstreamPort,
                                           PcieKind::SwitchDownstreamPort, PcieKind::Endpoint};
constexpr PcieKind KINDS_BELOW_PCI[] = {PcieKind::Pci, PcieKind::Pci, PcieKind::PciBridge, PcieKind::Endpoint};

constexpr std::uint32_t CLASSES[] = {0x030000, 0x020000, 0x010802, 0x050210, 0x060400, 0x060000, 0xFF0000, 0x0C0330};

template <class Item, std::size_t Count>
const Item& OneOf(FuzzInput& Input, const Item (&All)[Count]) {
    return All[Input.Below(Count)];
}

// An offset that a register of Width bytes has in configuration space. Half of them are in the header and in the
// first capabilities, where most depends on them.
unsigned AnyOffset(FuzzInput& Input, unsigned Width) {
    const unsigned Offset = Input.Take<std::uint16_t>();
    return Offset % ((Offset & 0x8000) != 0 ? 0x180 : SPACE_SIZE) / Width * Width;
}

Simulator::PcieSlotSetting AnySlot(FuzzInput& Input) {
    Simulator::PcieSlotSetting Slot;
    const unsigned Bits = Input.Byte();
    Slot.Number = Bits % 8;
    Slot.HotPlugCapable = (Bits & 1) == 0;
    Slot.HotPlugSurprise = (Bits & 2) != 0;
    Slot.PowerController = (Bits & 4) != 0;
    Slot.Occupied = (Bits & 0x18) != 0x18;
    Slot.IsNvmeBay = (Bits & 0x20) != 0;
    Slot.Bay = Bits >> 6;
    return Slot;
}

Simulator::DpcSetting AnyDpc(FuzzInput& Input) {
    Simulator::DpcSetting Dpc;
    const unsigned Bits = Input.Byte();
    Dpc.RootPortExtensions = (Bits & 1) == 0;
    Dpc.ErrCor = (Bits & 2) == 0;
    Dpc.Interrupt = (Bits & 4) != 0;
    Dpc.LogSize = (Bits >> 3) % 10;
    Dpc.Trigger = (2 + (Bits >> 6)) % 3;
    return Dpc;
}

std::vector<Simulator::RegisterSetting> AnyRegisters(FuzzInput& Input) {
    std::vector<Simulator::RegisterSetting> Registers;
    for (unsigned Count = Input.Below(8); Count > 0; Count--) {
        const unsigned Width = 1u << Input.Below(3);
        const unsigned Offset = AnyOffset(Input, Width);
        Registers.push_back({Offset, Width, Input.Take<std::uint32_t>()});
    }
    return Registers;
}

const PcieKind& KindBelow(FuzzInput& Input, PcieKind Above) {
    switch (Above) {
        case PcieKind::SwitchUpstreamPort:
            return OneOf(Input, KINDS_BELOW_SWITCH);
        case PcieKind::PcieToPciBridge:
        case PcieKind::PciBridge:
            return OneOf(Input, KINDS_BELOW_PCI);
        default:
            return OneOf(Input, KINDS_BELOW_PCIE);
    }
}

void FillBelow(FuzzInput& Input, Simulator::PcieFunctionSetting& Bridge, unsigned Depth, unsigned& Left) {
    const bool IsBridge = Bridge.Kind == PcieKind::RootPort || Bridge.Kind == PcieKind::SwitchUpstreamPort ||
                          Bridge.Kind == PcieKind::SwitchDownstreamPort || Bridge.Kind == PcieKind::PcieToPciBridge ||
                          Bridge.Kind == PcieKind::PciBridge;
    if (!IsBridge || Depth == DEEPEST) {
        return;
    }
    Bridge.SpareBuses = Input.Below(16) == 0 ? Input.Byte() : 0;
    for (unsigned Count = Input.Below(4); Count > 0 && Left > 0; Count--) {
        Left--;
        Simulator::PcieFunctionSetting One = AnyFunction(Input, KindBelow(Input, Bridge.Kind));
        const unsigned Place = Input.Byte();
        if ((Place & 3) == 1 && !Bridge.Below.empty()) {
            One.Function = 1 + (Place >> 2) % 7;
        } else if ((Place & 3) == 2) {
            One.Device = (Place >> 2) % 32;
        }
        FillBelow(Input, One, Depth + 1, Left);
        Bridge.Below.push_back(std::move(One));
    }
}

constexpr const char* HEX = "0123456789abcdef";

std::string DumpText(const Simulator::DumpedFunction& Function) {
    std::string Text = Simulator::PciAddressText(Function.Where) + " x\n";
    for (unsigned Offset = 0; Offset < SPACE_SIZE; Offset += 16) {
        const auto* const Line = Function.Bytes.data() + Offset;
        if (std::all_of(Line, Line + 16, [](std::uint8_t Byte) { return Byte == 0; })) {
            continue;
        }
        Text += {HEX[Offset >> 8], HEX[Offset >> 4 & 15], HEX[Offset & 15], ':'};
        for (unsigned Index = 0; Index < 16; Index++) {
            Text += {' ', HEX[Line[Index] >> 4], HEX[Line[Index] & 15]};
        }
        Text += '\n';
    }
    return Text;
}

// Functions with any bytes. Most are given what makes them one of a hierarchy.
std::string AnyDump(FuzzInput& Input) {
    std::map<Simulator::PciAddress, Simulator::DumpedFunction> All;
    for (unsigned Count = 1 + Input.Below(8); Count > 0; Count--) {
        const unsigned Place = Input.Take<std::uint16_t>();
        const Simulator::PciAddress Where{0, Place >> 12, Place >> 3 & 31, Place & 7};
        Simulator::DumpedFunction& Made = All[Where];
        Made.Where = Where;
        const auto Put = [&Made](unsigned Offset, std::uint32_t Value, unsigned Width) {
            std::memcpy(Made.Bytes.data() + Offset, &Value, Width);
        };
        const unsigned Kind = Input.Byte();
        Put(PCI_VENDOR_ID, 0x00211D9B, 4);
        Put(PCI_COMMAND, 0x00100146, 4);
        Put(PCI_CLASS_SUBCLASS, (Kind & 3) == 1 ? 0x0604 : 0x0200, 2);
        Put(PCI_HEADER_TYPE, (Kind & 1) | (Kind & 0x80), 1);
        Put(PCI_CAPABILITIES_POINTER, 0x40, 1);
        if ((Kind & 1) != 0) {
            Put(PCI_SECONDARY_BUS_NUMBER, Where.Bus + 1, 1);
            Put(PCI_SUBORDINATE_BUS_NUMBER, Where.Bus + 1 + (Kind >> 6), 1);
        }
        Put(0x40, PciCapabilityPciExpress | (2u | Input.Byte() % 16 << 4) << 16, 4);
        Put(0x100, PcieExtendedCapabilityAer | 2u << 16 | 0x148u << 20, 4);
        Put(0x148, PcieExtendedCapabilityDpc | 1u << 16, 4);
        for (const Simulator::RegisterSetting& One : AnyRegisters(Input)) {
            Put(One.Offset, One.Value, One.Width);
        }
    }
    std::string Text;
    for (const auto& One : All) {
        Text += DumpText(One.second);
    }
    return Text;
}

// ---- Steps

Simulator::PcieFunction& AnyPort(Simulator::Simulation& Machine, FuzzInput& Input) {
    Simulator::PcieFunction& Found = AnyFunctionOf(Machine, Input);
    if (!Found.IsDownstreamPort()) {
        throw std::invalid_argument("no port");
    }
    return Found;
}

// Requests are often for memory of some function, so that its address is found.
Simulator::TlpWords AnyHeader(Simulator::Simulation& Machine, FuzzInput& Input) {
    const unsigned Type = Input.Byte();
    const auto Requester = Input.Take<std::uint16_t>();
    switch (Type % 4) {
        case 0:
            return Simulator::MemoryRequest((Type & 4) != 0, AnyFunctionOf(Machine, Input).BarBase(Type >> 4 & 3),
                                            Requester);
        case 1:
            return Simulator::ConfigurationRequest((Type & 4) != 0, Requester, Type << 4);
        case 2:
            return Simulator::Message(Input.Byte(), Requester, Input.Take<std::uint16_t>(), (Type & 4) != 0);
        default:
            return Input.Take<Simulator::TlpWords>();
    }
}

Simulator::PcieError AnyPcieError(Simulator::Simulation& Machine, FuzzInput& Input) {
    const auto Names = Simulator::PcieErrorNames();
    const Simulator::PcieErrorName& Name = Names[Input.Byte() % Names.size()];
    Simulator::PcieError Error{Name.From, Name.Bit};
    const unsigned Choice = Input.Byte();
    if ((Choice & 1) != 0) {
        Error.Header = AnyHeader(Machine, Input);
    }
    Error.Advisory = (Choice & 0xE) == 2;
    return Error;
}

bool DoListsEnd(const Simulator::PcieFunction& Function) {
    unsigned Steps = 0;
    unsigned At = Function.Peek(PCI_CAPABILITIES_POINTER, 1);
    for (; At != 0 && At % 4 == 0 && Steps < 0x100 / 4; Steps++) {
        At = Function.Peek(At + 1, 1);
    }
    if (Steps == 0x100 / 4) {
        return false;
    }
    At = PcieExtendedCapabilityHeader::FirstOffset;
    for (Steps = 0; At != 0 && At % 4 == 0 && Steps < SPACE_SIZE / 4; Steps++) {
        At = PcieExtendedCapabilityHeader::Next::Get(Function.Peek(At, 4));
    }
    return Steps != SPACE_SIZE / 4;
}

// Changes a register, but takes the change back where a list would loop.
template <class Change>
void KeepListsEnding(Simulator::PcieFunction& Function, unsigned Offset, unsigned Width, Change Work) {
    const std::uint32_t Before = Function.Peek(Offset, Width);
    Work();
    if (!DoListsEnd(Function)) {
        Function.Poke(Offset, Width, Before);
    }
}

void SoftwareWrites(Simulator::Simulation& Machine, FuzzInput& Input) {
    Simulator::PcieFunction& Function = AnyFunctionOf(Machine, Input);
    const unsigned Width = 1u << Input.Below(3);
    const unsigned Offset = AnyOffset(Input, Width);
    const auto Value = Input.Take<std::uint32_t>();
    KeepListsEnding(Function, Offset, Width,
                    [&] { Machine.Machine().Pci().Write(Function.Where(), Offset, Width, Value); });
}

void HardwareChanges(Simulator::Simulation& Machine, FuzzInput& Input) {
    Simulator::PcieFunction& Function = AnyFunctionOf(Machine, Input);
    const unsigned Choice = Input.Byte();
    const unsigned Width = 1u << Choice % 3;
    const unsigned Offset = AnyOffset(Input, Width);
    const auto Value = Input.Take<std::uint32_t>();
    KeepListsEnding(Function, Offset, Width, [&] {
        if ((Choice & 0x80) != 0) {
            Function.SetBits(Offset, Width, Value);
        } else {
            Function.Poke(Offset, Width, Value);
        }
    });
}

void PortChanges(Simulator::Simulation& Machine, FuzzInput& Input) {
    Simulator::PcieFunction& Port = AnyPort(Machine, Input);
    Simulator::PcieFabric& Fabric = Machine.Machine().Pcie();
    switch (Input.Below(8)) {
        case 0:
            return Fabric.Remove(Port, false);
        case 1:
            return Fabric.Remove(Port, true);
        case 2:
            return Fabric.Insert(Port);
        case 3:
            return Fabric.SetPower(Port, false);
        case 4:
            return Fabric.SetPower(Port, true);
        case 5:
            return Fabric.SetLink(Port, false);
        case 6:
            return Fabric.SetLink(Port, true);
        default:
            Port.Wire.NeverTrains = Input.Below(2) != 0;
            Port.Wire.Training = Input.Take<std::uint16_t>();
    }
}

void FunctionDies(Simulator::Simulation& Machine, FuzzInput& Input) {
    Simulator::PcieFunction& Function = AnyFunctionOf(Machine, Input);
    switch (Input.Below(4)) {
        case 0:
            Function.Revive();
            break;
        case 1:
            Machine.Machine().Pcie().DieAtRead(Input.Take<std::uint16_t>());
            break;
        default:
            Function.DieAfter(Input.Byte());
    }
}

// Whoever writes there is the platform's ACPI code, or something that runs wild in the OS.
void SharedMemoryChanges(Simulator::Simulation& Machine, FuzzInput& Input) {
    auto* const Area = reinterpret_cast<std::uint8_t*>(&Simulator::DpcOperatingSystem(Machine).Shared());
    const std::size_t Offset = Input.Take<std::uint16_t>() % sizeof(RAS_ACPI_SMM_DATA);
    const std::vector<std::uint8_t> Bytes =
        Input.Bytes(std::min<std::size_t>(Input.Below(64), sizeof(RAS_ACPI_SMM_DATA) - Offset));
    std::copy(Bytes.begin(), Bytes.end(), Area + Offset);
}

}  // namespace

Simulator::PcieFunctionSetting AnyFunction(FuzzInput& Input, PcieKind Kind) {
    Simulator::PcieFunctionSetting Made;
    Made.Kind = Kind;
    const unsigned Bits = Input.Take<std::uint16_t>();
    Made.Version = (Bits & 0x0007) == 7 ? 1 : 2;
    Made.RoleBased = (Bits & 0x0038) != 0x38;
    Made.Aer = (Bits & 0x0300) != 0x300;
    Made.PowerManagement = (Bits & 1) == 0;
    Made.SecondaryPcie = (Bits & 2) == 0;
    Made.Sfi = (Bits & 4) != 0;
    Made.LinkActiveReporting = (Bits & 0x0008) == 0;
    Made.SurpriseDown = (Bits & 0x0010) != 0;
    const bool IsPort = Kind == PcieKind::RootPort || Kind == PcieKind::SwitchDownstreamPort;
    if (IsPort && (Bits & 0x0400) != 0) {
        Made.Slot = AnySlot(Input);
    }
    if (IsPort && (Bits & 0x0800) != 0) {
        Made.Dpc = AnyDpc(Input);
    }
    if ((Bits & 0x1000) != 0) {
        Made.ClassCode = OneOf(Input, CLASSES);
    }
    if ((Bits & 0x6000) == 0x6000) {
        Made.NvmeSwitchMode = Bits & 1;
    }
    if ((Bits & 0xC000) == 0x4000) {
        const unsigned Id = Input.Byte();
        const unsigned Size = Input.Below(64);
        Made.Capabilities.push_back({(Id & 0x80) != 0, Id & 0x7F, 1, Input.Bytes(Size)});
    }
    if ((Bits & 0x8000) != 0) {
        Made.Registers = AnyRegisters(Input);
    }
    return Made;
}

Simulator::PcieSettings AnyHierarchy(FuzzInput& Input, unsigned RootComplexes) {
    Simulator::PcieSettings Pcie;
    const unsigned Choice = Input.Byte();
    Pcie.Probes = static_cast<Simulator::ProbeLogging>((1 + (Choice & 3)) % 3);
    Pcie.LinkTraining = (Choice & 4) != 0 ? Input.Take<std::uint16_t>() : 0;
    Pcie.IsDefault = (Choice & 0xF0) == 0x10;
    if ((Choice & 0xF0) == 0x20) {
        Pcie.IsDefault = false;
        Pcie.Dump = Simulator::PciDumpSetting{AnyDump(Input), (Choice & 8) == 0};
        return Pcie;
    }
    unsigned Left = MOST_FUNCTIONS;
    for (unsigned Count = Pcie.IsDefault ? 0 : 1 + Input.Below(5); Count > 0; Count--) {
        constexpr PcieKind Kinds[] = {PcieKind::RootPort,           PcieKind::RootPort,       PcieKind::RootPort,
                                      PcieKind::IntegratedEndpoint, PcieKind::EventCollector, PcieKind::RootPort};
        Simulator::PciePortSetting Port;
        Port.RootComplex = Input.Below(RootComplexes);
        Port.Function = AnyFunction(Input, OneOf(Input, Kinds));
        FillBelow(Input, Port.Function, 1, Left);
        Pcie.Ports.push_back(std::move(Port));
    }
    return Pcie;
}

Simulator::PcieFunction& AnyFunctionOf(Simulator::Simulation& Machine, FuzzInput& Input) {
    std::vector<Simulator::PcieFunction*> All;
    Machine.Machine().Pcie().ForEach([&All](Simulator::PcieFunction& One) { All.push_back(&One); });
    if (All.empty()) {
        throw std::invalid_argument("no function");
    }
    return *All[Input.Byte() % All.size()];
}

bool DoAllListsEnd(Simulator::Simulation& Machine) {
    bool All = true;
    Machine.Machine().Pcie().ForEach([&All](Simulator::PcieFunction& One) { All = All && DoListsEnd(One); });
    return All;
}

void PcieStep(Simulator::Simulation& Machine, FuzzInput& Input) {
    using Simulator::DpcOperatingSystem;
    switch (Input.Below(16)) {
        case 0:
        case 1:
        case 2: {
            Simulator::PcieFunction& Where = AnyFunctionOf(Machine, Input);
            return Machine.Machine().Pcie().Inject(Where, AnyPcieError(Machine, Input));
        }
        case 3:
            return SoftwareWrites(Machine, Input);
        case 4:
            return HardwareChanges(Machine, Input);
        case 5:
            return PortChanges(Machine, Input);
        case 6:
            return FunctionDies(Machine, Input);
        case 7:
            DpcOperatingSystem(Machine).RequestPort(AnyFunctionOf(Machine, Input).Where());
            return;
        case 8:
            DpcOperatingSystem(Machine).ServeInterrupt(static_cast<DpcOperatingSystem::Clears>(Input.Below(3)));
            return;
        case 9: {
            constexpr std::uint8_t Outcomes[] = {OST_SUCCESS, OST_FAILURE, 0, 0xFF};
            const Simulator::PciAddress Where = AnyFunctionOf(Machine, Input).Where();
            DpcOperatingSystem(Machine).ReportOutcome(Where, OneOf(Input, Outcomes));
            return;
        }
        case 10:
            return SharedMemoryChanges(Machine, Input);
        case 11:
            return Machine.Wait(std::uint64_t{Input.Take<std::uint32_t>()} & 0xFFFFFF);
        default:
            return Machine.RaiseSmi("root-complex");
    }
}

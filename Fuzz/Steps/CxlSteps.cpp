#include "Fuzz/Steps/CxlSteps.h"

#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Fuzz/Steps/PcieSteps.h"
#include "Include/CxlRegisters.h"
#include "Include/PciDeviceState.h"
#include "Library/RasLib/CxlRegisters.h"
#include "Simulator/Machine/Machine.h"

using Simulator::PcieKind;

namespace {

// ---- The machine

// Where the CXL.cache/CXL.mem registers, the capability headers of a memory device and its mailboxes begin.
std::uint64_t AnyComponentOffset(FuzzInput& Input) {
    return CXL_CACHE_MEM_OFFSET + std::uint64_t{Input.Byte()} * 4;
}
std::uint64_t AnyDeviceOffset(FuzzInput& Input) {
    return Input.Take<std::uint16_t>() % 0x400 * 4;
}

std::uint32_t AnyWord(FuzzInput& Input) {
    const unsigned Choice = Input.Byte();
    switch (Choice & 3) {
        case 0:
            return UINT32_MAX;
        case 1:
            return std::uint32_t{1} << (Choice >> 2) % 32;
        case 2:
            return Choice >> 2;
        default:
            return Input.Take<std::uint32_t>();
    }
}

std::vector<Simulator::CxlRegisterPatch> AnyPatches(FuzzInput& Input, std::uint64_t (*AnyOffset)(FuzzInput&)) {
    std::vector<Simulator::CxlRegisterPatch> Patches;
    for (unsigned Count = Input.Below(5); Count > 0; Count--) {
        const std::uint64_t Offset = AnyOffset(Input);
        Patches.push_back({Offset, AnyWord(Input)});
    }
    return Patches;
}

std::vector<Simulator::CxlLocatorEntry> AnyLocator(FuzzInput& Input) {
    constexpr std::uint64_t Offsets[] = {0, 0, CXL_COMPONENT_REGISTERS_SIZE, 0x20000};
    std::vector<Simulator::CxlLocatorEntry> Locator;
    for (unsigned Count = Input.Below(5); Count > 0; Count--) {
        const unsigned Choice = Input.Byte();
        Locator.push_back({Choice & 7, Choice >> 3 & 3,
                           (Choice & 0x80) != 0 ? Input.Take<std::uint64_t>() : Offsets[Choice >> 5 & 3]});
    }
    return Locator;
}

Simulator::CxlSetting AnyCxl(FuzzInput& Input) {
    Simulator::CxlSetting Setting;
    const unsigned Bits = Input.Take<std::uint16_t>();
    Setting.IsMemoryDevice = (Bits & 3) != 3;
    Setting.HasRas = (Bits & 0xC) != 0xC;
    Setting.HasSecondaryMailbox = (Bits & 0x30) != 0x30;
    Setting.PayloadExponent = 8 + (Bits >> 6 & 7) % 6;
    Setting.EventInterrupts = (2 + (Bits >> 9 & 3)) % 3;
    Setting.EventLogCapacity = (Bits & 0x0800) != 0 ? 1 + Input.Byte() : 256;
    if ((Bits & 0x1000) != 0) {
        Setting.CommandTime = Input.Take<std::uint32_t>() % 0x400000;
        Setting.BackgroundTime = Input.Take<std::uint16_t>();
    }
    if ((Bits & 0x2000) != 0) {
        Setting.LocatorLength = Input.Take<std::uint16_t>() & 0xFFF;
    }
    if ((Bits & 0x4000) != 0) {
        Setting.Locator = AnyLocator(Input);
    }
    if ((Bits & 0x8000) != 0) {
        Setting.ComponentPatches = AnyPatches(Input, AnyComponentOffset);
        Setting.DevicePatches = AnyPatches(Input, AnyDeviceOffset);
    }
    return Setting;
}

Simulator::PcieFunctionSetting AnyCxlFunction(FuzzInput& Input, PcieKind Kind) {
    Simulator::PcieFunctionSetting Made = AnyFunction(Input, Kind);
    Made.Cxl = AnyCxl(Input);
    return Made;
}

// ---- Steps

Simulator::PcieFunction& AnyCxlFunctionOf(Simulator::Simulation& Machine, FuzzInput& Input) {
    std::vector<Simulator::PcieFunction*> All;
    Machine.Machine().Pcie().ForEach([&](Simulator::PcieFunction& One) {
        if (Machine.Machine().Cxl().Find(One) != nullptr) {
            All.push_back(&One);
        }
    });
    if (All.empty()) {
        throw std::invalid_argument("no CXL function");
    }
    return *All[Input.Byte() % All.size()];
}

void ProtocolError(Simulator::Simulation& Machine, FuzzInput& Input) {
    Simulator::PcieFunction& Where = AnyCxlFunctionOf(Machine, Input);
    const auto Names = Simulator::CxlErrorNames();
    const Simulator::CxlErrorName& Name = Names[Input.Byte() % Names.size()];
    Machine.Machine().Cxl().Inject(
        Where, {Name.IsCorrectable, Name.Bit, Input.Take<Simulator::CxlRasCapability::HeaderLog>()});
}

// The standard's kinds half of the time.
void Event(Simulator::Simulation& Machine, FuzzInput& Input) {
    Simulator::PcieFunction& Where = AnyCxlFunctionOf(Machine, Input);
    const unsigned Choice = Input.Byte();
    const unsigned Count = 1 + ((Choice & 0x80) != 0 ? Input.Byte() : 0);
    auto Record = Input.Take<CXL_EVENT_RECORD>();
    if ((Choice & 0x40) == 0) {
        const auto Kinds = Simulator::CxlEventKinds();
        Record.Uuid = Kinds[Choice % Kinds.size()].Uuid;
        Record.Length = sizeof(Record);
    }
    for (unsigned Round = 0; Round < Count; Round++) {
        Machine.Machine().Cxl().AddEvent(Where, Record);
    }
}

Simulator::CxlMailbox::Refusal AnyRefusal(FuzzInput& Input) {
    Simulator::CxlMailbox::Refusal How;
    const unsigned Choice = Input.Byte();
    How.Times = 1 + (Choice & 7);
    How.Skip = Choice >> 3 & 3;
    switch (Choice >> 5 & 3) {
        case 0:
            How.ReturnCode = Input.Below(0x20);
            break;
        case 1:
            How.ToldLength = Input.Take<std::uint32_t>() % 0x200000;
            break;
        default:
            if ((Choice & 0x80) != 0) {
                How.ToldLength = Input.Take<std::uint32_t>() % 0x200000;
            }
            How.Output = Input.Bytes(Input.Take<std::uint16_t>() % 0x400);
    }
    return How;
}

void MailboxMisbehaves(Simulator::Simulation& Machine, FuzzInput& Input) {
    constexpr std::uint16_t Opcodes[] = {CxlMbOpGetEventRecords, CxlMbOpClearEventRecords,
                                         CxlMbOpGetEventInterruptPolicy, CxlMbOpSetEventInterruptPolicy};
    Simulator::PcieFunction& Where = AnyCxlFunctionOf(Machine, Input);
    Simulator::CxlMemoryDevice* const Device = Machine.Machine().Cxl().Find(Where)->Device.get();
    if (Device == nullptr) {
        throw std::invalid_argument("no memory device");
    }
    const unsigned Choice = Input.Byte();
    Simulator::CxlMailbox* const Mailbox = (Choice & 7) == 7 ? &Device->Primary() : Device->Secondary();
    if (Mailbox == nullptr) {
        throw std::invalid_argument("no secondary mailbox");
    }
    const std::uint16_t Opcode = Opcodes[Choice >> 3 & 3];
    switch (Choice >> 5) {
        case 0:
            return Mailbox->Occupy(Machine.Now() + Input.Take<std::uint32_t>() % 0x400000);
        case 1:
            return Mailbox->Hang();
        case 2:
            return Mailbox->WhenSent(Opcode, [&Where] { Where.DieAfter(0); });
        default:
            return Mailbox->Refuse(Opcode, AnyRefusal(Input));
    }
}

void RegisterChanges(Simulator::Simulation& Machine, FuzzInput& Input) {
    Simulator::CxlFabric::Side& Side = *Machine.Machine().Cxl().Find(AnyCxlFunctionOf(Machine, Input));
    const unsigned Choice = Input.Below(6);
    if (Choice < 2) {
        Side.Component.Patch(AnyPatches(Input, AnyComponentOffset));
    } else if (Choice < 4 && Side.Device != nullptr) {
        Side.Device->Patch(AnyPatches(Input, AnyDeviceOffset));
    } else if (Choice >= 4 && Side.Link != nullptr) {
        Side.Link->Block(Choice == 4).Patch(AnyPatches(Input, AnyDeviceOffset));
    }
}

// Software writes what the RAS capability lets it write.
void RasIsConfigured(Simulator::Simulation& Machine, FuzzInput& Input) {
    Simulator::CxlFabric::Side& Side = *Machine.Machine().Cxl().Find(AnyCxlFunctionOf(Machine, Input));
    const std::uint32_t Register = Input.Below(0x20) * 4;
    Side.Component.Ras.Write(Register, AnyWord(Input));
}

// What the driver offers for the links of restricted devices.
void LinkIsLookedUp(Simulator::Simulation& Machine, FuzzInput& Input) {
    const Simulator::PciAddress Where = AnyFunctionOf(Machine, Input).Where();
    const UINT64 Upstream =
        RasGetUpRcrbAddrOfRciep(PackPciAddress(static_cast<UINT8>(Where.Segment), static_cast<UINT8>(Where.Bus),
                                               static_cast<UINT8>(Where.Device), static_cast<UINT8>(Where.Function)));
    if (Upstream != 0) {
        RasGetDpComponentRegisterAddress(Upstream - CXL_RCRB_UPSTREAM_OFFSET);
    }
    Machine.Machine().ThrowPendingFault();
}

}  // namespace

Simulator::PcieSettings AnyCxlHierarchy(FuzzInput& Input, unsigned RootComplexes) {
    Simulator::PcieSettings Pcie;
    Pcie.IsDefault = false;
    for (unsigned Count = 1 + Input.Below(4); Count > 0; Count--) {
        const unsigned Choice = Input.Byte();
        Simulator::PciePortSetting Port;
        Port.RootComplex = (Choice & 0xF) % RootComplexes;
        Port.CxlCapable = (Choice & 0xC0) != 0xC0;
        Port.CxlMode = Port.CxlCapable ? 2 : Choice >> 4 & 3;
        switch (Choice >> 4 & 3) {
            case 0:
            case 1:
                Port.Function = AnyFunction(Input, PcieKind::RootPort);
                Port.Function.Below.push_back(AnyCxlFunction(Input, PcieKind::Endpoint));
                break;
            case 2: {
                Port.Function = AnyCxlFunction(Input, PcieKind::RootPort);
                Simulator::PcieFunctionSetting Down = AnyFunction(Input, PcieKind::SwitchDownstreamPort);
                Down.Below.push_back(AnyCxlFunction(Input, PcieKind::Endpoint));
                Simulator::PcieFunctionSetting Up = AnyCxlFunction(Input, PcieKind::SwitchUpstreamPort);
                Up.Below.push_back(std::move(Down));
                Port.Function.Below.push_back(std::move(Up));
                break;
            }
            default: {
                Simulator::PciePortSetting Collector = Port;
                Collector.Function = AnyFunction(Input, PcieKind::EventCollector);
                Pcie.Ports.push_back(std::move(Collector));
                Port.Function = AnyCxlFunction(Input, PcieKind::IntegratedEndpoint);
                Port.Function.Cxl->IsRestricted = true;
            }
        }
        Pcie.Ports.push_back(std::move(Port));
    }
    return Pcie;
}

void CxlStep(Simulator::Simulation& Machine, FuzzInput& Input) {
    switch (Input.Below(16)) {
        case 0:
        case 1:
            return ProtocolError(Machine, Input);
        case 2:
        case 3:
            return Event(Machine, Input);
        case 4:
        case 5:
            return MailboxMisbehaves(Machine, Input);
        case 6:
            return RegisterChanges(Machine, Input);
        case 7:
            return RasIsConfigured(Machine, Input);
        case 8: {
            const std::uint32_t Support = AnyWord(Input);
            Machine.EvaluateCxlOsc(Support, AnyWord(Input));
            return;
        }
        case 9:
            return LinkIsLookedUp(Machine, Input);
        case 10:
        case 11:
        case 12:
            return PcieStep(Machine, Input);
        default:
            return Machine.RaiseSmi("root-complex");
    }
}

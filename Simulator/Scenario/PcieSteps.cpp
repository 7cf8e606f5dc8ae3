// Steps about PCI Express: errors, registers, slots and links, devices that die.
#include <fmt/format.h>

#include <algorithm>

#include "Simulator/Machine/Machine.h"
#include "Simulator/Machine/PciDump.h"
#include "Simulator/Scenario/PcieReader.h"

namespace Simulator {

PcieFunction& FunctionAt(Simulation& Run, const std::string& At) {
    PcieFabric& Fabric = Run.Machine().Pcie();
    PcieFunction* Found = Fabric.Find(std::string_view(At));
    if (const auto Where = ParsePciAddress(At); Found == nullptr && Where) {
        Found = Fabric.Find(*Where);
    }
    if (Found == nullptr) {
        throw std::invalid_argument(
            fmt::format("there is no function \"{}\" below a root complex; its name or \"BB:DD.F\" is wanted", At));
    }
    return *Found;
}

PcieFunction& PortAt(Simulation& Run, const std::string& At) {
    PcieFunction& Found = FunctionAt(Run, At);
    if (!Found.IsDownstreamPort()) {
        throw std::invalid_argument(fmt::format("\"{}\" is no root port and no switch's downstream port", At));
    }
    return Found;
}

namespace {

using Outcome = std::optional<std::string>;

// pcie-error

struct TlpDraft {
    std::size_t Type = 0;
    std::uint64_t Address = 0;
    std::uint16_t Requester = 0, Vendor = 0;
    std::uint8_t Code = 0x7F;
    bool HasData = false;
    unsigned Length = 1;
};

enum TlpType { MEMORY_READ, MEMORY_WRITE, CONFIG_READ, CONFIG_WRITE, MESSAGE };
constexpr std::string_view TlpTypes[] = {"memory-read", "memory-write", "config-read", "config-write", "message"};

constexpr YamlKey<TlpDraft> TlpKeys[] = {
    {"type", ReadWord<&TlpDraft::Type, TlpTypes>, true},
    {"address", ReadNumber<&TlpDraft::Address>},
    {"requester", ReadNumber<&TlpDraft::Requester>},
    {"vendor", ReadNumber<&TlpDraft::Vendor>},
    {"code", ReadNumber<&TlpDraft::Code>},
    {"data", ReadBool<&TlpDraft::HasData>},
    {"length", ReadNumber<&TlpDraft::Length, 1, 1023>},
};

TlpWords ReadTlp(const YamlValue& Value) {
    TlpDraft Tlp;
    ReadKeys<TlpDraft>(Value, TlpKeys, Tlp);
    switch (Tlp.Type) {
        case MEMORY_READ:
        case MEMORY_WRITE:
            return MemoryRequest(Tlp.Type == MEMORY_WRITE, Tlp.Address, Tlp.Requester, Tlp.Length);
        case CONFIG_READ:
        case CONFIG_WRITE:
            return ConfigurationRequest(Tlp.Type == CONFIG_WRITE, static_cast<std::uint16_t>(Tlp.Address >> 12),
                                        Tlp.Address & 0xFFF);
        default:
            return Message(Tlp.Code, Tlp.Requester, Tlp.Vendor, Tlp.HasData);
    }
}

TlpWords ReadHeader(const YamlValue& Value) {
    const std::vector<YamlValue> Items = Value.List();
    TlpWords Words{};
    if (Items.size() != Words.size()) {
        Value.Refuse("a header has four doublewords");
    }
    std::ranges::transform(Items, Words.begin(), [](const YamlValue& One) {
        return static_cast<std::uint32_t>(One.Number(0, 0xFFFFFFFF));
    });
    return Words;
}

struct ErrorDraft {
    std::string At;
    std::vector<PcieError> Errors;
    std::string Names;
    std::optional<TlpWords> Header, Tlp;  // as doublewords, and as described
    bool Advisory = false;
    std::uint64_t Count = 1;
};

void ReadErrorNames(const YamlValue& Value, ErrorDraft& Into) {
    std::vector<std::string_view> Names;
    for (const PcieErrorName& One : PcieErrorNames()) {
        Names.push_back(One.Name);
    }
    for (const YamlValue& Item : Value.OneOrMore()) {
        const PcieErrorName& Found = PcieErrorNames()[Item.OneOf(Names)];
        Into.Errors.push_back({Found.From, Found.Bit});
        Into.Names += (Into.Names.empty() ? "" : ", ") + std::string(Found.Name);
    }
}

constexpr YamlKey<ErrorDraft> ErrorKeys[] = {
    {"at", ReadText<&ErrorDraft::At>, true},
    {"error", ReadErrorNames, true},
    {"tlp", [](const YamlValue& V, ErrorDraft& D) { D.Tlp = ReadTlp(V); }},
    {"header", [](const YamlValue& V, ErrorDraft& D) { D.Header = ReadHeader(V); }},
    {"advisory", ReadBool<&ErrorDraft::Advisory>},
    {"count", ReadNumber<&ErrorDraft::Count, 1, 100'000>},
};

// pcie-config

struct NamedRegister {
    std::string_view Name;
    unsigned PcieFunction::Offsets::*Capability;  // nullptr: the header
    unsigned Offset;
    unsigned Width;  // bytes
};

using Has = PcieFunction::Offsets;

constexpr NamedRegister Registers[] = {
    {"vendor-id", nullptr, PCI_VENDOR_ID, 2},
    {"command", nullptr, PCI_COMMAND, 2},
    {"status", nullptr, PCI_STATUS, 2},
    {"secondary-bus", nullptr, PCI_SECONDARY_BUS_NUMBER, 1},
    {"subordinate-bus", nullptr, PCI_SUBORDINATE_BUS_NUMBER, 1},
    {"secondary-status", nullptr, PCI_SECONDARY_STATUS, 2},
    {"bridge-control", nullptr, PCI_BRIDGE_CONTROL, 2},
    {"power-control", &Has::PowerManagement, PM_CONTROL_STATUS, 2},
    {"device-capabilities", &Has::Pcie, PCIE_DEVICE_CAPABILITIES, 4},
    {"device-control", &Has::Pcie, PCIE_DEVICE_CONTROL, 2},
    {"device-status", &Has::Pcie, PCIE_DEVICE_STATUS, 2},
    {"link-capabilities", &Has::Pcie, PCIE_LINK_CAPABILITIES, 4},
    {"link-control", &Has::Pcie, PCIE_LINK_CONTROL, 2},
    {"link-status", &Has::Pcie, PCIE_LINK_STATUS, 2},
    {"slot-capabilities", &Has::Pcie, PCIE_SLOT_CAPABILITIES, 4},
    {"slot-control", &Has::Pcie, PCIE_SLOT_CONTROL, 2},
    {"slot-status", &Has::Pcie, PCIE_SLOT_STATUS, 2},
    {"root-control", &Has::Pcie, PCIE_ROOT_CONTROL, 2},
    {"root-status", &Has::Pcie, PCIE_ROOT_STATUS, 4},
    {"uncorrectable-status", &Has::Aer, AER_UNCORRECTABLE_STATUS, 4},
    {"uncorrectable-mask", &Has::Aer, AER_UNCORRECTABLE_MASK, 4},
    {"uncorrectable-severity", &Has::Aer, AER_UNCORRECTABLE_SEVERITY, 4},
    {"correctable-status", &Has::Aer, AER_CORRECTABLE_STATUS, 4},
    {"correctable-mask", &Has::Aer, AER_CORRECTABLE_MASK, 4},
    {"aer-control", &Has::Aer, AER_CAPABILITIES_CONTROL, 4},
    {"header-log-0", &Has::Aer, AER_HEADER_LOG, 4},
    {"header-log-1", &Has::Aer, AER_HEADER_LOG + 4, 4},
    {"header-log-2", &Has::Aer, AER_HEADER_LOG + 8, 4},
    {"header-log-3", &Has::Aer, AER_HEADER_LOG + 12, 4},
    {"root-error-command", &Has::Aer, AER_ROOT_ERROR_COMMAND, 4},
    {"root-error-status", &Has::Aer, AER_ROOT_ERROR_STATUS, 4},
    {"error-source", &Has::Aer, AER_ERROR_SOURCE_ID, 4},
    {"secondary-uncorrectable-status", &Has::Aer, AER_SECONDARY_UNCORRECTABLE_STATUS, 4},
    {"secondary-uncorrectable-mask", &Has::Aer, AER_SECONDARY_UNCORRECTABLE_MASK, 4},
    {"secondary-uncorrectable-severity", &Has::Aer, AER_SECONDARY_UNCORRECTABLE_SEVERITY, 4},
    {"dpc-control", &Has::Dpc, DPC_CONTROL, 2},
    {"dpc-status", &Has::Dpc, DPC_STATUS, 2},
    {"dpc-source", &Has::Dpc, DPC_ERROR_SOURCE_ID, 2},
    {"rp-pio-status", &Has::Dpc, DPC_RP_PIO_STATUS, 4},
    {"rp-pio-mask", &Has::Dpc, DPC_RP_PIO_MASK, 4},
    {"rp-pio-severity", &Has::Dpc, DPC_RP_PIO_SEVERITY, 4},
    {"rp-pio-sys-error", &Has::Dpc, DPC_RP_PIO_SYS_ERROR, 4},
    {"lane-error-status", &Has::SecondaryPcie, SECONDARY_PCIE_LANE_ERROR_STATUS, 4},
};

struct ConfigDraft {
    std::string At;
    const NamedRegister* Name = nullptr;
    std::optional<unsigned> Offset;
    std::optional<unsigned> Width;  // bytes
    std::optional<std::uint32_t> Write, Poke, Set, Clear, Expect, Peek;
    std::uint32_t Mask = UINT32_MAX;
    std::string Text;
};

void ReadRegister(const YamlValue& Value, ConfigDraft& Into) {
    std::vector<std::string_view> Names;
    for (const NamedRegister& One : Registers) {
        Names.push_back(One.Name);
    }
    Into.Name = &Registers[Value.OneOf(Names)];
    Into.Text = Value.Text();
}

constexpr YamlKey<ConfigDraft> ConfigKeys[] = {
    {"at", ReadText<&ConfigDraft::At>, true},
    {"register", ReadRegister},
    {"offset",
     [](const YamlValue& V, ConfigDraft& D) {
         D.Offset = static_cast<unsigned>(V.Number(0, 0xFFF));
         D.Text = V.Text();
     }},
    {"width", [](const YamlValue& V, ConfigDraft& D) { D.Width = ReadRegisterWidth(V); }},
    {"write", ReadNumber<&ConfigDraft::Write>},
    {"poke", ReadNumber<&ConfigDraft::Poke>},
    {"set", ReadNumber<&ConfigDraft::Set>},
    {"clear", ReadNumber<&ConfigDraft::Clear>},
    {"expect", ReadNumber<&ConfigDraft::Expect>},
    {"peek", ReadNumber<&ConfigDraft::Peek>},
    {"mask", ReadNumber<&ConfigDraft::Mask>},
};

unsigned WidthOf(const ConfigDraft& Draft) {
    return Draft.Width.value_or(Draft.Name == nullptr ? 4 : Draft.Name->Width);
}

unsigned OffsetOf(const ConfigDraft& Draft, const PcieFunction& Function) {
    if (Draft.Offset) {
        return *Draft.Offset;
    }
    const unsigned Capability = Draft.Name->Capability == nullptr ? 0 : Function.Has().*Draft.Name->Capability;
    if (Draft.Name->Capability != nullptr && Capability == 0) {
        throw std::invalid_argument(fmt::format("\"{}\" has no capability with {}", Draft.At, Draft.Text));
    }
    return Capability + Draft.Name->Offset;
}

Outcome CompareRegister(const ConfigDraft& Draft, std::uint32_t Wanted, std::uint32_t Came) {
    if (((Wanted ^ Came) & Draft.Mask) == 0) {
        return std::nullopt;
    }
    const std::string Masked = Draft.Mask == UINT32_MAX ? "" : fmt::format(" in the bits of {}", Hex(Draft.Mask));
    return fmt::format("it is {}, wanted {}{}", Hex(Came), Hex(Wanted), Masked);
}

Outcome DoConfig(const ConfigDraft& Draft, Simulation& Run) {
    PcieFunction& Function = FunctionAt(Run, Draft.At);
    PciSpace& Space = Run.Machine().Pci();
    const unsigned Offset = OffsetOf(Draft, Function);
    const unsigned Width = WidthOf(Draft);
    if (Draft.Write) {
        Space.Write(Function.Where(), Offset, Width, *Draft.Write);
    }
    if (Draft.Poke) {
        Function.Poke(Offset, Width, *Draft.Poke);
    }
    if (Draft.Set) {
        Function.SetBits(Offset, Width, *Draft.Set);
    }
    if (Draft.Clear) {
        Function.ClearBits(Offset, Width, *Draft.Clear);
    }
    Outcome Wrong;
    if (Draft.Peek) {
        Wrong = CompareRegister(Draft, *Draft.Peek, Function.Peek(Offset, Width));
    }
    if (Draft.Expect && !Wrong) {
        const bool Answers = Space.Find(Function.Where()) == &Function && !Function.IsDead();
        Wrong = CompareRegister(Draft, *Draft.Expect,
                                Answers ? Function.Peek(Offset, Width) : UINT32_MAX >> (32 - 8 * Width));
    }
    return Wrong;
}

// pcie-slot, pcie-link

constexpr std::string_view SlotActs[] = {"remove", "surprise-remove", "insert", "power-off", "power-on"};

struct PortDraft {
    std::string At;
    std::size_t Act = 0;
    std::optional<bool> Up, NeverTrains;
    std::optional<std::uint64_t> Training;
};

constexpr YamlKey<PortDraft> SlotKeys[] = {
    {"at", ReadText<&PortDraft::At>, true},
    {"act", ReadWord<&PortDraft::Act, SlotActs>, true},
};

constexpr std::string_view LinkStates[] = {"down", "up"};

constexpr YamlKey<PortDraft> LinkKeys[] = {
    {"at", ReadText<&PortDraft::At>, true},
    {"state", ReadWord<&PortDraft::Up, LinkStates>},
    {"training", ReadDuration<&PortDraft::Training>},
    {"never-trains", ReadBool<&PortDraft::NeverTrains>},
};

void DoSlot(PcieFabric& Fabric, PcieFunction& Port, std::string_view Act) {
    if (Act == "insert") {
        Fabric.Insert(Port);
    } else if (Act.ends_with("remove")) {
        Fabric.Remove(Port, Act == "surprise-remove");
    } else if (!PcieFabric::HasPowerController(Port)) {
        throw std::invalid_argument(fmt::format("\"{}\" has no slot with a power controller", Port.GivenName()));
    } else {
        Fabric.SetPower(Port, Act == "power-on");
    }
}

// pcie-death

struct DeathDraft {
    std::string At;
    std::uint64_t Reads = 0;
    bool Revives = false;
};

constexpr YamlKey<DeathDraft> DeathKeys[] = {
    {"at", ReadText<&DeathDraft::At>},
    {"reads", ReadNumber<&DeathDraft::Reads>},
    {"revive", ReadBool<&DeathDraft::Revives>},
};

// smn

struct SmnDraft {
    std::size_t RootComplex = 0;
    std::uint32_t Address = 0;
    std::optional<std::uint32_t> Write, Expect;
};

constexpr YamlKey<SmnDraft> SmnKeys[] = {
    {"root-complex", ReadNumber<&SmnDraft::RootComplex, 0, 15>, true},
    {"address", ReadNumber<&SmnDraft::Address>, true},
    {"write", ReadNumber<&SmnDraft::Write>},
    {"expect", ReadNumber<&SmnDraft::Expect>},
};

Outcome DoSmn(const SmnDraft& Draft, Simulation& Run) {
    if (Draft.RootComplex >= Run.Machine().RootComplexes().size()) {
        throw std::invalid_argument(fmt::format("there is no root complex {}", Draft.RootComplex));
    }
    SmnSpace& Smn = Run.Machine().SmnOf(Draft.RootComplex);
    if (!Smn.Read(Draft.Address) || (Draft.Write && !Smn.Write(Draft.Address, *Draft.Write))) {
        throw std::invalid_argument(fmt::format("nothing is mapped at SMN address {}", Hex(Draft.Address)));
    }
    const std::uint32_t Came = *Smn.Read(Draft.Address);
    return Draft.Expect && *Draft.Expect != Came
               ? Outcome(fmt::format("it is {}, wanted {}", Hex(Came), Hex(*Draft.Expect)))
               : std::nullopt;
}

}  // namespace

void ReadPcieError(const YamlValue& Value, const Configuration&, Step& Into) {
    ErrorDraft Draft;
    ReadKeys<ErrorDraft>(Value, ErrorKeys, Draft);
    if (Draft.Header && Draft.Tlp) {
        Value.Refuse("the failing TLP is told either by header or by tlp");
    }
    Into.Summary = fmt::format("{} at {}", Draft.Names, Draft.At);
    for (PcieError& One : Draft.Errors) {
        One.Header = Draft.Tlp ? Draft.Tlp : Draft.Header;
        One.Advisory = Draft.Advisory;
    }
    Into.Do = [Draft](Simulation& Run) {
        PcieFunction& Where = FunctionAt(Run, Draft.At);
        if (!std::ranges::all_of(Draft.Errors,
                                 [&](const PcieError& One) { return PcieFabric::CanHave(Where, One); })) {
            throw std::invalid_argument(fmt::format("\"{}\" has no registers for {}", Draft.At, Draft.Names));
        }
        for (std::uint64_t Time = 0; Time < Draft.Count; Time++) {
            for (const PcieError& One : Draft.Errors) {
                Run.Machine().Pcie().Inject(Where, One);
            }
        }
        return Outcome();
    };
}

void ReadPcieConfig(const YamlValue& Value, const Configuration&, Step& Into) {
    ConfigDraft Draft;
    ReadKeys<ConfigDraft>(Value, ConfigKeys, Draft);
    if ((Draft.Name == nullptr) == !Draft.Offset) {
        Value.Refuse("either \"register\" or \"offset\" is wanted");
    }
    if (Draft.Name != nullptr && Draft.Width) {
        Value.Refuse("a register that is named has its own width");
    }
    RequireAligned(Value, Draft.Offset.value_or(0), WidthOf(Draft));
    if (!Draft.Write && !Draft.Poke && !Draft.Set && !Draft.Clear && !Draft.Expect && !Draft.Peek) {
        Value.Refuse("one of write, poke, set, clear, expect and peek is wanted");
    }
    Into.Summary = fmt::format("{} of {}", Draft.Text, Draft.At);
    Into.Do = [Draft](Simulation& Run) { return DoConfig(Draft, Run); };
}

void ReadPcieSlot(const YamlValue& Value, const Configuration&, Step& Into) {
    PortDraft Draft;
    ReadKeys<PortDraft>(Value, SlotKeys, Draft);
    Into.Summary = fmt::format("{} at {}", SlotActs[Draft.Act], Draft.At);
    Into.Do = [Draft](Simulation& Run) {
        DoSlot(Run.Machine().Pcie(), PortAt(Run, Draft.At), SlotActs[Draft.Act]);
        return Outcome();
    };
}

void ReadPcieLink(const YamlValue& Value, const Configuration&, Step& Into) {
    PortDraft Draft;
    ReadKeys<PortDraft>(Value, LinkKeys, Draft);
    Into.Summary = fmt::format("of {}{}", Draft.At, Draft.Up ? (*Draft.Up ? " comes up" : " goes down") : "");
    Into.Do = [Draft](Simulation& Run) {
        PcieFunction& Port = PortAt(Run, Draft.At);
        Port.Wire.Training = Draft.Training.value_or(Port.Wire.Training);
        Port.Wire.NeverTrains = Draft.NeverTrains.value_or(Port.Wire.NeverTrains);
        if (Draft.Up) {
            Run.Machine().Pcie().SetLink(Port, *Draft.Up);
        }
        return Outcome();
    };
}

void ReadPcieDeath(const YamlValue& Value, const Configuration&, Step& Into) {
    DeathDraft Draft;
    ReadKeys<DeathDraft>(Value, DeathKeys, Draft);
    if (Draft.Revives && Draft.At.empty()) {
        Value.Refuse("\"at\" must say who is revived");
    }
    Into.Summary = Draft.At.empty() ? fmt::format("who is read as number {}", Draft.Reads)
                                    : fmt::format("{} after {} reads", Draft.At, Draft.Reads);
    Into.Do = [Draft](Simulation& Run) {
        if (Draft.At.empty()) {
            Run.Machine().Pcie().DieAtRead(Draft.Reads);
        } else if (Draft.Revives) {
            FunctionAt(Run, Draft.At).Revive();
        } else {
            FunctionAt(Run, Draft.At).DieAfter(Draft.Reads);
        }
        return Outcome();
    };
}

void ReadSmn(const YamlValue& Value, const Configuration&, Step& Into) {
    SmnDraft Draft;
    ReadKeys<SmnDraft>(Value, SmnKeys, Draft);
    Into.Summary = fmt::format("{} of root complex {}", Hex(Draft.Address), Draft.RootComplex);
    Into.Do = [Draft](Simulation& Run) { return DoSmn(Draft, Run); };
}

}  // namespace Simulator

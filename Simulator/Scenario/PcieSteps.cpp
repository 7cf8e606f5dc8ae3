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

namespace {

using Outcome = std::optional<std::string>;

PcieFunction& PortAt(Simulation& Run, const std::string& At) {
    PcieFunction& Found = FunctionAt(Run, At);
    if (!Found.IsDownstreamPort()) {
        throw std::invalid_argument(fmt::format("\"{}\" is no root port and no switch's downstream port", At));
    }
    return Found;
}

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
    {"type", [](const YamlValue& V, TlpDraft& T) { T.Type = V.OneOf(TlpTypes); }, true},
    {"address", [](const YamlValue& V, TlpDraft& T) { T.Address = V.Number(); }},
    {"requester",
     [](const YamlValue& V, TlpDraft& T) { T.Requester = static_cast<std::uint16_t>(V.Number(0, 0xFFFF)); }},
    {"vendor", [](const YamlValue& V, TlpDraft& T) { T.Vendor = static_cast<std::uint16_t>(V.Number(0, 0xFFFF)); }},
    {"code", [](const YamlValue& V, TlpDraft& T) { T.Code = static_cast<std::uint8_t>(V.Number(0, 0xFF)); }},
    {"data", [](const YamlValue& V, TlpDraft& T) { T.HasData = V.Bool(); }},
    {"length", [](const YamlValue& V, TlpDraft& T) { T.Length = static_cast<unsigned>(V.Number(1, 1023)); }},
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
    std::optional<TlpWords> Header;
    bool Advisory = false;
    std::uint64_t Count = 1;
};

void ReadErrorNames(const YamlValue& Value, ErrorDraft& Into) {
    std::vector<std::string_view> Names;
    for (const PcieErrorName& One : PcieErrorNames()) {
        Names.push_back(One.Name);
    }
    for (const YamlValue& Item : Value.IsList() ? Value.List() : std::vector{Value}) {
        const PcieErrorName& Found = PcieErrorNames()[Item.OneOf(Names)];
        Into.Errors.push_back({Found.From, Found.Bit});
        Into.Names += (Into.Names.empty() ? "" : ", ") + std::string(Found.Name);
    }
}

constexpr YamlKey<ErrorDraft> ErrorKeys[] = {
    {"at", [](const YamlValue& V, ErrorDraft& D) { D.At = V.Text(); }, true},
    {"error", ReadErrorNames, true},
    {"tlp", [](const YamlValue& V, ErrorDraft& D) { D.Header = ReadTlp(V); }},
    {"header", [](const YamlValue& V, ErrorDraft& D) { D.Header = ReadHeader(V); }},
    {"advisory", [](const YamlValue& V, ErrorDraft& D) { D.Advisory = V.Bool(); }},
    {"count", [](const YamlValue& V, ErrorDraft& D) { D.Count = V.Number(1, 100'000); }},
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
    unsigned Width = 4;
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
    Into.Width = Into.Name->Width;
    Into.Text = Value.Text();
}

template <std::optional<std::uint32_t> ConfigDraft::*Where>
void ReadWord(const YamlValue& Value, ConfigDraft& Into) {
    Into.*Where = static_cast<std::uint32_t>(Value.Number(0, 0xFFFFFFFF));
}

constexpr YamlKey<ConfigDraft> ConfigKeys[] = {
    {"at", [](const YamlValue& V, ConfigDraft& D) { D.At = V.Text(); }, true},
    {"register", ReadRegister},
    {"offset",
     [](const YamlValue& V, ConfigDraft& D) {
         D.Offset = static_cast<unsigned>(V.Number(0, 0xFFF));
         D.Text = V.Text();
     }},
    {"width", [](const YamlValue& V, ConfigDraft& D) { D.Width = static_cast<unsigned>(V.Number(8, 32)) / 8; }},
    {"write", ReadWord<&ConfigDraft::Write>},
    {"poke", ReadWord<&ConfigDraft::Poke>},
    {"set", ReadWord<&ConfigDraft::Set>},
    {"clear", ReadWord<&ConfigDraft::Clear>},
    {"expect", ReadWord<&ConfigDraft::Expect>},
    {"peek", ReadWord<&ConfigDraft::Peek>},
    {"mask",
     [](const YamlValue& V, ConfigDraft& D) { D.Mask = static_cast<std::uint32_t>(V.Number(0, 0xFFFFFFFF)); }},
};

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
    if (Draft.Write) {
        Space.Write(Function.Where(), Offset, Draft.Width, *Draft.Write);
    }
    if (Draft.Poke) {
        Function.Poke(Offset, Draft.Width, *Draft.Poke);
    }
    if (Draft.Set) {
        Function.SetBits(Offset, Draft.Width, *Draft.Set);
    }
    if (Draft.Clear) {
        Function.ClearBits(Offset, Draft.Width, *Draft.Clear);
    }
    if (Draft.Peek) {
        return CompareRegister(Draft, *Draft.Peek, Function.Peek(Offset, Draft.Width));
    }
    if (Draft.Expect) {
        const bool Answers = Space.Find(Function.Where()) == &Function && !Function.IsDead();
        return CompareRegister(Draft, *Draft.Expect,
                               Answers ? Function.Peek(Offset, Draft.Width) : UINT32_MAX >> (32 - 8 * Draft.Width));
    }
    return std::nullopt;
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
    {"at", [](const YamlValue& V, PortDraft& D) { D.At = V.Text(); }, true},
    {"act", [](const YamlValue& V, PortDraft& D) { D.Act = V.OneOf(SlotActs); }, true},
};

constexpr std::string_view LinkStates[] = {"down", "up"};

constexpr YamlKey<PortDraft> LinkKeys[] = {
    {"at", [](const YamlValue& V, PortDraft& D) { D.At = V.Text(); }, true},
    {"state", [](const YamlValue& V, PortDraft& D) { D.Up = V.OneOf(LinkStates) == 1; }},
    {"training", [](const YamlValue& V, PortDraft& D) { D.Training = V.Duration(); }},
    {"never-trains", [](const YamlValue& V, PortDraft& D) { D.NeverTrains = V.Bool(); }},
};

void DoSlot(PcieFabric& Fabric, PcieFunction& Port, std::string_view Act) {
    if (Act == "insert") {
        Fabric.Insert(Port);
    } else if (Act.ends_with("remove")) {
        Fabric.Remove(Port, Act == "surprise-remove");
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
    {"at", [](const YamlValue& V, DeathDraft& D) { D.At = V.Text(); }},
    {"reads", [](const YamlValue& V, DeathDraft& D) { D.Reads = V.Number(); }},
    {"revive", [](const YamlValue& V, DeathDraft& D) { D.Revives = V.Bool(); }},
};

// smn

struct SmnDraft {
    std::size_t RootComplex = 0;
    std::uint32_t Address = 0;
    std::optional<std::uint32_t> Write, Expect;
};

constexpr YamlKey<SmnDraft> SmnKeys[] = {
    {"root-complex", [](const YamlValue& V, SmnDraft& D) { D.RootComplex = V.Number(0, 15); }, true},
    {"address",
     [](const YamlValue& V, SmnDraft& D) { D.Address = static_cast<std::uint32_t>(V.Number(0, 0xFFFFFFFF)); }, true},
    {"write", [](const YamlValue& V, SmnDraft& D) { D.Write = static_cast<std::uint32_t>(V.Number(0, 0xFFFFFFFF)); }},
    {"expect",
     [](const YamlValue& V, SmnDraft& D) { D.Expect = static_cast<std::uint32_t>(V.Number(0, 0xFFFFFFFF)); }},
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
    Into.Summary = fmt::format("{} at {}", Draft.Names, Draft.At);
    for (PcieError& One : Draft.Errors) {
        One.Header = Draft.Header;
        One.Advisory = Draft.Advisory;
    }
    Into.Do = [Draft](Simulation& Run) {
        PcieFunction& Where = FunctionAt(Run, Draft.At);
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

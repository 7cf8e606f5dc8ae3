// What scenarios say of a machine's PCIe hierarchy.
#include "Simulator/Scenario/PcieReader.h"

#include <bit>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Simulator/Scenario/CxlReader.h"

namespace Simulator {

namespace {

// A function as it is written: those on a root bus say more.
struct FunctionDraft {
    PciePortSetting Port;
    bool IsOnRootBus = false;
    PcieFunctionSetting& Function() {
        return Port.Function;
    }
};

constexpr std::string_view KindNames[] = {"root-port",
                                          "event-collector",
                                          "integrated-endpoint",
                                          "endpoint",
                                          "legacy-endpoint",
                                          "switch-upstream-port",
                                          "switch-downstream-port",
                                          "pcie-to-pci-bridge",
                                          "pci",
                                          "pci-bridge"};
constexpr std::string_view NvmeSwitchModes[] = {"bsw", "issw"};
constexpr std::string_view TriggerNames[] = {"off", "fatal", "non-fatal"};

template <class Target, class Member, Member Target::*Where>
void ReadUnsigned(const YamlValue& Value, Target& Into) {
    Into.*Where = static_cast<unsigned>(Value.Number(0, UINT32_MAX));
}
template <class Target, bool Target::*Where>
void ReadBool(const YamlValue& Value, Target& Into) {
    Into.*Where = Value.Bool();
}

using Slot = PcieSlotSetting;

constexpr YamlKey<Slot> SlotKeys[] = {
    {"number", [](const YamlValue& V, Slot& S) { S.Number = static_cast<unsigned>(V.Number(0, 0x1FFF)); }},
    {"hot-plug", ReadBool<Slot, &Slot::HotPlugCapable>},
    {"surprise", ReadBool<Slot, &Slot::HotPlugSurprise>},
    {"power-controller", ReadBool<Slot, &Slot::PowerController>},
    {"occupied", ReadBool<Slot, &Slot::Occupied>},
    {"bay",
     [](const YamlValue& V, Slot& S) {
         S.IsNvmeBay = true;
         S.Bay = static_cast<unsigned>(V.Number(0, 255));
     }},
    {"bay-slot", [](const YamlValue& V, Slot& S) { S.BaySlot = static_cast<unsigned>(V.Number(0, 255)); }},
};

using Dpc = DpcSetting;

constexpr YamlKey<Dpc> DpcKeys[] = {
    {"rp-extensions", ReadBool<Dpc, &Dpc::RootPortExtensions>},
    {"log-size", [](const YamlValue& V, Dpc& D) { D.LogSize = static_cast<unsigned>(V.Number(0, 9)); }},
    {"trigger", [](const YamlValue& V, Dpc& D) { D.Trigger = static_cast<unsigned>(V.OneOf(TriggerNames)); }},
    {"err-cor", ReadBool<Dpc, &Dpc::ErrCor>},
    {"interrupt", ReadBool<Dpc, &Dpc::Interrupt>},
};

using Bar = BarSetting;

constexpr YamlKey<Bar> BarKeys[] = {
    {"index", [](const YamlValue& V, Bar& B) { B.Index = static_cast<unsigned>(V.Number(0, 5)); }, true},
    {"base", [](const YamlValue& V, Bar& B) { B.Base = V.Number(); }},
    {"size", [](const YamlValue& V, Bar& B) { B.Size = V.Number(); }, true},
    {"64-bit", ReadBool<Bar, &Bar::Is64>},
    {"prefetchable", ReadBool<Bar, &Bar::IsPrefetchable>},
    {"io", ReadBool<Bar, &Bar::IsIo>},
};

using Capability = CapabilitySetting;

constexpr YamlKey<Capability> CapabilityKeys[] = {
    {"id", [](const YamlValue& V, Capability& C) { C.Id = static_cast<unsigned>(V.Number(0, 0xFFFF)); }, true},
    {"extended", ReadBool<Capability, &Capability::IsExtended>},
    {"version", [](const YamlValue& V, Capability& C) { C.Version = static_cast<unsigned>(V.Number(0, 15)); }},
    {"bytes", [](const YamlValue& V, Capability& C) { C.Bytes = V.Bytes(); }, true},
};

constexpr YamlKey<RegisterSetting> RegisterKeys[] = {
    {"offset", [](const YamlValue& V, RegisterSetting& R) { R.Offset = static_cast<unsigned>(V.Number(0, 0xFFF)); },
     true},
    {"width", [](const YamlValue& V, RegisterSetting& R) { R.Width = static_cast<unsigned>(V.Number(8, 32)) / 8; }},
    {"value",
     [](const YamlValue& V, RegisterSetting& R) { R.Value = static_cast<std::uint32_t>(V.Number(0, 0xFFFFFFFF)); },
     true},
};

template <class Item, std::size_t Count>
void ReadItems(const YamlValue& Value, const YamlKey<Item> (&Keys)[Count], std::vector<Item>& Into) {
    for (const YamlValue& One : Value.List()) {
        ReadKeys<Item>(One, Keys, Into.emplace_back());
    }
}

template <std::optional<std::uint16_t> PcieFunctionSetting::*Where>
void ReadId(const YamlValue& Value, FunctionDraft& Into) {
    Into.Function().*Where = static_cast<std::uint16_t>(Value.Number(0, 0xFFFF));
}
template <bool PcieFunctionSetting::*Where>
void ReadSwitch(const YamlValue& Value, FunctionDraft& Into) {
    Into.Function().*Where = Value.Bool();
}

void RequireRootBus(const YamlValue& Value, const FunctionDraft& Draft) {
    if (!Draft.IsOnRootBus) {
        Value.Refuse("only what lies on a root bus says this");
    }
}

PcieFunctionSetting ReadFunction(const YamlValue& Value);

using Function = PcieFunctionSetting;
using Draft = FunctionDraft;

constexpr YamlKey<Draft> FunctionKeys[] = {
    {"root-complex",
     [](const YamlValue& V, Draft& D) {
         RequireRootBus(V, D);
         D.Port.RootComplex = static_cast<unsigned>(V.Number(0, 15));
     }},
    {"port",
     [](const YamlValue& V, Draft& D) {
         RequireRootBus(V, D);
         D.Port.Port = static_cast<unsigned>(V.Number(0, 21));
     }},
    {"cxl-capable",
     [](const YamlValue& V, Draft& D) {
         RequireRootBus(V, D);
         D.Port.CxlCapable = V.Bool();
     }},
    {"cxl-mode",
     [](const YamlValue& V, Draft& D) {
         RequireRootBus(V, D);
         D.Port.CxlMode = static_cast<unsigned>(V.Number(0, 255));
     }},
    {"name", [](const YamlValue& V, Draft& D) { D.Function().Name = V.Text(); }},
    {"kind", [](const YamlValue& V, Draft& D) { D.Function().Kind = static_cast<PcieKind>(V.OneOf(KindNames)); }},
    {"device", [](const YamlValue& V, Draft& D) { D.Function().Device = static_cast<unsigned>(V.Number(0, 31)); }},
    {"function", [](const YamlValue& V, Draft& D) { D.Function().Function = static_cast<unsigned>(V.Number(0, 7)); }},
    {"vendor-id", ReadId<&Function::VendorId>},
    {"device-id", ReadId<&Function::DeviceId>},
    {"subsystem-vendor-id", ReadId<&Function::SubsystemVendorId>},
    {"subsystem-id", ReadId<&Function::SubsystemId>},
    {"class", [](const YamlValue& V,
                 Draft& D) { D.Function().ClassCode = static_cast<std::uint32_t>(V.Number(0, 0xFFFFFF)); }},
    {"version", [](const YamlValue& V, Draft& D) { D.Function().Version = static_cast<unsigned>(V.Number(1, 2)); }},
    {"role-based", ReadSwitch<&Function::RoleBased>},
    {"aer", ReadSwitch<&Function::Aer>},
    {"power-management", ReadSwitch<&Function::PowerManagement>},
    {"secondary-pcie", ReadSwitch<&Function::SecondaryPcie>},
    {"sfi", ReadSwitch<&Function::Sfi>},
    {"link-active-reporting", ReadSwitch<&Function::LinkActiveReporting>},
    {"surprise-down", ReadSwitch<&Function::SurpriseDown>},
    {"max-payload",
     [](const YamlValue& V, Draft& D) {
         const std::uint64_t Bytes = V.Number(128, 4096);
         if (!std::has_single_bit(Bytes)) {
             V.Refuse("a payload size is a power of two from 128 to 4096 bytes");
         }
         D.Function().MaxPayload = static_cast<unsigned>(std::countr_zero(Bytes)) - 7;
     }},
    {"serial-number", [](const YamlValue& V, Draft& D) { D.Function().SerialNumber = V.Number(); }},
    {"nvme-switch", [](const YamlValue& V,
                       Draft& D) { D.Function().NvmeSwitchMode = static_cast<unsigned>(V.OneOf(NvmeSwitchModes)); }},
    {"slot", [](const YamlValue& V, Draft& D) { ReadKeys<Slot>(V, SlotKeys, D.Function().Slot.emplace()); }},
    {"dpc", [](const YamlValue& V, Draft& D) { ReadKeys<Dpc>(V, DpcKeys, D.Function().Dpc.emplace()); }},
    {"cxl", [](const YamlValue& V, Draft& D) { D.Function().Cxl = ReadCxl(V); }},
    {"bars", [](const YamlValue& V, Draft& D) { ReadItems(V, BarKeys, D.Function().Bars); }},
    {"capabilities", [](const YamlValue& V, Draft& D) { ReadItems(V, CapabilityKeys, D.Function().Capabilities); }},
    {"registers", [](const YamlValue& V, Draft& D) { ReadItems(V, RegisterKeys, D.Function().Registers); }},
    {"spare-buses",
     [](const YamlValue& V, Draft& D) { D.Function().SpareBuses = static_cast<unsigned>(V.Number(0, 255)); }},
    {"below",
     [](const YamlValue& V, Draft& D) {
         for (const YamlValue& Item : V.List()) {
             D.Function().Below.push_back(ReadFunction(Item));
         }
     }},
};

PcieFunctionSetting ReadFunction(const YamlValue& Value) {
    FunctionDraft Made;
    ReadKeys<Draft>(Value, FunctionKeys, Made);
    return Made.Function();
}

std::string ReadText(const YamlValue& Value) {
    const std::filesystem::path File = std::filesystem::path(Value.Where().File).parent_path() / Value.Text();
    std::ifstream In(File);
    std::ostringstream Text;
    Text << In.rdbuf();
    if (!In) {
        Value.Refuse("\"" + File.string() + "\" cannot be read");
    }
    return Text.str();
}

constexpr YamlKey<PciDumpSetting> DumpKeys[] = {
    {"file", [](const YamlValue& V, PciDumpSetting& D) { D.Text = ReadText(V); }, true},
    {"reporting", ReadBool<PciDumpSetting, &PciDumpSetting::Reporting>},
};

constexpr std::string_view ProbeNames[] = {"none", "root-ports", "all"};

constexpr YamlKey<PcieSettings> PcieKeys[] = {
    {"ports",
     [](const YamlValue& V, PcieSettings& S) {
         S.IsDefault = false;
         for (const YamlValue& Item : V.List()) {
             FunctionDraft Made;
             Made.IsOnRootBus = true;
             Made.Function().Kind = PcieKind::RootPort;
             ReadKeys<Draft>(Item, FunctionKeys, Made);
             S.Ports.push_back(Made.Port);
         }
     }},
    {"dump", [](const YamlValue& V, PcieSettings& S) { ReadKeys<PciDumpSetting>(V, DumpKeys, S.Dump.emplace()); }},
    {"probe-logging",
     [](const YamlValue& V, PcieSettings& S) { S.Probes = static_cast<ProbeLogging>(V.OneOf(ProbeNames)); }},
    {"link-training", [](const YamlValue& V, PcieSettings& S) { S.LinkTraining = V.Duration(); }},
};

}  // namespace

void ReadPcie(const YamlValue& Value, Configuration& Into) {
    ReadKeys<PcieSettings>(Value, PcieKeys, Into.Pcie);
}

}  // namespace Simulator

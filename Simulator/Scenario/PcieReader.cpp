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

using Slot = PcieSlotSetting;

constexpr YamlKey<Slot> SlotKeys[] = {
    {"number", ReadNumber<&Slot::Number, 0, 0x1FFF>},
    {"hot-plug", ReadBool<&Slot::HotPlugCapable>},
    {"surprise", ReadBool<&Slot::HotPlugSurprise>},
    {"power-controller", ReadBool<&Slot::PowerController>},
    {"occupied", ReadBool<&Slot::Occupied>},
    {"bay",
     [](const YamlValue& V, Slot& S) {
         S.IsNvmeBay = true;
         S.Bay = static_cast<unsigned>(V.Number(0, 255));
     }},
    {"bay-slot", ReadNumber<&Slot::BaySlot, 0, 255>},
};

using Dpc = DpcSetting;

constexpr YamlKey<Dpc> DpcKeys[] = {
    {"rp-extensions", ReadBool<&Dpc::RootPortExtensions>},
    {"log-size", ReadNumber<&Dpc::LogSize, 0, 9>},
    {"trigger", ReadWord<&Dpc::Trigger, TriggerNames>},
    {"err-cor", ReadBool<&Dpc::ErrCor>},
    {"interrupt", ReadBool<&Dpc::Interrupt>},
};

using Bar = BarSetting;

constexpr YamlKey<Bar> BarKeys[] = {
    {"index", ReadNumber<&Bar::Index, 0, 5>, true},   {"base", ReadNumber<&Bar::Base>},
    {"size", ReadNumber<&Bar::Size>, true},           {"64-bit", ReadBool<&Bar::Is64>},
    {"prefetchable", ReadBool<&Bar::IsPrefetchable>}, {"io", ReadBool<&Bar::IsIo>},
};

using Capability = CapabilitySetting;

constexpr YamlKey<Capability> CapabilityKeys[] = {
    {"id", ReadNumber<&Capability::Id, 0, 0xFFFF>, true},
    {"extended", ReadBool<&Capability::IsExtended>},
    {"version", ReadNumber<&Capability::Version, 0, 15>},
    {"bytes", ReadBytes<&Capability::Bytes>, true},
};

constexpr YamlKey<RegisterSetting> RegisterKeys[] = {
    {"offset", ReadNumber<&RegisterSetting::Offset, 0, 0xFFF>, true},
    {"width", [](const YamlValue& V, RegisterSetting& R) { R.Width = ReadRegisterWidth(V); }},
    {"value", ReadNumber<&RegisterSetting::Value>, true},
};

void ReadBars(const YamlValue& Value, PcieFunctionSetting& Into) {
    for (const YamlValue& One : Value.List()) {
        ReadKeys<Bar>(One, BarKeys, Into.Bars.emplace_back());
    }
}

void ReadCapabilities(const YamlValue& Value, PcieFunctionSetting& Into) {
    for (const YamlValue& One : Value.List()) {
        Capability& Made = Into.Capabilities.emplace_back();
        ReadKeys<Capability>(One, CapabilityKeys, Made);
        if (!Made.IsExtended && Made.Id > UINT8_MAX) {
            One.Refuse("the id of a capability that is not extended is 0 to 0xFF");
        }
    }
}

void ReadRegisters(const YamlValue& Value, PcieFunctionSetting& Into) {
    for (const YamlValue& One : Value.List()) {
        RegisterSetting& Register = Into.Registers.emplace_back();
        ReadKeys<RegisterSetting>(One, RegisterKeys, Register);
        RequireAligned(One, Register.Offset, Register.Width);
    }
}

void RequireRootBus(const YamlValue& Value, const FunctionDraft& Draft) {
    if (!Draft.IsOnRootBus) {
        Value.Refuse("only what lies on a root bus says this");
    }
}

// Keys of the function itself, whatever bus it lies on.
template <auto Member, std::uint64_t Lowest = 0, std::uint64_t Highest = std::numeric_limits<TypeOf<Member>>::max()>
void ReadNumberOfFunction(const YamlValue& Value, FunctionDraft& Into) {
    ReadNumber<Member, Lowest, Highest>(Value, Into.Function());
}
template <auto Member>
void ReadBoolOfFunction(const YamlValue& Value, FunctionDraft& Into) {
    ReadBool<Member>(Value, Into.Function());
}

// Keys that only what lies on a root bus has.
template <auto Member, std::uint64_t Highest>
void ReadNumberOfPort(const YamlValue& Value, FunctionDraft& Into) {
    RequireRootBus(Value, Into);
    ReadNumber<Member, 0, Highest>(Value, Into.Port);
}

PcieFunctionSetting ReadFunction(const YamlValue& Value);

using Function = PcieFunctionSetting;
using Draft = FunctionDraft;

constexpr YamlKey<Draft> FunctionKeys[] = {
    {"root-complex", ReadNumberOfPort<&PciePortSetting::RootComplex, 15>},
    {"port", ReadNumberOfPort<&PciePortSetting::Port, 21>},
    {"cxl-capable",
     [](const YamlValue& V, Draft& D) {
         RequireRootBus(V, D);
         D.Port.CxlCapable = V.Bool();
     }},
    {"cxl-mode", ReadNumberOfPort<&PciePortSetting::CxlMode, 255>},
    {"name", [](const YamlValue& V, Draft& D) { D.Function().Name = V.Text(); }},
    {"kind", [](const YamlValue& V, Draft& D) { D.Function().Kind = static_cast<PcieKind>(V.OneOf(KindNames)); }},
    {"device", ReadNumberOfFunction<&Function::Device, 0, 31>},
    {"function", ReadNumberOfFunction<&Function::Function, 0, 7>},
    {"vendor-id", ReadNumberOfFunction<&Function::VendorId>},
    {"device-id", ReadNumberOfFunction<&Function::DeviceId>},
    {"subsystem-vendor-id", ReadNumberOfFunction<&Function::SubsystemVendorId>},
    {"subsystem-id", ReadNumberOfFunction<&Function::SubsystemId>},
    {"class", ReadNumberOfFunction<&Function::ClassCode, 0, 0xFFFFFF>},
    {"version", ReadNumberOfFunction<&Function::Version, 1, 2>},
    {"role-based", ReadBoolOfFunction<&Function::RoleBased>},
    {"aer", ReadBoolOfFunction<&Function::Aer>},
    {"power-management", ReadBoolOfFunction<&Function::PowerManagement>},
    {"secondary-pcie", ReadBoolOfFunction<&Function::SecondaryPcie>},
    {"sfi", ReadBoolOfFunction<&Function::Sfi>},
    {"link-active-reporting", ReadBoolOfFunction<&Function::LinkActiveReporting>},
    {"surprise-down", ReadBoolOfFunction<&Function::SurpriseDown>},
    {"max-payload",
     [](const YamlValue& V, Draft& D) {
         const std::uint64_t Bytes = V.Number(128, 4096);
         if (!std::has_single_bit(Bytes)) {
             V.Refuse("a payload size is a power of two from 128 to 4096 bytes");
         }
         D.Function().MaxPayload = static_cast<unsigned>(std::countr_zero(Bytes)) - 7;
     }},
    {"serial-number", ReadNumberOfFunction<&Function::SerialNumber>},
    {"nvme-switch", [](const YamlValue& V,
                       Draft& D) { D.Function().NvmeSwitchMode = static_cast<unsigned>(V.OneOf(NvmeSwitchModes)); }},
    {"slot", [](const YamlValue& V, Draft& D) { ReadKeys<Slot>(V, SlotKeys, D.Function().Slot.emplace()); }},
    {"dpc", [](const YamlValue& V, Draft& D) { ReadKeys<Dpc>(V, DpcKeys, D.Function().Dpc.emplace()); }},
    {"cxl", [](const YamlValue& V, Draft& D) { D.Function().Cxl = ReadCxl(V); }},
    {"bars", [](const YamlValue& V, Draft& D) { ReadBars(V, D.Function()); }},
    {"capabilities", [](const YamlValue& V, Draft& D) { ReadCapabilities(V, D.Function()); }},
    {"registers", [](const YamlValue& V, Draft& D) { ReadRegisters(V, D.Function()); }},
    {"spare-buses", ReadNumberOfFunction<&Function::SpareBuses, 0, 255>},
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

std::string ReadDumpFile(const YamlValue& Value) {
    const std::filesystem::path File = std::filesystem::path(Value.Where().File).parent_path() / Value.Text();
    std::ifstream In(File);
    std::ostringstream Text;
    if (!In || !(Text << In.rdbuf())) {
        Value.Refuse("\"" + File.string() + "\" cannot be read");
    }
    return Text.str();
}

constexpr YamlKey<PciDumpSetting> DumpKeys[] = {
    {"file", [](const YamlValue& V, PciDumpSetting& D) { D.Text = ReadDumpFile(V); }, true},
    {"reporting", ReadBool<&PciDumpSetting::Reporting>},
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
    {"probe-logging", ReadWord<&PcieSettings::Probes, ProbeNames>},
    {"link-training", ReadDuration<&PcieSettings::LinkTraining>},
};

}  // namespace

unsigned ReadRegisterWidth(const YamlValue& Value) {
    const std::uint64_t Bits = Value.Number(8, 32);
    if (!std::has_single_bit(Bits)) {
        Value.Refuse("a configuration register is 8, 16 or 32 bits wide");
    }
    return static_cast<unsigned>(Bits / 8);
}

void RequireAligned(const YamlValue& Value, unsigned Offset, unsigned Width) {
    if (Offset % Width != 0) {
        Value.Refuse("a configuration register of more than 8 bits lies at a multiple of its width");
    }
}

void ReadPcie(const YamlValue& Value, Configuration& Into) {
    ReadKeys<PcieSettings>(Value, PcieKeys, Into.Pcie);
}

}  // namespace Simulator

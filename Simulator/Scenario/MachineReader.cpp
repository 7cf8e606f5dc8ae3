#include <fmt/format.h>

#include "Simulator/Firmware/PlatformData.h"
#include "Simulator/Firmware/ServiceMembers.h"
#include "Simulator/Scenario/MemoryReader.h"
#include "Simulator/Scenario/PcieReader.h"
#include "Simulator/Scenario/Readers.h"

namespace Simulator {

namespace {

constexpr unsigned MaxSockets = 2;
constexpr unsigned MaxProcessors = 512;

// A clock is its time, or a mapping that also says what is broken about it.
constexpr YamlKey<Configuration> ClockKeys[] = {
    {"time", [](const YamlValue& V, Configuration& C) { C.Clock = V.Text(); }},
    {"update-stuck", [](const YamlValue& V, Configuration& C) { C.ClockUpdateStuck = V.Bool(); }},
    {"battery-dead", [](const YamlValue& V, Configuration& C) { C.ClockBatteryDead = V.Bool(); }},
};

void ReadClock(const YamlValue& Value, Configuration& Into) {
    if (Value.IsMap()) {
        ReadKeys<Configuration>(Value, ClockKeys, Into);
    } else {
        Into.Clock = Value.Text();
    }
}

constexpr YamlKey<OemThresholdEntry> ThresholdKeys[] = {
    {"hardware-id",
     [](const YamlValue& V, OemThresholdEntry& E) { E.HardwareId = static_cast<std::uint16_t>(V.Number(0, 0xFFFF)); },
     true},
    {"type",
     [](const YamlValue& V, OemThresholdEntry& E) { E.McaType = static_cast<std::uint16_t>(V.Number(0, 0xFFFF)); },
     true},
    {"misc0",
     [](const YamlValue& V, OemThresholdEntry& E) { E.Misc0 = static_cast<std::uint16_t>(V.Number(0, 0xFFFF)); },
     true},
    {"misc1",
     [](const YamlValue& V, OemThresholdEntry& E) { E.Misc1 = static_cast<std::uint16_t>(V.Number(0, 0xFFFF)); }},
};

void ReadThresholdMap(const YamlValue& Value, Configuration& Into) {
    std::vector<OemThresholdEntry>& Entries = Into.OemThresholdMap.emplace();
    for (const YamlValue& Item : Value.List()) {
        ReadKeys<OemThresholdEntry>(Item, ThresholdKeys, Entries.emplace_back());
    }
}

template <unsigned Configuration::*Member, unsigned Lowest, unsigned Highest>
void ReadSize(const YamlValue& Value, Configuration& Into) {
    Into.*Member = static_cast<unsigned>(Value.Number(Lowest, Highest));
}

constexpr YamlKey<Configuration> MachineKeys[] = {
    {"sockets", ReadSize<&Configuration::Sockets, 1, MaxSockets>},
    {"cores", ReadSize<&Configuration::CoresPerSocket, 1, 128>},
    {"threads", ReadSize<&Configuration::ThreadsPerCore, 1, 2>},
    {"banks", ReadSize<&Configuration::BanksPerProcessor, 1, 64>},
    {"cpuid-signature",
     [](const YamlValue& V, Configuration& C) {
         C.CpuidSignature = static_cast<std::uint32_t>(V.Number(0, 0xFFFFFFFF));
     }},
    {"channels", ReadSize<&Configuration::ChannelsPerSocket, 1, 12>},
    {"dimms", ReadSize<&Configuration::DimmsPerChannel, 1, 2>},
    {"memory", ReadDram},
    {"oem-ras-instances", ReadSize<&Configuration::OemRasInstances, 0, 4>},
    {"root-complexes", ReadSize<&Configuration::RootComplexesPerSocket, 1, 8>},
    {"pci-segments", ReadSize<&Configuration::PciSegments, 1, 4>},
    {"pcie", ReadPcie},
    {"clock", ReadClock},
    {"apei",
     [](const YamlValue& V, Configuration& C) {
         const std::vector<std::string> Known = ApeiFieldNames();
         const std::vector<std::string_view> Names(Known.begin(), Known.end());
         for (const auto& [Name, Field] : V.Map()) {
             FindKey(Name, Names);
             C.Apei[Name.Text()] = Field.Number();
         }
     }},
    {"attributes",
     [](const YamlValue& V, Configuration& C) {
         for (const auto& [Name, Text] : V.Map()) {
             C.Attributes[Name.Text()] = Text.Text();
         }
     }},
    {"pcd",
     [](const YamlValue& V, Configuration& C) {
         for (const auto& [Token, Number] : V.Map()) {
             C.Pcd[Token.Number()] = Number.Number();
         }
     }},
    {"manufacturing-mode",
     [](const YamlValue& V, Configuration& C) {
         C.ManufacturingMode = static_cast<unsigned>(V.Number(0, 0xFFFFFFFF));
     }},
    {"apei-os", [](const YamlValue& V, Configuration& C) { C.ApeiOsLoaded = V.Bool(); }},
    {"apei-os-acknowledges", [](const YamlValue& V, Configuration& C) { C.ApeiOsAcknowledges = V.Bool(); }},
    {"oem-threshold-map", ReadThresholdMap},
    {"missing",
     [](const YamlValue& V, Configuration& C) {
         for (const YamlValue& Name : V.List()) {
             C.Missing.insert(Name.GuidName());
         }
     }},
    {"failing",
     [](const YamlValue& V, Configuration& C) {
         for (const auto& [Member, How] : V.Map()) {
             FindKey(Member, MemberNames());
             C.Failing[Member.Text()] = ReadFailure(How);
         }
     }},
    {"silent-processors",
     [](const YamlValue& V, Configuration& C) {
         for (const YamlValue& Number : V.List()) {
             C.SilentProcessors.insert(static_cast<unsigned>(Number.Number(0, MaxProcessors - 1)));
         }
     }},
    {"fail-allocation", [](const YamlValue& V, Configuration& C) { C.FailAllocation = V.Number(); }},
    {"trace-levels", [](const YamlValue& V, Configuration& C) { C.TraceLevels = V.Number(); }},
};

constexpr YamlKey<Failure> FailureKeys[] = {
    {"status", [](const YamlValue& V, Failure& F) { F.Status = V.Status(); }},
    {"times", [](const YamlValue& V, Failure& F) { F.Times = V.Number(); }},
    {"skip", [](const YamlValue& V, Failure& F) { F.Skip = V.Number(); }},
};

}  // namespace

Failure ReadFailure(const YamlValue& Value) {
    Failure Result;
    if (Value.IsMap()) {
        ReadKeys<Failure>(Value, FailureKeys, Result);
    } else {
        Result.Status = Value.Status();
    }
    return Result;
}

Configuration ReadMachine(const YamlValue& Value) {
    Configuration Result;
    ReadKeys<Configuration>(Value, MachineKeys, Result);
    return Result;
}

}  // namespace Simulator

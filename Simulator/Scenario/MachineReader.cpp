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
    {"time", ReadText<&Configuration::Clock>},
    {"update-stuck", ReadBool<&Configuration::ClockUpdateStuck>},
    {"battery-dead", ReadBool<&Configuration::ClockBatteryDead>},
};

void ReadClock(const YamlValue& Value, Configuration& Into) {
    if (Value.IsMap()) {
        ReadKeys<Configuration>(Value, ClockKeys, Into);
    } else {
        Into.Clock = Value.Text();
    }
}

constexpr YamlKey<OemThresholdEntry> ThresholdKeys[] = {
    {"hardware-id", ReadNumber<&OemThresholdEntry::HardwareId>, true},
    {"type", ReadNumber<&OemThresholdEntry::McaType>, true},
    {"misc0", ReadNumber<&OemThresholdEntry::Misc0>, true},
    {"misc1", ReadNumber<&OemThresholdEntry::Misc1>},
};

void ReadThresholdMap(const YamlValue& Value, Configuration& Into) {
    std::vector<OemThresholdEntry>& Entries = Into.OemThresholdMap.emplace();
    for (const YamlValue& Item : Value.List()) {
        ReadKeys<OemThresholdEntry>(Item, ThresholdKeys, Entries.emplace_back());
    }
}

constexpr YamlKey<Configuration> MachineKeys[] = {
    {"sockets", ReadNumber<&Configuration::Sockets, 1, MaxSockets>},
    {"cores", ReadNumber<&Configuration::CoresPerSocket, 1, 128>},
    {"threads", ReadNumber<&Configuration::ThreadsPerCore, 1, 2>},
    {"banks", ReadNumber<&Configuration::BanksPerProcessor, 1, 64>},
    {"cpuid-signature", ReadNumber<&Configuration::CpuidSignature>},
    {"channels", ReadNumber<&Configuration::ChannelsPerSocket, 1, 12>},
    {"dimms", ReadNumber<&Configuration::DimmsPerChannel, 1, 2>},
    {"memory", ReadDram},
    {"oem-ras-instances", ReadNumber<&Configuration::OemRasInstances, 0, 4>},
    {"root-complexes", ReadNumber<&Configuration::RootComplexesPerSocket, 1, 8>},
    {"pci-segments", ReadNumber<&Configuration::PciSegments, 1, 4>},
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
    {"manufacturing-mode", ReadNumber<&Configuration::ManufacturingMode>},
    {"apei-os", ReadBool<&Configuration::ApeiOsLoaded>},
    {"apei-os-acknowledges", ReadBool<&Configuration::ApeiOsAcknowledges>},
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
    {"fail-allocation", ReadNumber<&Configuration::FailAllocation>},
    {"trace-levels", ReadNumber<&Configuration::TraceLevels>},
};

// Who is told of success takes for given what a failing member did not fill in.
void ReadFailureStatus(const YamlValue& Value, Failure& Into) {
    ReadStatus<&Failure::Status>(Value, Into);
    if (!EFI_ERROR(Into.Status)) {
        Value.Refuse("a failure has an error for its status");
    }
}

constexpr YamlKey<Failure> FailureKeys[] = {
    {"status", ReadFailureStatus},
    {"times", ReadNumber<&Failure::Times>},
    {"skip", ReadNumber<&Failure::Skip>},
};

}  // namespace

Failure ReadFailure(const YamlValue& Value) {
    Failure Result;
    if (Value.IsMap()) {
        ReadKeys<Failure>(Value, FailureKeys, Result);
    } else {
        ReadFailureStatus(Value, Result);
    }
    return Result;
}

Configuration ReadMachine(const YamlValue& Value) {
    Configuration Result;
    ReadKeys<Configuration>(Value, MachineKeys, Result);
    return Result;
}

}  // namespace Simulator

// Steps about containment: what a DPC-aware OS and its ACPI code do, and what they share with the driver.
#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "Simulator/Firmware/DpcOperatingSystem.h"
#include "Simulator/Machine/PciDump.h"
#include "Simulator/Scenario/PcieReader.h"
#include "Simulator/Scenario/Readers.h"

namespace Simulator {

namespace {

using Outcome = std::optional<std::string>;

// os-dsm, os-ost

struct PortCall {
    std::string Port;
    EFI_STATUS SmiStatus = EFI_SUCCESS;
    std::uint8_t OstStatus = OST_SUCCESS;
    bool Known = true;
};

constexpr YamlKey<PortCall> DsmKeys[] = {
    {"port", ReadText<&PortCall::Port>, true},
    {"returns", ReadStatus<&PortCall::SmiStatus>},
};

constexpr YamlKey<PortCall> OstKeys[] = {
    {"port", ReadText<&PortCall::Port>, true},
    {"status", ReadNumber<&PortCall::OstStatus>},
    {"known", ReadBool<&PortCall::Known>},
};

// os-edr

constexpr std::string_view WhatIsCleared[] = {"nothing", "trigger", "everything"};

struct EdrDraft {
    DpcOperatingSystem::Clears Clears = DpcOperatingSystem::Clears::Everything;
    std::optional<std::vector<std::string>> Ports;
};

constexpr YamlKey<EdrDraft> EdrKeys[] = {
    {"clears", ReadWord<&EdrDraft::Clears, WhatIsCleared>},
    {"ports",
     [](const YamlValue& V, EdrDraft& D) {
         D.Ports.emplace();
         for (const YamlValue& Item : V.List()) {
             D.Ports->push_back(Item.Text());
         }
     }},
};

Outcome DoEdr(const EdrDraft& Draft, Simulation& Run) {
    const std::vector<PciAddress> Came = DpcOperatingSystem(Run).ServeInterrupt(Draft.Clears);
    if (!Draft.Ports) {
        return std::nullopt;
    }
    std::vector<std::string> Notified, Wanted;
    std::ranges::transform(Came, std::back_inserter(Notified), PciAddressText);
    std::ranges::transform(*Draft.Ports, std::back_inserter(Wanted),
                           [&](const std::string& Port) { return PciAddressText(PortAt(Run, Port).Where()); });
    return Notified == Wanted ? Outcome()
                              : fmt::format("the OS was notified of [{}], wanted [{}]", fmt::join(Notified, ", "),
                                            fmt::join(Wanted, ", "));
}

// dpc-buffer

struct BufferDraft {
    std::optional<std::size_t> Entry, Aware, Used;
    std::vector<std::uint8_t> Bytes;
};

constexpr YamlKey<BufferDraft> BufferKeys[] = {
    {"entry", ReadNumber<&BufferDraft::Entry, 0, DPC_TRIGGERED_ENTRIES - 1>},
    {"aware", ReadNumber<&BufferDraft::Aware, 0, DPC_AWARE_OS_ENTRIES - 1>},
    {"used", ReadNumber<&BufferDraft::Used, 0, DPC_TRIGGERED_ENTRIES>},
    {"bytes", ReadBytes<&BufferDraft::Bytes>},
};

template <class Record>
Outcome CompareBytes(const Record& Came, const std::vector<std::uint8_t>& Wanted) {
    if (Wanted.size() == sizeof(Record) && std::memcmp(&Came, Wanted.data(), sizeof(Record)) == 0) {
        return std::nullopt;
    }
    return fmt::format("it is {}, wanted {}", HexBytes(&Came, sizeof(Came)), HexBytes(Wanted.data(), Wanted.size()));
}

Outcome CompareBuffer(const BufferDraft& Draft, const RAS_ACPI_SMM_DATA& Area) {
    if (Draft.Entry) {
        return CompareBytes(Area.DPC_Triggered[*Draft.Entry], Draft.Bytes);
    }
    if (Draft.Aware) {
        return CompareBytes(Area.DpcAwareOs[*Draft.Aware], Draft.Bytes);
    }
    const auto Used = static_cast<std::size_t>(
        std::ranges::count_if(Area.DPC_Triggered, [](const DPC_TRIGGER_ENTRY& One) { return One.Flag != 0; }));
    return Used == *Draft.Used ? Outcome() : fmt::format("{} entries are in use, wanted {}", Used, *Draft.Used);
}

}  // namespace

void ReadOsDsm(const YamlValue& Value, const Configuration&, Step& Into) {
    PortCall Call;
    ReadKeys<PortCall>(Value, DsmKeys, Call);
    Into.Summary = "for " + Call.Port;
    Into.Do = [Call](Simulation& Run) {
        return CompareStatus(Call.SmiStatus, DpcOperatingSystem(Run).RequestPort(PortAt(Run, Call.Port).Where()));
    };
}

void ReadOsEdr(const YamlValue& Value, const Configuration&, Step& Into) {
    EdrDraft Draft;
    ReadKeys<EdrDraft>(Value, EdrKeys, Draft);
    Into.Summary = fmt::format("clears {}", WhatIsCleared[static_cast<std::size_t>(Draft.Clears)]);
    Into.Do = [Draft](Simulation& Run) { return DoEdr(Draft, Run); };
}

void ReadOsOst(const YamlValue& Value, const Configuration&, Step& Into) {
    PortCall Call;
    ReadKeys<PortCall>(Value, OstKeys, Call);
    Into.Summary = fmt::format("{}: 0x{:02X}", Call.Port, Call.OstStatus);
    Into.Do = [Call](Simulation& Run) {
        const bool Known = DpcOperatingSystem(Run).ReportOutcome(PortAt(Run, Call.Port).Where(), Call.OstStatus);
        return Known == Call.Known
                   ? Outcome()
                   : Outcome(Known ? "the port is in the buffer" : "the buffer does not hold the port");
    };
}

void ReadDpcBuffer(const YamlValue& Value, const Configuration&, Step& Into) {
    BufferDraft Draft;
    ReadKeys<BufferDraft>(Value, BufferKeys, Draft);
    if (Draft.Entry.has_value() + Draft.Aware.has_value() + Draft.Used.has_value() != 1) {
        Value.Refuse("one of \"entry\", \"aware\" and \"used\" is wanted");
    }
    if (Draft.Bytes.empty() != Draft.Used.has_value()) {
        Value.Refuse(Draft.Used ? "\"used\" has no bytes" : "\"bytes\" are wanted");
    }
    Into.Summary = Draft.Used ? fmt::format("{} entries in use", *Draft.Used)
                              : fmt::format("{} {}", Draft.Entry ? "entry" : "aware",
                                            *(Draft.Entry ? Draft.Entry : Draft.Aware));
    Into.Do = [Draft](Simulation& Run) { return CompareBuffer(Draft, DpcOperatingSystem(Run).Shared()); };
}

}  // namespace Simulator

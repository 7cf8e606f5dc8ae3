#include <fmt/format.h>

#include "Simulator/Decode/Sections.h"
#include "Simulator/Firmware/Names.h"
#include "Simulator/Firmware/ServiceMembers.h"
#include "Simulator/Scenario/CxlReader.h"
#include "Simulator/Scenario/MemoryReader.h"
#include "Simulator/Scenario/PcieReader.h"
#include "Simulator/Scenario/Readers.h"

namespace Simulator {

namespace {

unsigned ProcessorCount(const Configuration& Machine) {
    return Machine.Sockets * Machine.CoresPerSocket * Machine.ThreadsPerCore;
}

// The machine's parts have bounds; a key's reader finds them beside what it fills.
struct StepDraft {
    const Configuration& Machine;
    MachineCheck Error{};
    std::vector<unsigned> Processors{};
    std::uint32_t Msr = 0;
    std::optional<std::uint64_t> Value{};
    Simulation::CommunicationCall Call{};
    std::uint16_t Count = 0;
    std::vector<std::uint8_t> Codes{};
    std::optional<EFI_STATUS> Status{};
    std::uint64_t Times = 0;
    std::vector<Step> Steps{};
};

using StepKey = YamlKey<StepDraft>;

StepDraft ReadDraft(const YamlValue& Value, std::span<const StepKey> Keys, const Configuration& Machine) {
    StepDraft Draft{.Machine = Machine};
    ReadKeys<StepDraft>(Value, Keys, Draft);
    return Draft;
}

unsigned ReadProcessor(const YamlValue& Value, const Configuration& Machine) {
    return static_cast<unsigned>(Value.Number(0, ProcessorCount(Machine) - 1));
}

// A number, or a list of numbers: the same happens to each of them, in that order.
void ReadProcessors(const YamlValue& Value, StepDraft& Into) {
    for (const YamlValue& Item : Value.OneOrMore()) {
        Into.Processors.push_back(ReadProcessor(Item, Into.Machine));
    }
}

void ReadOneProcessor(const YamlValue& Value, StepDraft& Into) {
    Into.Processors = {ReadProcessor(Value, Into.Machine)};
}

// machine-check

template <auto Register>
void ReadRegister(const YamlValue& Value, StepDraft& Into) {
    ReadNumber<Register>(Value, Into.Error);
}

constexpr StepKey MachineCheckKeys[] = {
    {"processor", ReadProcessors, true},
    {"bank",
     [](const YamlValue& V, StepDraft& D) {
         D.Error.Bank = static_cast<unsigned>(V.Number(0, D.Machine.BanksPerProcessor - 1));
     },
     true},
    {"status", ReadRegister<&MachineCheck::Status>, true},
    {"addr", ReadRegister<&MachineCheck::Addr>},
    {"misc0", ReadRegister<&MachineCheck::Misc0>},
    {"misc1", ReadRegister<&MachineCheck::Misc1>},
    {"config", ReadRegister<&MachineCheck::Config>},
    {"ipid", ReadRegister<&MachineCheck::Ipid>},
    {"synd", ReadRegister<&MachineCheck::Synd>},
    {"synd1", ReadRegister<&MachineCheck::Synd1>},
    {"synd2", ReadRegister<&MachineCheck::Synd2>},
    {"destat", ReadRegister<&MachineCheck::DeStat>},
    {"deaddr", ReadRegister<&MachineCheck::DeAddr>},
    {"ip", ReadRegister<&MachineCheck::Ip>},
    {"fru-text", [](const YamlValue& V, StepDraft& D) { ReadText<&MachineCheck::FruText>(V, D.Error); }},
};

std::string ProcessorText(const std::vector<unsigned>& Processors) {
    return Processors.size() == 1 ? fmt::format("processor {}", Processors.front())
                                  : fmt::format("{} processors", Processors.size());
}

void ReadMachineCheck(const YamlValue& Value, const Configuration& Machine, Step& Into) {
    const StepDraft Draft = ReadDraft(Value, MachineCheckKeys, Machine);
    Into.Summary = fmt::format("{} bank {}: {}", ProcessorText(Draft.Processors), Draft.Error.Bank,
                               DescribeMcaStatus(Draft.Error.Status));
    Into.Do = [Error = Draft.Error, Processors = Draft.Processors](Simulation& Run) mutable {
        for (const unsigned Processor : Processors) {
            Error.Processor = Processor;
            Run.InjectMachineCheck(Error);
        }
        return std::optional<std::string>();
    };
}

// smi, wait

struct SmiDraft {
    std::string Kind;
    std::optional<bool> Pending;
    bool Spurious = false;
};

constexpr YamlKey<SmiDraft> SmiKeys[] = {
    {"kind", ReadText<&SmiDraft::Kind>, true},
    {"pending", ReadBool<&SmiDraft::Pending>},
    {"spurious", ReadBool<&SmiDraft::Spurious>},
};

// Root complexes ask for their SMI themselves: without one that does there is none.
std::optional<std::string> DoSmi(const SmiDraft& Draft, Simulation& Run) {
    const bool AsksItself = Draft.Kind == "root-complex";
    const bool IsPending = !AsksItself || Run.IsRootComplexSmiPending();
    if (IsPending || Draft.Spurious) {
        Run.RaiseSmi(Draft.Kind);
    }
    return Draft.Pending && *Draft.Pending != IsPending
               ? std::optional<std::string>(IsPending ? "a source is pending" : "no source is pending")
               : std::nullopt;
}

void ReadSmi(const YamlValue& Value, const Configuration&, Step& Into) {
    SmiDraft Draft;
    if (Value.IsMap()) {
        ReadKeys<SmiDraft>(Value, SmiKeys, Draft);
    } else {
        Draft.Kind = Value.Text();
    }
    Into.Summary = Draft.Kind;
    Into.Do = [Draft](Simulation& Run) { return DoSmi(Draft, Run); };
}

void ReadWait(const YamlValue& Value, const Configuration&, Step& Into) {
    Into.Summary = Value.Text();
    Into.Do = [Microseconds = Value.Duration()](Simulation& Run) {
        Run.Wait(Microseconds);
        return std::optional<std::string>();
    };
}

// os-read-msr, os-write-msr

constexpr StepKey OsReadMsrKeys[] = {{"processor", ReadOneProcessor, true},
                                     {"msr", ReadNumber<&StepDraft::Msr>, true},
                                     {"value", ReadNumber<&StepDraft::Value>}};
constexpr StepKey OsWriteMsrKeys[] = {{"processor", ReadOneProcessor, true},
                                      {"msr", ReadNumber<&StepDraft::Msr>, true},
                                      {"value", ReadNumber<&StepDraft::Value>, true}};

void ReadOsReadMsr(const YamlValue& Value, const Configuration& Machine, Step& Into) {
    const StepDraft Draft = ReadDraft(Value, OsReadMsrKeys, Machine);
    Into.Summary = fmt::format("processor {} MSR 0x{:08X}", Draft.Processors.front(), Draft.Msr);
    Into.Do = [Processor = Draft.Processors.front(), Msr = Draft.Msr, Wanted = Draft.Value](Simulation& Run) {
        const std::uint64_t Came = Run.OsReadMsr(Processor, Msr);
        return Wanted && *Wanted != Came
                   ? std::optional(fmt::format("the OS reads {}, wanted {}", Hex(Came), Hex(*Wanted)))
                   : std::nullopt;
    };
}

void ReadOsWriteMsr(const YamlValue& Value, const Configuration& Machine, Step& Into) {
    const StepDraft Draft = ReadDraft(Value, OsWriteMsrKeys, Machine);
    Into.Summary =
        fmt::format("processor {} MSR 0x{:08X} := {}", Draft.Processors.front(), Draft.Msr, Hex(*Draft.Value));
    Into.Do = [Processor = Draft.Processors.front(), Msr = Draft.Msr, Written = *Draft.Value](Simulation& Run) {
        Run.OsWriteMsr(Processor, Msr, Written);
        return std::optional<std::string>();
    };
}

// comm, post-errors

constexpr std::string_view Places[] = {"region", "outside", "smram", "straddling", "null"};

constexpr StepKey CommKeys[] = {
    {"handler", [](const YamlValue& V, StepDraft& D) { D.Call.Handler = V.GuidName(); }, true},
    {"data", [](const YamlValue& V, StepDraft& D) { D.Call.Data = V.Bytes(); }},
    {"place",
     [](const YamlValue& V, StepDraft& D) {
         D.Call.Where = static_cast<Simulation::CommunicationCall::Place>(V.OneOf(Places));
     }},
    {"size", [](const YamlValue& V, StepDraft& D) { D.Call.Size = V.Number(); }},
    {"null-size", [](const YamlValue& V, StepDraft& D) { D.Call.NullSize = V.Bool(); }},
    {"status", ReadStatus<&StepDraft::Status>},
};

void ReadComm(const YamlValue& Value, const Configuration& Machine, Step& Into) {
    const StepDraft Draft = ReadDraft(Value, CommKeys, Machine);
    Into.Summary = fmt::format("{} with {} bytes", Draft.Call.Handler, Draft.Call.Data.size());
    Into.Do = [Call = Draft.Call, Wanted = Draft.Status](Simulation& Run) {
        return CompareStatus(Wanted, Run.CallCommunicationHandler(Call));
    };
}

constexpr StepKey PostErrorsKeys[] = {
    {"count", ReadNumber<&StepDraft::Count>, true},
    {"codes", ReadBytes<&StepDraft::Codes>},
    {"status", ReadStatus<&StepDraft::Status>},
};

void ReadPostErrors(const YamlValue& Value, const Configuration& Machine, Step& Into) {
    const StepDraft Draft = ReadDraft(Value, PostErrorsKeys, Machine);
    Into.Summary = fmt::format("{} waiting", Draft.Count);
    Into.Do = [Count = Draft.Count, Codes = Draft.Codes, Wanted = Draft.Status](Simulation& Run) {
        return CompareStatus(Wanted, Run.HandOverPostErrors(Count, Codes));
    };
}

// failing: {Member: EFI_DEVICE_ERROR} or {Member: {status, times, skip}} or {Member: never}

void ReadFailing(const YamlValue& Value, const Configuration&, Step& Into) {
    std::vector<std::pair<std::string, std::optional<Failure>>> Members;
    for (const auto& [Member, How] : Value.Map()) {
        FindKey(Member, MemberNames());
        const bool Stops = How.IsScalar() && How.Text() == "never";
        Members.emplace_back(Member.Text(), Stops ? std::nullopt : std::optional(ReadFailure(How)));
        Into.Summary += (Into.Summary.empty() ? "" : ", ") + Member.Text() + (Stops ? " no longer" : "");
    }
    Into.Do = [Members](Simulation& Run) {
        for (const auto& [Member, How] : Members) {
            Run.SetFailure(Member, How);
        }
        return std::optional<std::string>();
    };
}

// silent: the processors that do not answer from now on

void ReadSilent(const YamlValue& Value, const Configuration& Machine, Step& Into) {
    std::set<unsigned> Processors;
    for (const YamlValue& Item : Value.List()) {
        Processors.insert(ReadProcessor(Item, Machine));
    }
    Into.Summary = fmt::format("{} processors", Processors.size());
    Into.Do = [Processors](Simulation& Run) {
        Run.SetSilentProcessors(Processors);
        return std::optional<std::string>();
    };
}

// reboot: off and on again

void ReadReboot(const YamlValue& Value, const Configuration&, Step& Into) {
    if (!Value.IsEmpty()) {
        Value.Refuse("reboot takes nothing: the machine starts as \"machine\" says");
    }
    Into.Summary = "off and on again";
    Into.Do = [](Simulation& Run) { return CompareStatus(EFI_SUCCESS, Run.Reboot()); };
}

// repeat: the same steps again and again; all of them carry this step's index

constexpr StepKey RepeatKeys[] = {
    {"times", ReadNumber<&StepDraft::Times, 1, 100'000>, true},
    {"steps", [](const YamlValue& V, StepDraft& D) { D.Steps = ReadSteps(V, D.Machine); }, true},
};

void ReadRepeat(const YamlValue& Value, const Configuration& Machine, Step& Into) {
    const StepDraft Draft = ReadDraft(Value, RepeatKeys, Machine);
    Into.Summary = fmt::format("{} times", Draft.Times);
    for (const Step& Inner : Draft.Steps) {
        Into.Summary +=
            fmt::format("{} {} ({})", &Inner == &Draft.Steps.front() ? "" : ",", Inner.Kind, Inner.Summary);
    }
    Into.Do = [Times = Draft.Times, Steps = Draft.Steps](Simulation& Run) {
        for (std::uint64_t Round = 0; Round < Times; ++Round) {
            for (const Step& Inner : Steps) {
                if (const std::optional<std::string> Came = Inner.Do(Run, Round)) {
                    return std::optional(fmt::format("round {}, {}: {}", Round + 1, Inner.Kind, *Came));
                }
            }
        }
        return std::optional<std::string>();
    };
}

struct StepKind {
    std::string_view Name;
    void (*Read)(const YamlValue& Value, const Configuration& Machine, Step& Into);
};
constexpr StepKind StepKinds[] = {
    {"machine-check", ReadMachineCheck},
    {"memory-error", ReadMemoryError},
    {"pin-translation", ReadPinTranslation},
    {"smbios", ReadSmbios},
    {"psp-finish", ReadPspFinish},
    {"reboot", ReadReboot},
    {"cxl-error", ReadCxlError},
    {"cxl-event", ReadCxlEvent},
    {"cxl-mailbox", ReadCxlMailbox},
    {"cxl-configure", ReadCxlConfigure},
    {"cxl-osc", ReadCxlOsc},
    {"pcie-error", ReadPcieError},
    {"pcie-config", ReadPcieConfig},
    {"pcie-slot", ReadPcieSlot},
    {"pcie-link", ReadPcieLink},
    {"pcie-death", ReadPcieDeath},
    {"os-dsm", ReadOsDsm},
    {"os-edr", ReadOsEdr},
    {"os-ost", ReadOsOst},
    {"dpc-buffer", ReadDpcBuffer},
    {"smn", ReadSmn},
    {"smi", ReadSmi},
    {"wait", ReadWait},
    {"os-read-msr", ReadOsReadMsr},
    {"os-write-msr", ReadOsWriteMsr},
    {"comm", ReadComm},
    {"post-errors", ReadPostErrors},
    {"failing", ReadFailing},
    {"silent", ReadSilent},
    {"repeat", ReadRepeat},
};

}  // namespace

std::optional<std::string> CompareStatus(const std::optional<EFI_STATUS>& Wanted, EFI_STATUS Came) {
    if (Wanted && *Wanted != Came) {
        return fmt::format("it returned {}, wanted {}", StatusName(Came), StatusName(*Wanted));
    }
    return std::nullopt;
}

std::vector<Step> ReadSteps(const YamlValue& List, const Configuration& Machine) {
    std::vector<std::string_view> Names;
    for (const StepKind& Kind : StepKinds) {
        Names.push_back(Kind.Name);
    }
    std::vector<Step> Steps;
    for (const YamlValue& Item : List.List()) {
        const auto [Key, Value] = Item.Single("smi: machine-check");
        const StepKind& Kind = StepKinds[FindKey(Key, Names)];
        Step& Into = Steps.emplace_back();
        Into.Kind = Kind.Name;
        Into.Where = Key.Where();
        Kind.Read(Value, Machine, Into);
    }
    return Steps;
}

}  // namespace Simulator

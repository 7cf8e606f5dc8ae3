// What scenarios say of CXL: the CXL side of functions, and the steps that concern it.
#include "Simulator/Scenario/CxlReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "Simulator/Machine/CxlFabric.h"
#include "Simulator/Machine/Machine.h"
#include "Simulator/Scenario/PcieReader.h"

namespace Simulator {

namespace {

// ---- The machine

constexpr YamlKey<CxlLocatorEntry> LocatorKeys[] = {
    {"bar", ReadNumber<&CxlLocatorEntry::Bar, 0, 7>, true},
    {"block", ReadNumber<&CxlLocatorEntry::Block, 0, 0xFF>, true},
    {"offset", ReadNumber<&CxlLocatorEntry::Offset>},
};

constexpr YamlKey<CxlRegisterPatch> PatchKeys[] = {
    {"offset",
     [](const YamlValue& V, CxlRegisterPatch& P) {
         P.Offset = V.Number();
         if (P.Offset % sizeof(std::uint32_t) != 0) {
             V.Refuse("registers are doublewords; the offset is a multiple of 4");
         }
     },
     true},
    {"value", ReadNumber<&CxlRegisterPatch::Value>, true},
};

template <std::vector<CxlRegisterPatch> CxlSetting::*Member>
void ReadPatches(const YamlValue& Value, CxlSetting& Into) {
    for (const YamlValue& Item : Value.List()) {
        ReadKeys<CxlRegisterPatch>(Item, PatchKeys, (Into.*Member).emplace_back());
    }
}

constexpr std::uint64_t LEAST_PAYLOAD = 256, LARGEST_PAYLOAD = 1 << 20;

constexpr std::string_view InterruptModes[] = {"none", "os", "firmware"};

constexpr YamlKey<CxlSetting> CxlKeys[] = {
    {"memory-device", ReadBool<&CxlSetting::IsMemoryDevice>},
    {"restricted", ReadBool<&CxlSetting::IsRestricted>},
    {"ras", ReadBool<&CxlSetting::HasRas>},
    {"secondary-mailbox", ReadBool<&CxlSetting::HasSecondaryMailbox>},
    {"payload",
     [](const YamlValue& V, CxlSetting& S) {
         const std::uint64_t Bytes = V.Number(LEAST_PAYLOAD, LARGEST_PAYLOAD);
         if (!std::has_single_bit(Bytes)) {
             V.Refuse("a mailbox's payload is a power of two of bytes, 256 to 1048576");
         }
         S.PayloadExponent = static_cast<unsigned>(std::countr_zero(Bytes));
     }},
    {"command-time", ReadDuration<&CxlSetting::CommandTime>},
    {"background-time", ReadDuration<&CxlSetting::BackgroundTime>},
    {"event-log-capacity", ReadNumber<&CxlSetting::EventLogCapacity, 1, 0xFFFF>},
    {"event-interrupts", ReadWord<&CxlSetting::EventInterrupts, InterruptModes>},
    {"locator-length", ReadNumber<&CxlSetting::LocatorLength, 0, 0xFFF>},
    {"locator",
     [](const YamlValue& V, CxlSetting& S) {
         S.Locator.emplace();
         for (const YamlValue& Item : V.List()) {
             ReadKeys<CxlLocatorEntry>(Item, LocatorKeys, S.Locator->emplace_back());
         }
     }},
    {"component-registers", ReadPatches<&CxlSetting::ComponentPatches>},
    {"device-registers", ReadPatches<&CxlSetting::DevicePatches>},
};

// ---- Steps

CxlFabric::Side& SideOf(Simulation& Run, const std::string& Where) {
    PcieFunction& Function = FunctionAt(Run, Where);
    CxlFabric::Side* Found = Run.Machine().Cxl().Find(Function);
    if (Found == nullptr) {
        throw std::invalid_argument(fmt::format("{} runs no CXL", Where));
    }
    return *Found;
}

// cxl-error

struct ErrorDraft {
    std::string Function;
    std::optional<CxlErrorName> Error;
    CxlRasCapability::HeaderLog Header{};
    std::uint64_t Count = 1;
};

template <bool IsCorrectable>
void ReadErrorName(const YamlValue& Value, ErrorDraft& Into) {
    std::vector<CxlErrorName> Known;
    std::ranges::copy_if(CxlErrorNames(), std::back_inserter(Known),
                         [](const CxlErrorName& One) { return One.IsCorrectable == IsCorrectable; });
    std::vector<std::string_view> Words;
    std::ranges::transform(Known, std::back_inserter(Words), &CxlErrorName::Name);
    if (Into.Error) {
        Value.Refuse("an error is either correctable or uncorrectable");
    }
    Into.Error = Known[Value.OneOf(Words)];
}

constexpr YamlKey<ErrorDraft> ErrorKeys[] = {
    {"at", ReadText<&ErrorDraft::Function>, true},
    {"uncorrectable", ReadErrorName<false>},
    {"correctable", ReadErrorName<true>},
    {"header",
     [](const YamlValue& V, ErrorDraft& D) {
         const std::vector<YamlValue> Words = V.List();
         if (Words.size() > D.Header.size()) {
             V.Refuse(fmt::format("the header log has {} doublewords", D.Header.size()));
         }
         for (std::size_t Index = 0; Index < Words.size(); Index++) {
             D.Header[Index] = static_cast<std::uint32_t>(Words[Index].Number(0, UINT32_MAX));
         }
     }},
    {"count", ReadNumber<&ErrorDraft::Count, 1, 1'000'000>},
};

// cxl-event

CXL_EVENT_RECORD EmptyRecord() {
    CXL_EVENT_RECORD Record{};
    Record.Uuid = CxlEventKinds().front().Uuid;
    Record.Length = sizeof(Record);
    return Record;
}

struct EventDraft {
    std::string Function;
    CXL_EVENT_RECORD Record = EmptyRecord();
    std::string_view Kind = CxlEventKinds().front().Name;
    std::uint64_t Count = 1;
};

constexpr std::string_view Severities[] = {"informational", "warning", "failure", "fatal"};

constexpr UINT8 EVENT_FLAGS = 0x3C;  // beside the severity

constexpr YamlKey<EventDraft> EventKeys[] = {
    {"at", ReadText<&EventDraft::Function>, true},
    {"severity",
     [](const YamlValue& V, EventDraft& D) { D.Record.Flags[0] |= static_cast<UINT8>(V.OneOf(Severities)); }, true},
    {"kind",
     [](const YamlValue& V, EventDraft& D) {
         std::vector<std::string_view> Words;
         std::ranges::transform(CxlEventKinds(), std::back_inserter(Words), &CxlEventKind::Name);
         const CxlEventKind& Kind = CxlEventKinds()[V.OneOf(Words)];
         D.Record.Uuid = Kind.Uuid;
         D.Kind = Kind.Name;
     }},
    {"uuid",
     [](const YamlValue& V, EventDraft& D) {
         const std::vector<std::uint8_t> Bytes = V.Bytes();
         if (Bytes.size() != sizeof(EFI_GUID)) {
             V.Refuse("a UUID is sixteen bytes, in the order in which the record holds them");
         }
         std::memcpy(&D.Record.Uuid, Bytes.data(), Bytes.size());
         D.Kind = "unknown";
     }},
    {"flags",
     [](const YamlValue& V, EventDraft& D) {
         const auto Flags = static_cast<UINT8>(V.Number(0, EVENT_FLAGS));
         if ((Flags & ~EVENT_FLAGS) != 0) {
             V.Refuse("the lowest two bits are the severity's");
         }
         D.Record.Flags[0] |= Flags;
     }},
    {"data",
     [](const YamlValue& V, EventDraft& D) {
         const std::vector<std::uint8_t> Bytes = V.Bytes();
         if (Bytes.size() > sizeof(D.Record.Data)) {
             V.Refuse(fmt::format("an event record has {} bytes of data", sizeof(D.Record.Data)));
         }
         std::memcpy(D.Record.Data, Bytes.data(), Bytes.size());
     }},
    {"count", ReadNumber<&EventDraft::Count, 1, 0xFFFF>},
};

// cxl-mailbox

struct RefusalDraft {
    std::uint16_t Opcode = 0;
    CxlMailbox::Refusal How;
};

constexpr YamlKey<RefusalDraft> RefusalKeys[] = {
    {"opcode", ReadNumber<&RefusalDraft::Opcode>, true},
    {"code",
     [](const YamlValue& V, RefusalDraft& D) { D.How.ReturnCode = static_cast<UINT16>(V.Number(0, 0xFFFF)); }},
    {"output", [](const YamlValue& V, RefusalDraft& D) { D.How.Output = V.Bytes(); }},
    {"told-length",
     [](const YamlValue& V, RefusalDraft& D) { D.How.ToldLength = static_cast<UINT32>(V.Number(0, 0x1FFFFF)); }},
    {"times", [](const YamlValue& V, RefusalDraft& D) { D.How.Times = V.Number(1); }},
    {"skip", [](const YamlValue& V, RefusalDraft& D) { D.How.Skip = V.Number(); }},
};

struct MailboxDraft {
    std::string Function;
    bool IsPrimary = false;
    std::uint64_t Occupied = 0;
    bool Hangs = false;
    std::optional<std::uint16_t> Dies;
    std::vector<RefusalDraft> Refusals;
};

constexpr std::string_view Mailboxes[] = {"secondary", "primary"};

constexpr YamlKey<MailboxDraft> MailboxKeys[] = {
    {"at", ReadText<&MailboxDraft::Function>, true},
    {"mailbox", [](const YamlValue& V, MailboxDraft& D) { D.IsPrimary = V.OneOf(Mailboxes) == 1; }},
    {"occupied", ReadDuration<&MailboxDraft::Occupied>},
    {"hangs", ReadBool<&MailboxDraft::Hangs>},
    {"dies", ReadNumber<&MailboxDraft::Dies>},
    {"refuse",
     [](const YamlValue& V, MailboxDraft& D) {
         for (const YamlValue& Item : V.List()) {
             ReadKeys<RefusalDraft>(Item, RefusalKeys, D.Refusals.emplace_back());
         }
     }},
};

// cxl-configure

struct ConfigureDraft {
    std::string Function;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> Writes;  // RAS register, value
};

template <std::uint32_t Register>
void ReadRasRegister(const YamlValue& Value, ConfigureDraft& Into) {
    Into.Writes.emplace_back(Register, static_cast<std::uint32_t>(Value.Number(0, UINT32_MAX)));
}

constexpr YamlKey<ConfigureDraft> ConfigureKeys[] = {
    {"at", ReadText<&ConfigureDraft::Function>, true},
    {"uncorrectable-mask", ReadRasRegister<CXL_RAS_UNCORRECTABLE_MASK>},
    {"uncorrectable-severity", ReadRasRegister<CXL_RAS_UNCORRECTABLE_SEVERITY>},
    {"correctable-mask", ReadRasRegister<CXL_RAS_CORRECTABLE_MASK>},
};

// cxl-osc

struct OscDraft {
    std::uint32_t Support = 0;
    std::uint32_t Control = 0;
    std::optional<std::uint32_t> Granted;
};

constexpr YamlKey<OscDraft> OscKeys[] = {
    {"support", ReadNumber<&OscDraft::Support>, true},
    {"control", ReadNumber<&OscDraft::Control>, true},
    {"granted", ReadNumber<&OscDraft::Granted>},
};

const std::optional<std::string> NOTHING;

}  // namespace

CxlSetting ReadCxl(const YamlValue& Value) {
    CxlSetting Setting;
    ReadKeys<CxlSetting>(Value, CxlKeys, Setting);
    return Setting;
}

void ReadCxlError(const YamlValue& Value, const Configuration&, Step& Into) {
    ErrorDraft Draft;
    ReadKeys<ErrorDraft>(Value, ErrorKeys, Draft);
    if (!Draft.Error) {
        Value.Refuse("an error is uncorrectable: or correctable:");
    }
    Into.Summary = fmt::format("{} {}: {}", Draft.Function,
                               Draft.Error->IsCorrectable ? "correctable" : "uncorrectable", Draft.Error->Name);
    Into.Do = [Draft](Simulation& Run) {
        for (std::uint64_t Round = 0; Round < Draft.Count; Round++) {
            Run.Machine().Cxl().Inject(FunctionAt(Run, Draft.Function),
                                       {Draft.Error->IsCorrectable, Draft.Error->Bit, Draft.Header});
        }
        return NOTHING;
    };
}

void ReadCxlEvent(const YamlValue& Value, const Configuration&, Step& Into) {
    EventDraft Draft;
    ReadKeys<EventDraft>(Value, EventKeys, Draft);
    Into.Summary = fmt::format("{} {}: {} {}", Draft.Function, Draft.Count,
                               Severities[CxlEventFlags::Severity::Get(Draft.Record.Flags[0])], Draft.Kind);
    Into.Do = [Draft](Simulation& Run) {
        for (std::uint64_t Round = 0; Round < Draft.Count; Round++) {
            Run.Machine().Cxl().AddEvent(FunctionAt(Run, Draft.Function), Draft.Record);
        }
        return NOTHING;
    };
}

void ReadCxlMailbox(const YamlValue& Value, const Configuration&, Step& Into) {
    MailboxDraft Draft;
    ReadKeys<MailboxDraft>(Value, MailboxKeys, Draft);
    Into.Summary = fmt::format("{} {} mailbox", Draft.Function, Mailboxes[Draft.IsPrimary ? 1 : 0]);
    Into.Do = [Draft](Simulation& Run) {
        CxlMemoryDevice* Device = SideOf(Run, Draft.Function).Device.get();
        CxlMailbox* Mailbox =
            Device == nullptr ? nullptr : (Draft.IsPrimary ? &Device->Primary() : Device->Secondary());
        if (Mailbox == nullptr) {
            throw std::invalid_argument(fmt::format("{} has no such mailbox", Draft.Function));
        }
        if (Draft.Occupied != 0) {
            Mailbox->Occupy(Run.Now() + Draft.Occupied);
        }
        if (Draft.Hangs) {
            Mailbox->Hang();
        }
        if (Draft.Dies) {
            Mailbox->WhenSent(*Draft.Dies, [&Function = FunctionAt(Run, Draft.Function)] { Function.DieAfter(0); });
        }
        for (const RefusalDraft& One : Draft.Refusals) {
            Mailbox->Refuse(One.Opcode, One.How);
        }
        return NOTHING;
    };
}

void ReadCxlConfigure(const YamlValue& Value, const Configuration&, Step& Into) {
    ConfigureDraft Draft;
    ReadKeys<ConfigureDraft>(Value, ConfigureKeys, Draft);
    Into.Summary = Draft.Function;
    Into.Do = [Draft](Simulation& Run) {
        CxlFabric::Side& Side = SideOf(Run, Draft.Function);
        if (!Side.Component.HasRas) {
            throw std::invalid_argument(fmt::format("{} has no RAS capability", Draft.Function));
        }
        for (const auto& [Register, Written] : Draft.Writes) {
            Side.Component.Ras.Write(Register, Written);
        }
        return NOTHING;
    };
}

void ReadCxlOsc(const YamlValue& Value, const Configuration&, Step& Into) {
    OscDraft Draft;
    ReadKeys<OscDraft>(Value, OscKeys, Draft);
    Into.Summary = fmt::format("support 0x{:02x} control 0x{:02x}", Draft.Support, Draft.Control);
    Into.Do = [Draft](Simulation& Run) {
        const std::uint32_t Granted = Run.EvaluateCxlOsc(Draft.Support, Draft.Control);
        return Draft.Granted.value_or(Granted) == Granted
                   ? std::nullopt
                   : std::optional(fmt::format("0x{:x} was granted, wanted 0x{:x}", Granted, *Draft.Granted));
    };
}

}  // namespace Simulator

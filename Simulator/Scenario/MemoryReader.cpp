// What scenarios say of memory: DIMM slots of the machine, and the steps that concern DRAM and its repair.
#include "Simulator/Scenario/MemoryReader.h"

#include <fmt/format.h>

#include <algorithm>

#include "Include/SmbiosMemoryData.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/Names.h"
#include "Simulator/Scenario/Readers.h"

namespace Simulator {

namespace {

using Slot = DimmSlotSetting;

constexpr YamlKey<Slot> SlotKeys[] = {
    {"socket", ReadNumber<&Slot::Socket>, true}, {"channel", ReadNumber<&Slot::Channel>, true},
    {"dimm", ReadNumber<&Slot::Dimm>, true},     {"populated", ReadBool<&Slot::Populated>},
    {"enabled", ReadBool<&Slot::Enabled>},       {"threshold", ReadNumber<&Slot::Threshold>},
    {"ranks", ReadNumber<&Slot::Ranks>},         {"row-bits", ReadNumber<&Slot::RowBits>},
    {"label", ReadText<&Slot::Label>},
};

using Dram = DramSettings;

constexpr YamlKey<Dram> DramKeys[] = {
    {"dimm-threshold", ReadNumber<&Dram::DimmThreshold>},
    {"ranks", ReadNumber<&Dram::RanksPerDimm>},
    {"row-bits", ReadNumber<&Dram::RowBits>},
    {"rank-multiplier-bits", ReadNumber<&Dram::RankMulBits>},
    {"device-width", ReadNumber<&Dram::DeviceWidth>},
    {"patrol-scrubber", ReadBool<&Dram::PatrolScrubber>},
    {"scrub-rate", ReadNumber<&Dram::ScrubRate, 0, 1'000'000>},
    {"slots",
     [](const YamlValue& V, Dram& D) {
         for (const YamlValue& Item : V.List()) {
             ReadKeys<Slot>(Item, SlotKeys, D.Slots.emplace_back());
         }
     }},
};

// memory-error

struct ErrorDraft {
    MemoryError Error;
    std::optional<unsigned> Dimm, Rank, ChipSelect;
    std::uint64_t Count = 1;
    std::uint32_t RowStep = 0;
};

template <auto Member, std::uint64_t Highest>
void ReadPlace(const YamlValue& Value, ErrorDraft& Into) {
    ReadNumber<Member, 0, Highest>(Value, Into.Error.Where);
}

constexpr std::string_view Kinds[] = {"corrected", "deferred", "uncorrected", "row-check"};

// A place without its line's column is the row's first line.
#define PLACE_KEYS                                                                                                   \
    {"socket", ReadPlace<&DramLocation::Socket, 1>, true}, {"channel", ReadPlace<&DramLocation::Channel, 11>, true}, \
        {"dimm", ReadNumber<&ErrorDraft::Dimm, 0, 1>}, {"rank", ReadNumber<&ErrorDraft::Rank, 0, 1>},                \
        {"chip-select", ReadNumber<&ErrorDraft::ChipSelect, 0, 3>},                                                  \
        {"sub-channel", ReadPlace<&DramLocation::SubChannel, 1>},                                                    \
        {"rank-multiplier", ReadPlace<&DramLocation::RankMul, 7>}, {"bank", ReadPlace<&DramLocation::Bank, 31>},     \
        {"row", ReadPlace<&DramLocation::Row, 0x3FFFF>}, {                                                           \
        "column", ReadPlace<&DramLocation::Column, 0x7FF>                                                            \
    }

constexpr YamlKey<ErrorDraft> ErrorKeys[] = {
    PLACE_KEYS,
    {"row-step", ReadNumber<&ErrorDraft::RowStep, 0, 0x3FFFF>},
    {"count", ReadNumber<&ErrorDraft::Count, 1, 1'000'000>},
    {"kind", [](const YamlValue& V, ErrorDraft& D) { D.Error.Kind = static_cast<MemoryErrorKind>(V.OneOf(Kinds)); }},
    {"symbol", [](const YamlValue& V, ErrorDraft& D) { D.Error.Symbol = static_cast<unsigned>(V.Number(0, 39)); }},
    {"syndrome", [](const YamlValue& V,
                    ErrorDraft& D) { D.Error.Syndrome = static_cast<std::uint32_t>(V.Number(0, 0xFFFFFFFF)); }},
    {"syndrome-valid", [](const YamlValue& V, ErrorDraft& D) { D.Error.HasSyndrome = V.Bool(); }},
    {"transient", [](const YamlValue& V, ErrorDraft& D) { D.Error.Transient = V.Bool(); }},
};

// Value: where the place stands.
unsigned ChipSelectOf(const ErrorDraft& Draft, const YamlValue& Value) {
    if (Draft.ChipSelect && (Draft.Dimm || Draft.Rank)) {
        Value.Refuse("a rank is told either by dimm and rank or by chip-select");
    }
    return Draft.ChipSelect.value_or(Draft.Dimm.value_or(0) * RANKS_PER_DIMM_MAX + Draft.Rank.value_or(0));
}

// pin-translation: a channel's address, and where it leads, or that it leads nowhere

struct PinDraft {
    ChannelAddress Address;
    std::optional<std::uint64_t> System;
    std::optional<ErrorDraft> Place;
    bool Fails = false;
};

constexpr YamlKey<ErrorDraft> PlaceKeys[] = {PLACE_KEYS};

constexpr YamlKey<PinDraft> PinKeys[] = {
    {"socket", [](const YamlValue& V, PinDraft& D) { ReadNumber<&ChannelAddress::Socket, 0, 1>(V, D.Address); },
     true},
    {"channel", [](const YamlValue& V, PinDraft& D) { ReadNumber<&ChannelAddress::Channel, 0, 11>(V, D.Address); },
     true},
    {"normalized", [](const YamlValue& V, PinDraft& D) { D.Address.Normalized = V.Number(); }, true},
    {"system", ReadNumber<&PinDraft::System>},
    {"place", [](const YamlValue& V, PinDraft& D) { ReadKeys<ErrorDraft>(V, PlaceKeys, D.Place.emplace()); }},
    {"fails", ReadBool<&PinDraft::Fails>},
};

// psp-finish

struct FinishDraft {
    RepairOutcome Outcome;
    EFI_STATUS Returns = EFI_SUCCESS;
};

constexpr YamlKey<FinishDraft> FinishKeys[] = {
    {"status", [](const YamlValue& V,
                  FinishDraft& D) { D.Outcome.Status = static_cast<std::uint32_t>(V.Number(0, 0xFFFFFFFF)); }},
    {"repairs", [](const YamlValue& V, FinishDraft& D) { D.Outcome.Repairs = V.Bool(); }},
    {"signals", [](const YamlValue& V, FinishDraft& D) { D.Outcome.Signals = V.Bool(); }},
    {"returns", ReadStatus<&FinishDraft::Returns>},
};

// smbios

constexpr std::uint16_t ArrayHandle(unsigned Socket) {
    return static_cast<std::uint16_t>(0x1000 + Socket);
}
constexpr std::uint16_t FirstDeviceHandle = 0x1100;

template <class Payload>
std::vector<std::uint8_t> BytesOf(const Payload& Data) {
    const auto* First = reinterpret_cast<const std::uint8_t*>(&Data);
    return {First, First + sizeof(Data)};
}

// One array a socket.
std::vector<std::uint8_t> ArrayPayload(const Configuration& Machine) {
    ELOG_SMBIOS_TYPE16_PAYLOAD Data{};
    Data.Type16DataValid = 1;
    Data.Type16NumHandles = static_cast<UINT16>(Machine.Sockets);
    for (unsigned Socket = 0; Socket < Machine.Sockets; Socket++) {
        Data.Type16Records[Socket].Handle = ArrayHandle(Socket);
    }
    return BytesOf(Data);
}

// One device a slot, whether a DIMM is in it or not, in the order of the slots; labels are the device locators.
std::vector<std::uint8_t> DevicePayload(Simulation& Run) {
    const auto Data = std::make_unique<ELOG_SMBIOS_TYPE17_PAYLOAD>();
    const VORN_MEMORY_ARRAY& Slots = Run.Firmware().Data.MemoryArray;
    Data->Type17DataValid = 1;
    Data->Type17NumHandles = Slots.NumDimmSlot;
    for (unsigned Index = 0; Index < Slots.NumDimmSlot; Index++) {
        ELOG_SMBIOS_TYPE17_RECORD& Record = Data->Type17Records[Index];
        Record.Handle = static_cast<UINT16>(FirstDeviceHandle + Index);
        Record.MemoryArrayHandle = ArrayHandle(Slots.DimmMap[Index].Socket);
        const std::u16string_view Label = Slots.DimmMap[Index].Label;
        std::copy_n(Label.begin(), std::min(Label.size(), sizeof(Record.DeviceLocator) - 1), Record.DeviceLocator);
    }
    return BytesOf(*Data);
}

std::optional<std::string> HandOver(Simulation& Run, const char* Handler, std::vector<std::uint8_t> Data) {
    Simulation::CommunicationCall Call;
    Call.Handler = Handler;
    Call.Data = std::move(Data);
    const EFI_STATUS Status = Run.CallCommunicationHandler(Call);
    return EFI_ERROR(Status) ? std::optional(fmt::format("{} returned {}", Handler, StatusName(Status)))
                             : std::nullopt;
}

}  // namespace

void ReadDram(const YamlValue& Value, Configuration& Into) {
    ReadKeys<Dram>(Value, DramKeys, Into.Dram);
}

void ReadMemoryError(const YamlValue& Value, const Configuration&, Step& Into) {
    ErrorDraft Draft;
    ReadKeys<ErrorDraft>(Value, ErrorKeys, Draft);
    DramLocation& Where = Draft.Error.Where;
    Where.ChipSelect = ChipSelectOf(Draft, Value);
    Into.Summary = fmt::format(
        "{} {}: socket {} channel {} chip select {} bank {} row 0x{:x}{} column 0x{:x}", Draft.Count,
        Kinds[static_cast<unsigned>(Draft.Error.Kind)], Where.Socket, Where.Channel, Where.ChipSelect, Where.Bank,
        Where.Row, Draft.RowStep == 0 ? "" : fmt::format(" and further by {}", Draft.RowStep), Where.Column);
    Into.Do = [First = Draft.Error, Count = Draft.Count, RowStep = Draft.RowStep](Simulation& Run,
                                                                                  std::uint64_t Round) {
        MemoryError Error = First;
        Error.Where.Row += static_cast<std::uint32_t>(Round) * RowStep;
        Run.InjectMemoryError(Error, Count);
        return std::optional<std::string>();
    };
}

void ReadPinTranslation(const YamlValue& Value, const Configuration&, Step& Into) {
    PinDraft Draft;
    ReadKeys<PinDraft>(Value, PinKeys, Draft);
    if (Draft.Fails ? Draft.System || Draft.Place : !Draft.System || !Draft.Place) {
        Value.Refuse("a translation is pinned to a system address and a place, or else fails: true");
    }
    Into.Summary = fmt::format("socket {} channel {} address 0x{:x}{}", Draft.Address.Socket, Draft.Address.Channel,
                               Draft.Address.Normalized, Draft.Fails ? " fails" : "");
    std::optional<PinnedTranslation> To;
    if (!Draft.Fails) {
        To = {*Draft.System, Draft.Place->Error.Where};
        To->Where.ChipSelect = ChipSelectOf(*Draft.Place, Value);
    }
    Into.Do = [Address = Draft.Address, To](Simulation& Run) {
        Run.PinTranslation(Address, To);
        return std::optional<std::string>();
    };
}

void ReadPspFinish(const YamlValue& Value, const Configuration&, Step& Into) {
    FinishDraft Draft;
    ReadKeys<FinishDraft>(Value, FinishKeys, Draft);
    Into.Summary =
        fmt::format("status 0x{:x}{}{}", Draft.Outcome.Status, Draft.Outcome.Repairs ? "" : ", nothing repaired",
                    Draft.Outcome.Signals ? "" : ", no SMI");
    Into.Do = [Outcome = Draft.Outcome, Wanted = Draft.Returns](Simulation& Run) {
        return CompareStatus(Wanted, Run.FinishRuntimeRepair(Outcome));
    };
}

void ReadSmbios(const YamlValue& Value, const Configuration& Machine, Step& Into) {
    if (!Value.IsEmpty()) {
        Value.Refuse("smbios takes nothing: it hands over what the machine's slots are");
    }
    Into.Summary = "memory arrays and devices";
    Into.Do = [Machine](Simulation& Run) {
        auto Wrong = HandOver(Run, "gVornSmbiosType16HandleToSmramGuid", ArrayPayload(Machine));
        return Wrong ? Wrong : HandOver(Run, "gVornSmbiosType17HandleToSmramGuid", DevicePayload(Run));
    };
}

}  // namespace Simulator

// What scenarios say of memory: DIMM slots of the machine, and the steps that concern DRAM and its repair.
#include "Simulator/Scenario/MemoryReader.h"

#include <fmt/format.h>

#include <algorithm>

#include "Include/SmbiosMemoryData.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/Names.h"

namespace Simulator {

namespace {

template <class Target, auto Member>
void ReadUnsigned(const YamlValue& Value, Target& Into) {
    Into.*Member = static_cast<unsigned>(Value.Number(0, UINT32_MAX));
}

using Slot = DimmSlotSetting;

constexpr YamlKey<Slot> SlotKeys[] = {
    {"socket", ReadUnsigned<Slot, &Slot::Socket>, true},
    {"channel", ReadUnsigned<Slot, &Slot::Channel>, true},
    {"dimm", ReadUnsigned<Slot, &Slot::Dimm>, true},
    {"populated", [](const YamlValue& V, Slot& S) { S.Populated = V.Bool(); }},
    {"enabled", [](const YamlValue& V, Slot& S) { S.Enabled = V.Bool(); }},
    {"threshold", ReadUnsigned<Slot, &Slot::Threshold>},
    {"ranks", ReadUnsigned<Slot, &Slot::Ranks>},
    {"row-bits", ReadUnsigned<Slot, &Slot::RowBits>},
    {"label", [](const YamlValue& V, Slot& S) { S.Label = V.Text(); }},
};

using Dram = DramSettings;

constexpr YamlKey<Dram> DramKeys[] = {
    {"dimm-threshold", ReadUnsigned<Dram, &Dram::DimmThreshold>},
    {"ranks", ReadUnsigned<Dram, &Dram::RanksPerDimm>},
    {"row-bits", ReadUnsigned<Dram, &Dram::RowBits>},
    {"rank-multiplier-bits", ReadUnsigned<Dram, &Dram::RankMulBits>},
    {"device-width", ReadUnsigned<Dram, &Dram::DeviceWidth>},
    {"patrol-scrubber", [](const YamlValue& V, Dram& D) { D.PatrolScrubber = V.Bool(); }},
    {"scrub-rate", [](const YamlValue& V, Dram& D) { D.ScrubRate = V.Number(); }},
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
    unsigned Dimm = 0;
    unsigned Rank = 0;
    std::optional<unsigned> ChipSelect;
    std::uint64_t Count = 1;
    std::uint32_t RowStep = 0;
};

template <unsigned DramLocation::*Member, std::uint64_t Highest>
void ReadPlace(const YamlValue& Value, ErrorDraft& Into) {
    Into.Error.Where.*Member = static_cast<unsigned>(Value.Number(0, Highest));
}

constexpr std::string_view Kinds[] = {"corrected", "deferred", "uncorrected", "row-check"};

// A place without its line's column is the row's first line.
#define PLACE_KEYS                                                                                                   \
    {"socket", ReadPlace<&DramLocation::Socket, 1>, true}, {"channel", ReadPlace<&DramLocation::Channel, 11>, true}, \
        {"dimm", [](const YamlValue& V, ErrorDraft& D) { D.Dimm = static_cast<unsigned>(V.Number(0, 1)); }},         \
        {"rank", [](const YamlValue& V, ErrorDraft& D) { D.Rank = static_cast<unsigned>(V.Number(0, 1)); }},         \
        {"chip-select",                                                                                              \
         [](const YamlValue& V, ErrorDraft& D) { D.ChipSelect = static_cast<unsigned>(V.Number(0, 3)); }},           \
        {"sub-channel", ReadPlace<&DramLocation::SubChannel, 1>},                                                    \
        {"rank-multiplier", ReadPlace<&DramLocation::RankMul, 7>}, {"bank", ReadPlace<&DramLocation::Bank, 31>},     \
        {"row", [](const YamlValue& V,                                                                               \
                   ErrorDraft& D) { D.Error.Where.Row = static_cast<std::uint32_t>(V.Number(0, 0x3FFFF)); }},        \
    {                                                                                                                \
        "column", ReadPlace<&DramLocation::Column, 0x7FF>                                                            \
    }

constexpr YamlKey<ErrorDraft> ErrorKeys[] = {
    PLACE_KEYS,
    {"row-step",
     [](const YamlValue& V, ErrorDraft& D) { D.RowStep = static_cast<std::uint32_t>(V.Number(0, 0x3FFFF)); }},
    {"count", [](const YamlValue& V, ErrorDraft& D) { D.Count = V.Number(1, 1'000'000); }},
    {"kind", [](const YamlValue& V, ErrorDraft& D) { D.Error.Kind = static_cast<MemoryErrorKind>(V.OneOf(Kinds)); }},
    {"symbol", [](const YamlValue& V, ErrorDraft& D) { D.Error.Symbol = static_cast<unsigned>(V.Number(0, 39)); }},
    {"syndrome", [](const YamlValue& V,
                    ErrorDraft& D) { D.Error.Syndrome = static_cast<std::uint32_t>(V.Number(0, 0xFFFFFFFF)); }},
    {"syndrome-valid", [](const YamlValue& V, ErrorDraft& D) { D.Error.HasSyndrome = V.Bool(); }},
    {"transient", [](const YamlValue& V, ErrorDraft& D) { D.Error.Transient = V.Bool(); }},
};

unsigned ChipSelectOf(const ErrorDraft& Draft) {
    return Draft.ChipSelect.value_or(Draft.Dimm * RANKS_PER_DIMM_MAX + Draft.Rank);
}

// pin-translation: a channel's address, and where it leads, or that it leads nowhere

struct PinDraft {
    ChannelAddress Address;
    std::optional<std::uint64_t> System;
    ErrorDraft Place;
    bool Fails = false;
};

constexpr YamlKey<ErrorDraft> PlaceKeys[] = {PLACE_KEYS};

constexpr YamlKey<PinDraft> PinKeys[] = {
    {"socket", [](const YamlValue& V, PinDraft& D) { D.Address.Socket = static_cast<unsigned>(V.Number(0, 1)); },
     true},
    {"channel", [](const YamlValue& V, PinDraft& D) { D.Address.Channel = static_cast<unsigned>(V.Number(0, 11)); },
     true},
    {"normalized", [](const YamlValue& V, PinDraft& D) { D.Address.Normalized = V.Number(); }, true},
    {"system", [](const YamlValue& V, PinDraft& D) { D.System = V.Number(); }},
    {"place", [](const YamlValue& V, PinDraft& D) { ReadKeys<ErrorDraft>(V, PlaceKeys, D.Place); }},
    {"fails", [](const YamlValue& V, PinDraft& D) { D.Fails = V.Bool(); }},
};

// psp-finish

struct FinishDraft {
    RepairOutcome Outcome;
    std::optional<EFI_STATUS> Returns;
};

constexpr YamlKey<FinishDraft> FinishKeys[] = {
    {"status", [](const YamlValue& V,
                  FinishDraft& D) { D.Outcome.Status = static_cast<std::uint32_t>(V.Number(0, 0xFFFFFFFF)); }},
    {"repairs", [](const YamlValue& V, FinishDraft& D) { D.Outcome.Repairs = V.Bool(); }},
    {"signals", [](const YamlValue& V, FinishDraft& D) { D.Outcome.Signals = V.Bool(); }},
    {"returns", [](const YamlValue& V, FinishDraft& D) { D.Returns = V.Status(); }},
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
    Where.ChipSelect = ChipSelectOf(Draft);
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
    if (!Draft.Fails && !Draft.System) {
        Value.Refuse("a translation is pinned to a system address and a place, or fails: true");
    }
    Into.Summary = fmt::format("socket {} channel {} address 0x{:x}{}", Draft.Address.Socket, Draft.Address.Channel,
                               Draft.Address.Normalized, Draft.Fails ? " fails" : "");
    std::optional<PinnedTranslation> To;
    if (!Draft.Fails) {
        To = {*Draft.System, Draft.Place.Error.Where};
        To->Where.ChipSelect = ChipSelectOf(Draft.Place);
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
    Into.Do = [Outcome = Draft.Outcome, Wanted = Draft.Returns.value_or(EFI_SUCCESS)](Simulation& Run) {
        const EFI_STATUS Came = Run.FinishRuntimeRepair(Outcome);
        return Came == Wanted
                   ? std::nullopt
                   : std::optional(fmt::format("it returned {}, wanted {}", StatusName(Came), StatusName(Wanted)));
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

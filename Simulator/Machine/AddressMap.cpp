#include "Simulator/Machine/AddressMap.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "Simulator/Machine/MachineLayout.h"

namespace Simulator {

namespace {

// Of a line's number within its rank, from bit 0 upwards.
constexpr unsigned SUB_CHANNEL_BITS = 1;
constexpr unsigned COLUMN_LINE_BITS = COLUMN_BITS - 4;
constexpr unsigned GROUP_SHIFT = SUB_CHANNEL_BITS;
constexpr unsigned COLUMN_SHIFT = GROUP_SHIFT + BANK_GROUP_BITS;
constexpr unsigned ADDRESS_SHIFT = COLUMN_SHIFT + COLUMN_LINE_BITS;
constexpr unsigned RANK_MUL_SHIFT = ADDRESS_SHIFT + BANK_ADDRESS_BITS;
static_assert(1 << (COLUMN_BITS - COLUMN_LINE_BITS) == COLUMNS_PER_LINE);

constexpr unsigned GRANULE_SHIFT = 8;  // channels take turns after 256 bytes
constexpr std::uint64_t HOLE_BASE = ECAM_BASE;
constexpr std::uint64_t HOLE_END = std::uint64_t{1} << 32;

constexpr std::uint64_t Bits(std::uint64_t Value, unsigned Shift, unsigned Count) {
    return Value >> Shift & ((std::uint64_t{1} << Count) - 1);
}

// Neighbouring rows start in different banks.
unsigned FoldGroup(std::uint64_t Group, std::uint64_t Row) {
    return static_cast<unsigned>(Group ^ Bits(Row, 0, BANK_GROUP_BITS));
}
unsigned FoldAddress(std::uint64_t Address, std::uint64_t Row) {
    return static_cast<unsigned>(Address ^ Bits(Row, BANK_GROUP_BITS, BANK_ADDRESS_BITS));
}

void RequireRange(unsigned Value, unsigned Lowest, unsigned Highest, const char* What) {
    if (Value < Lowest || Value > Highest) {
        throw std::invalid_argument(fmt::format("{}: {} to {}", What, Lowest, Highest));
    }
}

void CheckSettings(const Configuration& Settings) {
    const DramSettings& Dram = Settings.Dram;
    RequireRange(Settings.ChannelsPerSocket, 1, 12, "channels of a socket");
    RequireRange(Settings.DimmsPerChannel, 1, 2, "DIMMs of a channel");
    RequireRange(Dram.RanksPerDimm, 1, RANKS_PER_DIMM_MAX, "ranks of a DIMM");
    RequireRange(Dram.RowBits, 10, 18, "row bits");
    RequireRange(Dram.RankMulBits, 0, 3, "rank multiplier bits");
    if (Dram.DeviceWidth != 4 && Dram.DeviceWidth != 8) {
        throw std::invalid_argument("device width: 4 or 8");
    }
    for (const DimmSlotSetting& Slot : Dram.Slots) {
        if (Slot.Socket >= Settings.Sockets || Slot.Channel >= Settings.ChannelsPerSocket ||
            Slot.Dimm >= Settings.DimmsPerChannel) {
            throw std::invalid_argument(fmt::format("there is no slot for socket {}, channel {}, DIMM {}",
                                                    Slot.Socket, Slot.Channel, Slot.Dimm));
        }
        RequireRange(Slot.Ranks.value_or(1), 1, RANKS_PER_DIMM_MAX, "ranks of a DIMM");
        RequireRange(Slot.RowBits.value_or(Dram.RowBits), 10, 18, "row bits");
    }
}

}  // namespace

DimmSlotSetting SlotSetting(const Configuration& Settings, unsigned Socket, unsigned Channel, unsigned Dimm) {
    DimmSlotSetting Result;
    for (const DimmSlotSetting& Slot : Settings.Dram.Slots) {
        if (Slot.Socket == Socket && Slot.Channel == Channel && Slot.Dimm == Dimm) {
            Result = Slot;
        }
    }
    Result.Socket = Socket;
    Result.Channel = Channel;
    Result.Dimm = Dimm;
    Result.Threshold = Result.Threshold.value_or(Settings.Dram.DimmThreshold);
    Result.Ranks = Result.Ranks.value_or(Settings.Dram.RanksPerDimm);
    Result.RowBits = Result.RowBits.value_or(Settings.Dram.RowBits);
    return Result;
}

AddressMap::AddressMap(const Configuration& Settings)
    : RankMulBits(Settings.Dram.RankMulBits), Sockets(Settings.Sockets) {
    CheckSettings(Settings);
    std::uint64_t Base = 0;
    for (unsigned Socket = 0; Socket < Settings.Sockets; Socket++) {
        SocketMemory& Here = Sockets[Socket];
        Here.Channels.resize(Settings.ChannelsPerSocket);
        for (unsigned Number = 0; Number < Settings.ChannelsPerSocket; Number++) {
            LayOutRanks(Settings, Socket, Number, Here.Channels[Number]);
        }
        LayOutSocket(Here);
        Here.Base = Base;
        Base += Here.Size;
    }
}

void AddressMap::LayOutRanks(const Configuration& Settings, unsigned Socket, unsigned Number, Channel& Into) const {
    for (unsigned Dimm = 0; Dimm < Settings.DimmsPerChannel; Dimm++) {
        const DimmSlotSetting Slot = SlotSetting(Settings, Socket, Number, Dimm);
        if (!Slot.Populated || !Slot.Enabled) {
            continue;
        }
        for (unsigned OnDimm = 0; OnDimm < *Slot.Ranks; OnDimm++) {
            Rank& One = Into.Ranks[Dimm * RANKS_PER_DIMM_MAX + OnDimm];
            One = {*Slot.RowBits, Into.Size, LINE_BYTES << (RowShift() + *Slot.RowBits)};
            Into.Size += One.Size;
        }
    }
}

void AddressMap::LayOutSocket(SocketMemory& Into) const {
    for (unsigned Number = 0; Number < Into.Channels.size(); Number++) {
        Channel& One = Into.Channels[Number];
        if (One.Size != 0) {
            One.Base = Into.Size;
            Into.Size += One.Size;
            Into.Holding.push_back(Number);
        }
    }
    Into.Interleaved = std::ranges::all_of(Into.Holding, [&](unsigned Number) {
        return Into.Channels[Number].Size == Into.Channels[Into.Holding.front()].Size;
    });
}

unsigned AddressMap::RowShift() const {
    return RANK_MUL_SHIFT + RankMulBits;
}

const AddressMap::Channel* AddressMap::FindChannel(unsigned Socket, unsigned Channel) const {
    return Socket < Sockets.size() && Channel < Sockets[Socket].Channels.size() ? &Sockets[Socket].Channels[Channel]
                                                                                : nullptr;
}

const AddressMap::Rank* AddressMap::FindRank(const DramLocation& Where) const {
    const Channel* Here = FindChannel(Where.Socket, Where.Channel);
    if (Here == nullptr || Where.ChipSelect >= CHIP_SELECTS || Here->Ranks[Where.ChipSelect].Size == 0) {
        return nullptr;
    }
    return &Here->Ranks[Where.ChipSelect];
}

std::optional<ChannelAddress> AddressMap::ToChannel(const DramLocation& Where) const {
    const Rank* In = FindRank(Where);
    if (In == nullptr || Where.SubChannel >> SUB_CHANNEL_BITS != 0 ||
        Where.Bank >> (BANK_GROUP_BITS + BANK_ADDRESS_BITS) != 0 || Where.Row >> In->RowBits != 0 ||
        Where.Column >> COLUMN_BITS != 0 || Where.RankMul >> RankMulBits != 0) {
        return std::nullopt;
    }
    const std::uint64_t Row = Where.Row;
    const std::uint64_t Line = Row << RowShift() | std::uint64_t{Where.RankMul} << RANK_MUL_SHIFT |
                               FoldAddress(BankAddressOf(Where.Bank), Row) << ADDRESS_SHIFT |
                               Where.Column / COLUMNS_PER_LINE << COLUMN_SHIFT |
                               FoldGroup(BankGroupOf(Where.Bank), Row) << GROUP_SHIFT | Where.SubChannel;
    return ChannelAddress{Where.Socket, Where.Channel, In->Base + Line * LINE_BYTES};
}

std::optional<DramLocation> AddressMap::ToDram(const ChannelAddress& Where) const {
    const Channel* Here = FindChannel(Where.Socket, Where.Channel);
    if (Here == nullptr || Where.Normalized >= Here->Size) {
        return std::nullopt;
    }
    unsigned ChipSelect = 0;
    while (Where.Normalized - Here->Ranks[ChipSelect].Base >= Here->Ranks[ChipSelect].Size) {
        ChipSelect++;
    }
    const std::uint64_t Line = (Where.Normalized - Here->Ranks[ChipSelect].Base) / LINE_BYTES;
    const std::uint64_t Row = Line >> RowShift();
    DramLocation Found;
    Found.Socket = Where.Socket;
    Found.Channel = Where.Channel;
    Found.SubChannel = static_cast<unsigned>(Bits(Line, 0, SUB_CHANNEL_BITS));
    Found.ChipSelect = ChipSelect;
    Found.RankMul = static_cast<unsigned>(Bits(Line, RANK_MUL_SHIFT, RankMulBits));
    Found.Bank = FoldGroup(Bits(Line, GROUP_SHIFT, BANK_GROUP_BITS), Row) << BANK_ADDRESS_BITS |
                 FoldAddress(Bits(Line, ADDRESS_SHIFT, BANK_ADDRESS_BITS), Row);
    Found.Row = static_cast<std::uint32_t>(Row);
    Found.Column = static_cast<unsigned>(Bits(Line, COLUMN_SHIFT, COLUMN_LINE_BITS)) * COLUMNS_PER_LINE;
    return Found;
}

std::optional<std::uint64_t> AddressMap::ToSystem(const ChannelAddress& Where) const {
    const Channel* Here = FindChannel(Where.Socket, Where.Channel);
    if (Here == nullptr || Where.Normalized >= Here->Size) {
        return std::nullopt;
    }
    const SocketMemory& Socket = Sockets[Where.Socket];
    std::uint64_t Offset = Here->Base + Where.Normalized;
    if (Socket.Interleaved) {
        const auto Turn = static_cast<std::uint64_t>(
            std::distance(Socket.Holding.begin(), std::ranges::find(Socket.Holding, Where.Channel)));
        const std::uint64_t Granule = (Where.Normalized >> GRANULE_SHIFT) * Socket.Holding.size() + Turn;
        Offset = Granule << GRANULE_SHIFT | Bits(Where.Normalized, 0, GRANULE_SHIFT);
    }
    Offset += Socket.Base;
    return Offset < HOLE_BASE ? Offset : Offset - HOLE_BASE + HOLE_END;
}

std::optional<ChannelAddress> AddressMap::ToChannel(std::uint64_t System) const {
    if (System >= HOLE_BASE && System < HOLE_END) {
        return std::nullopt;
    }
    const std::uint64_t Dram = System < HOLE_BASE ? System : System - HOLE_END + HOLE_BASE;
    for (unsigned Number = 0; Number < Sockets.size(); Number++) {
        const SocketMemory& Socket = Sockets[Number];
        if (Dram < Socket.Base || Dram - Socket.Base >= Socket.Size) {
            continue;
        }
        const std::uint64_t Offset = Dram - Socket.Base;
        if (Socket.Interleaved) {
            const std::uint64_t Granule = Offset >> GRANULE_SHIFT;
            const std::uint64_t Turns = Socket.Holding.size();
            return ChannelAddress{Number, Socket.Holding[Granule % Turns],
                                  Granule / Turns << GRANULE_SHIFT | Bits(Offset, 0, GRANULE_SHIFT)};
        }
        for (const unsigned Channel : Socket.Holding) {
            const std::uint64_t Base = Socket.Channels[Channel].Base;
            if (Offset >= Base && Offset - Base < Socket.Channels[Channel].Size) {
                return ChannelAddress{Number, Channel, Offset - Base};
            }
        }
    }
    return std::nullopt;
}

std::uint64_t AddressMap::CapacityOf(unsigned Socket, unsigned Channel) const {
    const AddressMap::Channel* Here = FindChannel(Socket, Channel);
    return Here == nullptr ? 0 : Here->Size;
}

std::uint64_t AddressMap::CapacityOf(unsigned Socket) const {
    return Socket < Sockets.size() ? Sockets[Socket].Size : 0;
}

bool AddressMap::HasRank(unsigned Socket, unsigned Channel, unsigned ChipSelect) const {
    DramLocation Where;
    Where.Socket = Socket;
    Where.Channel = Channel;
    Where.ChipSelect = ChipSelect;
    return FindRank(Where) != nullptr;
}

}  // namespace Simulator

// Where memory lies: system addresses, addresses within a memory controller's channel, places in DRAM. Each can be
// turned into the others, over the whole capacity.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "Simulator/Configuration.h"

namespace Simulator {

// One line (64 bytes) of DRAM.
struct DramLocation {
    unsigned Socket = 0;
    unsigned Channel = 0;
    unsigned SubChannel = 0;
    unsigned ChipSelect = 0;  // physical rank on the channel: 2 * DIMM + rank on it
    unsigned RankMul = 0;     // rank within the stack
    unsigned Bank = 0;        // group << BANK_ADDRESS_BITS | address within it
    std::uint32_t Row = 0;
    unsigned Column = 0;  // the first of the line's 16 columns

    auto operator<=>(const DramLocation&) const = default;
};

// Whether both places lie in one row, whatever their columns are.
constexpr bool IsSameRow(DramLocation One, const DramLocation& Other) {
    One.Column = Other.Column;
    return One == Other;
}

inline constexpr unsigned BANK_ADDRESS_BITS = 2;
inline constexpr unsigned BANK_GROUP_BITS = 3;
inline constexpr unsigned COLUMN_BITS = 11;
inline constexpr unsigned COLUMNS_PER_LINE = 16;
inline constexpr std::uint64_t LINE_BYTES = 64;
inline constexpr unsigned RANKS_PER_DIMM_MAX = 2;

constexpr unsigned BankGroupOf(unsigned Bank) {
    return Bank >> BANK_ADDRESS_BITS;
}
constexpr unsigned BankAddressOf(unsigned Bank) {
    return Bank & ((1 << BANK_ADDRESS_BITS) - 1);
}

// An address within a channel: the normalized address.
struct ChannelAddress {
    unsigned Socket = 0;
    unsigned Channel = 0;
    std::uint64_t Normalized = 0;

    auto operator<=>(const ChannelAddress&) const = default;
};

// The rules. Within a channel its ranks lie one behind the other. Within a rank, from the line's address upwards:
// sub-channel, bank group, column, bank address, rank of the stack, row; group and address of the bank are folded
// with the row's low bits. Within a socket 256 bytes of each channel take turns where all channels that hold memory
// hold equally much; else channels lie one behind the other. Sockets lie one behind the other, around the hole for
// memory-mapped IO below 4 GB.
class AddressMap {
 public:
    // Throws std::invalid_argument for settings that are no memory.
    explicit AddressMap(const Configuration& Settings);

    // Nothing for an address or a place that no enabled DIMM has.
    std::optional<ChannelAddress> ToChannel(const DramLocation& Where) const;
    std::optional<ChannelAddress> ToChannel(std::uint64_t System) const;
    std::optional<DramLocation> ToDram(const ChannelAddress& Where) const;
    std::optional<std::uint64_t> ToSystem(const ChannelAddress& Where) const;

    std::uint64_t CapacityOf(unsigned Socket, unsigned Channel) const;  // bytes
    std::uint64_t CapacityOf(unsigned Socket) const;
    bool HasRank(unsigned Socket, unsigned Channel, unsigned ChipSelect) const;
    bool IsPlace(const DramLocation& Where) const {
        return ToChannel(Where).has_value();
    }

 private:
    static constexpr unsigned CHIP_SELECTS = 4;
    struct Rank {
        unsigned RowBits = 0;
        std::uint64_t Base = 0;  // in the channel
        std::uint64_t Size = 0;  // bytes; 0: no rank
    };
    struct Channel {
        std::array<Rank, CHIP_SELECTS> Ranks;
        std::uint64_t Size = 0;
        std::uint64_t Base = 0;  // in the socket, where channels do not take turns
    };
    struct SocketMemory {
        std::vector<Channel> Channels;
        std::vector<unsigned> Holding;  // channels that hold memory, in order
        bool Interleaved = false;
        std::uint64_t Base = 0;  // of all DRAM, the hole left out
        std::uint64_t Size = 0;
    };

    const Channel* FindChannel(unsigned Socket, unsigned Channel) const;
    const Rank* FindRank(const DramLocation& Where) const;
    unsigned RowShift() const;
    void LayOutRanks(const Configuration& Settings, unsigned Socket, unsigned Number, Channel& Into) const;
    void LayOutSocket(SocketMemory& Into) const;

    unsigned RankMulBits;
    std::vector<SocketMemory> Sockets;
};

// The setting of a slot: its own, or what all have.
DimmSlotSetting SlotSetting(const Configuration& Settings, unsigned Socket, unsigned Channel, unsigned Dimm);

}  // namespace Simulator

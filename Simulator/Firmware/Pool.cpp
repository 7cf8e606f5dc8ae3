#include "Simulator/Firmware/Pool.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "Simulator/Firmware/MemoryLayout.h"
#include "Simulator/Firmware/UnderSanitizer.h"

namespace Simulator {

namespace {

// Each block lies behind a front of 32 bytes: its entry's number, then guard bytes; at least 16 follow it.
constexpr std::uint64_t FRONT = 32;
constexpr std::uint64_t BACK = 16;
constexpr std::uint8_t GUARD = 0xA5;
constexpr std::uint8_t FRESH = 0xAF;  // what a block holds before its owner writes it

// Forbidden bytes in front of the block that is allocated next: far overruns run into them. Forbidding the whole
// arena would take seconds.
constexpr std::uint64_t FENCE = 65536;

// A freed block is not handed out again before this many others of its size were freed, so that late uses
// show under the address sanitizer.
#if UNDER_ADDRESS_SANITIZER
constexpr std::size_t QUARANTINE = 32;
#else
constexpr std::size_t QUARANTINE = 0;
#endif

constexpr std::uint64_t RoundedSize(std::uint64_t Size) {
    return (FRONT + Size + BACK + 15) / 16 * 16;
}

READS_FORBIDDEN bool AllGuards(const volatile std::uint8_t* First, const volatile std::uint8_t* End) {
    for (; First != End; First++) {
        if (*First != GUARD) {
            return false;
        }
    }
    return true;
}

READS_FORBIDDEN std::uint32_t ReadNumber(const volatile std::uint8_t* Front) {
    return Front[0] | Front[1] << 8 | Front[2] << 16 | static_cast<std::uint32_t>(Front[3]) << 24;
}

}  // namespace

Pool::Pool(std::uint64_t Fail, bool CheckBlocks)
    : FailAllocation(Fail), Check(CheckBlocks), Unused(Memory().Pool.Base) {
    ForbidAccess(Unused, FENCE);
}

Pool::~Pool() {
    AllowAccess(Memory().Pool.Base, static_cast<std::uint64_t>(Unused - Memory().Pool.Base) + FENCE);
}

std::uint32_t Pool::TakeEntry() {
    if (FreeEntries.empty()) {
        Entries.emplace_back();
        return static_cast<std::uint32_t>(Entries.size() - 1);
    }
    const std::uint32_t Number = FreeEntries.back();
    FreeEntries.pop_back();
    return Number;
}

std::uint8_t* Pool::TakeSpace(std::uint64_t Rounded) {
    const auto Freed = FreeSpace.find(Rounded);
    if (Freed != FreeSpace.end() && Freed->second.size() > QUARANTINE) {
        std::uint8_t* Space = Freed->second.front();
        Freed->second.pop_front();
        return Space;
    }
    if (Rounded + FENCE > static_cast<std::uint64_t>(Memory().Pool.End() - Unused)) {
        return nullptr;
    }
    std::uint8_t* Space = Unused;
    Unused += Rounded;
    ForbidAccess(Unused, FENCE);
    return Space;
}

EFI_STATUS Pool::Allocate(std::uint64_t Size, void** Buffer) {
    Numbers.Allocations++;
    // The second comparison keeps the rounding from wrapping around.
    if (Numbers.Allocations == FailAllocation || Size > Memory().Pool.Size) {
        return EFI_OUT_OF_RESOURCES;
    }
    std::uint8_t* Space = TakeSpace(RoundedSize(Size));
    if (Space == nullptr) {
        return EFI_OUT_OF_RESOURCES;
    }
    const std::uint32_t Number = TakeEntry();
    Entry& Taken = Entries[Number];
    Taken = {Space + FRONT, {Numbers.Allocations, Size, CurrentSmi}, false};
    AllowAccess(Space, RoundedSize(Size));
    std::memcpy(Space, &Number, sizeof(Number));
    if (Check) {
        std::memset(Space + sizeof(Number), GUARD, FRONT - sizeof(Number));
        std::memset(Taken.Block, FRESH, Size);
        std::memset(Taken.Block + Size, GUARD, RoundedSize(Size) - FRONT - Size);
    }
    ForbidAccess(Space, RoundedSize(Size));
    AllowAccess(Taken.Block, Size);
    Numbers.LiveBlocks++;
    Numbers.LiveBytes += Size;
    Numbers.PeakBytes = std::max(Numbers.PeakBytes, Numbers.LiveBytes);
    *Buffer = Taken.Block;
    return EFI_SUCCESS;
}

EFI_STATUS Pool::Free(void* Buffer) {
    auto* Block = static_cast<std::uint8_t*>(Buffer);
    if (!Memory().Pool.Contains(Block) || Block >= Unused || Block < Memory().Pool.Base + FRONT) {
        return EFI_INVALID_PARAMETER;
    }
    // What lies in front of a foreign pointer may be anything; the entry that it names must name the pointer back.
    const std::uint32_t Number = ReadNumber(Block - FRONT);
    if (Number >= Entries.size() || Entries[Number].Block != Block) {
        return EFI_INVALID_PARAMETER;
    }
    Entry& Given = Entries[Number];
    if (Check && !Given.Damaged && !GuardsIntact(Given)) {
        DamageAtFree.push_back(
            fmt::format("pool block {} of {} bytes, allocated in SMI {}, was overrun before it "
                        "was freed",
                        Given.What.Sequence, Given.What.Size, Given.What.Smi));
    }
    Numbers.Frees++;
    Numbers.LiveBlocks--;
    Numbers.LiveBytes -= Given.What.Size;
    ForbidAccess(Block, Given.What.Size);
    FreeSpace[RoundedSize(Given.What.Size)].push_back(Block - FRONT);
    Given.Block = nullptr;
    FreeEntries.push_back(Number);
    return EFI_SUCCESS;
}

bool Pool::GuardsIntact(const Entry& Which) {
    const std::uint8_t* Front = Which.Block - FRONT;
    return AllGuards(Front + sizeof(std::uint32_t), Which.Block) &&
           AllGuards(Which.Block + Which.What.Size, Front + RoundedSize(Which.What.Size));
}

std::vector<std::string> Pool::DamagedBlocks() {
    std::vector<std::string> Texts;
    if (!Check) {
        return Texts;
    }
    for (Entry& One : Entries) {
        if (One.Block != nullptr && !One.Damaged && !GuardsIntact(One)) {
            One.Damaged = true;
            Texts.push_back(fmt::format("pool block {} of {} bytes, allocated in SMI {}, was overrun",
                                        One.What.Sequence, One.What.Size, One.What.Smi));
        }
    }
    return Texts;
}

std::vector<std::string> Pool::TakeDamageSeenAtFree() {
    return std::exchange(DamageAtFree, {});
}

std::vector<PoolBlock> Pool::LiveBlocks() const {
    std::vector<PoolBlock> Live;
    for (const Entry& One : Entries) {
        if (One.Block != nullptr) {
            Live.push_back(One.What);
        }
    }
    std::sort(Live.begin(), Live.end(),
              [](const PoolBlock& Left, const PoolBlock& Right) { return Left.Sequence < Right.Sequence; });
    return Live;
}

std::vector<PoolBlock> Pool::LiveBlocksOf(std::uint64_t Smi) const {
    std::vector<PoolBlock> Live = LiveBlocks();
    std::erase_if(Live, [Smi](const PoolBlock& One) { return One.Smi != Smi; });
    return Live;
}

}  // namespace Simulator

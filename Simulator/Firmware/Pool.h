// The SMM pool, with an account of every block.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "Platform/Base.h"

namespace Simulator {

// Everything a run can be asked about allocated memory at the end of an SMI or of the run.
struct PoolStatistics {
    std::uint64_t LiveBlocks = 0;
    std::uint64_t LiveBytes = 0;
    std::uint64_t Allocations = 0;  // since boot
    std::uint64_t Frees = 0;
    std::uint64_t PeakBytes = 0;
};

struct PoolBlock {
    std::uint64_t Sequence = 0;  // n-th allocation since boot
    std::uint64_t Size = 0;      // bytes asked for
    std::uint64_t Smi = 0;       // SMI in which it was allocated; 0 at boot

    bool operator==(const PoolBlock&) const = default;
};

class Pool {
 public:
    // FailAllocation: the n-th allocation fails; 0 for none. Check: blocks get fill patterns and guard bytes.
    Pool(std::uint64_t FailAllocation, bool Check);
    ~Pool();
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    // EFI_OUT_OF_RESOURCES when the pool is full or this allocation is the one that fails; *Buffer stays then.
    EFI_STATUS Allocate(std::uint64_t Size, void** Buffer);
    // EFI_INVALID_PARAMETER for anything that is no live block of the pool.
    EFI_STATUS Free(void* Buffer);

    // Allocations from now on belong to this SMI.
    void BeginSmi(std::uint64_t Number) {
        CurrentSmi = Number;
    }
    // A text for every live block whose guard bytes were overwritten; each is reported once.
    std::vector<std::string> DamagedBlocks();
    // What was overwritten when a block was freed since the last call.
    std::vector<std::string> TakeDamageSeenAtFree();
    // Live blocks that were allocated in this SMI, in order.
    std::vector<PoolBlock> LiveBlocksOf(std::uint64_t Smi) const;
    std::vector<PoolBlock> LiveBlocks() const;
    const PoolStatistics& Statistics() const {
        return Numbers;
    }

 private:
    struct Entry {
        std::uint8_t* Block = nullptr;  // nullptr when the entry is unused
        PoolBlock What;
        bool Damaged = false;
    };
    std::uint32_t TakeEntry();
    std::uint8_t* TakeSpace(std::uint64_t Rounded);
    static bool GuardsIntact(const Entry& Which);

    std::uint64_t FailAllocation;
    bool Check;
    std::uint64_t CurrentSmi = 0;
    PoolStatistics Numbers;
    std::uint8_t* Unused;  // the arena from here on was never given out
    std::vector<Entry> Entries;
    std::vector<std::uint32_t> FreeEntries;
    std::map<std::uint64_t, std::deque<std::uint8_t*>> FreeSpace;  // freed blocks by rounded size, oldest first
    std::vector<std::string> DamageAtFree;
};

}  // namespace Simulator

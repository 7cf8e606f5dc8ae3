// Post-package repair: the platform's service that keeps requests for the next boot and hands them to the PSP while
// the system runs, and the PSP that carries them out.
#pragma once

#include <cstdint>
#include <set>
#include <tuple>
#include <vector>

#include "Include/ChipsetSupportData.h"
#include "Include/RuntimePpr.h"
#include "Simulator/Machine/Machine.h"

namespace Simulator {

// A row that is to be repaired.
struct RepairEntry {
    std::uint16_t Type = 0;  // why: PPR_WARNING and the like
    DramLocation Row;
    DeviceRange Devices;
    CPU_INFO Cpu{};  // processor that logged the error
    std::uint64_t McaBank = 0;
    std::uint8_t EntryType = 0;  // how the bank told the row: its ErrorCodeExt
    std::uint64_t SystemAddress = 0;
    std::uint64_t NormalizedAddress = 0;
    bool Stored = false;  // kept for the next boot
    bool Done = false;    // its spare rows took the row's place
};

// How the PSP comes to the end of what it was given.
struct RepairOutcome {
    std::uint32_t Status = 0;  // 0: it says that the rows are repaired
    bool Repairs = true;       // it has repaired them
    bool Signals = true;       // its SMI reaches the processors
};

class MemoryRepair {
 public:
    static constexpr std::size_t QUEUE_ENTRIES = 4;

    explicit MemoryRepair(Machine& Hardware) : Hardware(Hardware) {}

    // Members of the protocol, behind its table. A row can be repaired while each of its devices has a spare row left
    // in the row's bank group.
    EFI_STATUS IsSupported(const KYR_CHIPSET_SUPPORT_DATA* Data, BOOLEAN* Supported) const;
    // No entry, and success, for a row that has one already.
    EFI_STATUS CreateEntry(const KYR_CHIPSET_SUPPORT_DATA* Data, UINT16 Type, BOOLEAN* AtLeastOne);
    EFI_STATUS StoreEntries();

    struct RuntimeRequest {
        const KYR_CHIPSET_SUPPORT_DATA* Data;
        const BOOLEAN* Ready;  // FALSE: the PSP has something to do
        UINT16 Type;
        BOOLEAN Enabled;
        UINT32* Served;  // out: entries that the PSP was given
        void* Block;
        UINT32* CommandWord;
        UINT8* QueueFront;  // out: last used place of the queue
        UINT32* QueueFull;  // out
        RUNTIME_PPR_CHECK_ENTRY* CheckTable;
    };
    // Gives the row, and those that wait, to the PSP. EFI_NOT_READY while it has others: the row waits in the queue.
    // EFI_OUT_OF_RESOURCES when the queue is full.
    EFI_STATUS StartRuntime(const RuntimeRequest& Request);

    // The PSP ends what it was given: its command word says so. False when it has nothing to do.
    bool FinishRuntime(const RepairOutcome& Outcome);

    // Spare rows: one for each rank of a stack, bank group, device.
    using Spare = std::tuple<unsigned, unsigned, unsigned, unsigned, unsigned, unsigned, unsigned>;
    // What a machine that is switched off keeps: the entries that were stored, and the spare rows that are taken.
    struct Stored {
        std::vector<RepairEntry> Entries;
        std::set<Spare> UsedSpares;
    };
    Stored TakeStored();
    // A machine with the same DIMMs starts: its memory is trained, the stored entries' rows are repaired.
    void CarryOut(Stored From);

    const std::vector<RepairEntry>& Entries() const {
        return Requested;
    }

 private:
    static Spare SpareOf(const DramLocation& Row, unsigned Device);
    RepairEntry Describe(const KYR_CHIPSET_SUPPORT_DATA& Data, UINT16 Type) const;
    void MarkDone(const RepairEntry& Repaired);
    const RepairEntry* Find(const DramLocation& Row, DeviceRange Devices) const;
    void Note(const char* Kind, const char* Phase, const RepairEntry& Entry);

    Machine& Hardware;
    std::vector<RepairEntry> Requested;  // in the order of the requests
    std::set<Spare> UsedSpares;
    std::vector<RepairEntry> Waiting;  // for the PSP
    std::vector<RepairEntry> Served;   // by the PSP
    UINT32* CommandWord = nullptr;     // of the request that the PSP serves; nullptr: none
};

}  // namespace Simulator

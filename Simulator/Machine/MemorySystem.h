// The memory of a machine: address map, controllers, and the rows that went bad.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Simulator/Machine/AddressMap.h"
#include "Simulator/Machine/MachineCheck.h"
#include "Simulator/Machine/MemoryController.h"

namespace Simulator {

class Machine;

enum class MemoryErrorKind {
    Corrected,
    Deferred,     // ECC cannot correct it: the line is poisoned
    Uncorrected,  // nor can it be poisoned
    RowCheck,     // the DRAM's own check found a row and told no more than its place
};

// An error of a line in DRAM.
struct MemoryError {
    DramLocation Where;
    MemoryErrorKind Kind = MemoryErrorKind::Corrected;
    std::optional<unsigned> Symbol;  // the failing DQ line of the sub-channel, if ECC can tell
    std::uint32_t Syndrome = 0;
    bool HasSyndrome = true;
    bool Transient = false;  // it is gone once it was seen; else the row has it until it is repaired
};

// The failing symbol in the syndrome of a controller's bank.
using SyndromeSymbol = Field<std::uint64_t, 13, 8>;

// DRAM devices of a sub-channel, both included.
struct DeviceRange {
    unsigned First = 0;
    unsigned Last = 0;
};

class MemorySystem {
 public:
    // A row that has an error until it is repaired.
    struct BadRow {
        MemoryError Error;
        std::uint64_t Normalized = 0;
    };

    // Throws std::invalid_argument for settings that are no memory.
    explicit MemorySystem(Machine& Hardware);

    const AddressMap& Map() const {
        return Addresses;
    }
    bool HasController(unsigned Socket, unsigned Channel) const {
        return Socket < Controllers.size() && Channel < Controllers[Socket].size();
    }
    MemoryController& Controller(unsigned Socket, unsigned Channel) {
        return *Controllers[Socket][Channel];
    }

    // The error shows, Count times. Throws std::invalid_argument for a place that no enabled DIMM has, or a channel
    // that has no bank.
    void Inject(const MemoryError& Error, std::uint64_t Count);

    // A memory controller's bank logged an error. The type of the interrupt that its counters ask for.
    std::uint32_t CountLogged(unsigned Socket, std::uint64_t Ipid, const MachineCheck& Error);

    // Spare rows take the place of the row in these devices. What it had there is gone.
    void RepairRow(const DramLocation& Row, DeviceRange Devices);
    // The DRAM devices that a symbol lies in. Nothing for a symbol that the sub-channel does not have.
    std::optional<unsigned> DeviceOfSymbol(unsigned Symbol) const;
    unsigned DeviceCount() const;  // of a sub-channel

    // Bad rows stay bad while the machine is off. Put: into a machine with the same DIMMs.
    std::vector<BadRow> TakeBadRows() {
        return std::exchange(BadRows, {});
    }
    void PutBadRows(std::vector<BadRow> Rows) {
        BadRows = std::move(Rows);
    }

    // Time passes: scrubbers walk and find what they pass.
    void Advance(std::uint64_t Microseconds);

 private:
    MachineCheck Describe(const MemoryError& Error, bool ByScrubber) const;
    void Scrub(unsigned Socket, unsigned Channel, std::uint64_t Microseconds);

    Machine& Hardware;
    AddressMap Addresses;
    bool MayScrub = false;  // some scrubber walks; asked for with every microsecond that a processor waits
    std::vector<std::vector<std::unique_ptr<MemoryController>>> Controllers;  // by socket and channel
    SilentMemoryController SwitchedOff;
    std::vector<BadRow> BadRows;
};

}  // namespace Simulator

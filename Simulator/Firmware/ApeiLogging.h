// The APEI side of the platform: the error status block that the OS reads, and the signals that make it read.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "Platform/Base.h"
#include "Simulator/Firmware/ErrorStatusBlock.h"
#include "Simulator/Firmware/SharedErrorSource.h"
#include "Simulator/Machine/Machine.h"

namespace Simulator {

class ApeiLogging {
 public:
    explicit ApeiLogging(Machine& Hardware);

    // Members of the protocol, behind its table.
    EFI_STATUS IsApeiOsLoaded(BOOLEAN* IsLoaded) const;
    // EFI_NOT_READY when the block is empty, or not firmware's because the OS still reads it.
    EFI_STATUS ClearGhes();
    // EFI_ALREADY_STARTED while the OS still reads; EFI_INVALID_PARAMETER for what is no record;
    // EFI_OUT_OF_RESOURCES when the block is full.
    EFI_STATUS LogCper(const void* Cper, UINT32 Severity);
    EFI_STATUS LogPageRetire(const void* CperTimestamp, const CHAR8* FruText, UINT64 PhysicalAddress,
                             UINT32 PageRetireThreshold);
    EFI_STATUS SignalSci(UINT32 Cause);
    EFI_STATUS SignalNmi();

    // The OS runs again: where it was signalled it reads the block, and lets go of it if it acknowledges.
    void OperatingSystemRuns();

    // Whether the OS was interrupted for a contained port since this was last asked.
    bool TakeContainmentInterrupt() {
        return std::exchange(ContainmentTold, false);
    }

    // Every record that entered the block, in order.
    const std::vector<std::vector<std::uint8_t>>& LoggedRecords() const {
        return Logged;
    }
    // The OS keeps what it has read while the machine is off.
    std::vector<std::vector<std::uint8_t>> TakeLogged() {
        return std::exchange(Logged, {});
    }
    void PutLogged(std::vector<std::vector<std::uint8_t>> From) {
        Logged = std::move(From);
    }
    // The block with records in it, or as the OS last found it.
    const std::vector<std::uint8_t>& StatusBlock() const {
        return Block.IsEmpty() ? LastRead : Block.Contents();
    }

 private:
    bool SciIsRouted() const;
    // Takes the block back where the OS has let go of it since it was last asked. False while the OS reads.
    bool OwnsBlock();

    Machine& Hardware;
    ErrorStatusBlock Block;
    std::unique_ptr<SharedErrorSource> RunningOs;  // nullptr: the OS is the model's own
    bool WithOs = false;                           // read but not acknowledged
    bool Signalled = false;
    bool ContainmentTold = false;
    std::vector<std::uint8_t> LastRead;
    std::vector<std::vector<std::uint8_t>> Logged;
};

}  // namespace Simulator

// The RAS service's members that reach into memory controllers and DRAM.
#pragma once

#include <map>
#include <optional>
#include <utility>

#include "Include/ChipsetSupportData.h"
#include "Include/DramAddress.h"
#include "Simulator/Machine/Machine.h"

namespace Simulator {

// What a translation is made to say whatever the address map says; nothing: it fails.
struct PinnedTranslation {
    std::uint64_t System = 0;
    DramLocation Where;
};

class MemoryService {
 public:
    explicit MemoryService(Machine& Hardware) : Hardware(Hardware) {}

    // A place that no enabled DIMM has leaves NORMALIZED_ADDRESS_TRANSLATION_FAILED.
    void DramToNormalized(unsigned Socket, unsigned Die, unsigned Channel, const DRAM_ADDRESS* From,
                          NORMALIZED_ADDRESS* To) const;
    // EFI_NOT_FOUND for an address that leads to no DIMM.
    EFI_STATUS NormalizedToDimmAddress(const NORMALIZED_ADDRESS* From, UINT64* SystemAddress, DIMM_INFO* To) const;

    // Start values of a DIMM's counters, or of one; counting and its SMI are switched on with them. EFI_NOT_FOUND for
    // a DIMM or counter that does not exist.
    EFI_STATUS StartCounters(unsigned Socket, unsigned Channel, unsigned Dimm, const UmcEccErrCntRegInitData* Start);
    EFI_STATUS StartCounter(unsigned Socket, unsigned Channel, const EccCounter& Which,
                            const UmcEccErrCntRegInitData* Start);
    // The DIMM's counters go on counting, but raise no interrupt any more.
    EFI_STATUS StopCounterInterrupts(unsigned Socket, unsigned Channel, unsigned Dimm);

    // EFI_UNSUPPORTED for a bank that holds no DRAM error with a syndrome, EFI_NOT_FOUND for one without a symbol.
    EFI_STATUS MapSymbolToDramDevice(const RasMcaErrorInfo* Info, UINT8 BankIndex, UINT32* First, UINT32* Last) const;

    void Pin(const ChannelAddress& Where, std::optional<PinnedTranslation> To) {
        Pinned[Where] = To;
    }
    // What a translation was pinned to, for the next start of the same machine.
    using Pins = std::map<ChannelAddress, std::optional<PinnedTranslation>>;
    Pins TakePins() {
        return std::exchange(Pinned, {});
    }
    void PutPins(Pins From) {
        Pinned = std::move(From);
    }

 private:
    bool HasDimm(unsigned Socket, unsigned Channel, unsigned Dimm) const;

    Machine& Hardware;
    Pins Pinned;
};

// Symbol of a bank's DRAM error; nothing where ECC could not tell.
std::optional<unsigned> SymbolOf(const MCA_BANK_ERROR_INFO& Bank);

}  // namespace Simulator

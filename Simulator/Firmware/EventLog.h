// The event log: bodies that wait for their transmission, and the BMC that keeps the log.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "Include/SelData.h"
#include "Platform/Protocol/VendorServices.h"
#include "Simulator/Machine/Machine.h"

namespace Simulator {

class EventLog {
 public:
    explicit EventLog(Machine& Hardware);

    // Members of the protocols, behind their tables.
    EFI_STATUS LogBmcData(const ELOG_SEL_DATA* Body);
    EFI_STATUS GetPostMessageCodes(const void* MessageCodeArea);
    EFI_STATUS GetBmcErrorCount(UINT16* Count) const;
    EFI_STATUS SendBmcData();
    // The oldest bodies, as many as the count can say. EFI_NOT_FOUND never: an empty store has count 0.
    EFI_STATUS GetSelRecords(UINT8* Count, ELOG_SEL_DATA** Records);
    // Drops the bodies that were handed out last; those behind them go with the next transmission.
    EFI_STATUS ClearSelRecords();
    EFI_STATUS SendConsolidated(UINT8 Count, const ELOG_SEL_DATA* Records);
    EFI_STATUS LogMemoryHealthData(const VORN_MEMORY_HEALTH_REQUEST* Request, UINTN PayloadSize);

    // POST found errors that the BMC has not been told.
    void SetPostErrors(std::uint16_t Count) {
        PostErrors = Count;
    }
    const std::vector<ELOG_SEL_DATA>& Stored() const {
        return Store;
    }
    // The BMC's log: standard 16-byte records (IPMI 2.0, table 32-1), one behind the other.
    std::vector<std::uint8_t> SelRaw() const;

    struct SelRecord {
        std::uint32_t TimeStamp;
        ELOG_SEL_DATA Body;
    };
    // The BMC keeps its log while the machine is off.
    std::vector<SelRecord> TakeSel() {
        return std::exchange(Sel, {});
    }
    void PutSel(std::vector<SelRecord> From) {
        Sel = std::move(From);
    }

 private:
    Machine& Hardware;
    std::vector<ELOG_SEL_DATA> Store;
    std::size_t HandedOut = 0;
    std::vector<SelRecord> Sel;
    std::uint16_t PostErrors = 0;
    std::vector<std::uint8_t> PostCodes;
};

}  // namespace Simulator

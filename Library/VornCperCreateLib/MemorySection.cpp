#include "Library/VornCperCreateLib/MemorySection.h"

#include "Library/RasLib/StandIn.h"

UINT64 VornCperGetMemorySectionLength() {
    return sizeof(CPER_MEMORY_SECTION);
}

UINT64 VornCperGetMemoryRecordLength() {
    return sizeof(CPER_RECORD) + VornCperGetMemorySectionLength();
}

EFI_STATUS VornCperCreateMemory(UINT64, const RasMcaErrorInfo*, UINT32, UINT64, const NORMALIZED_ADDRESS*,
                                const DIMM_INFO*, BOOLEAN, UINT64, CPER_RECORD*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

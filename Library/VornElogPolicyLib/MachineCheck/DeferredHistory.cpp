#include "Library/VornElogPolicyLib/MachineCheck/DeferredHistory.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/CircularBuffer.h"
#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/RecordFields.h"

static constexpr UINT64 CACHE_LINE_MASK = ~UINT64{63};

static bool IsSameCacheLine(const ERROR_RECORD_BUFFER_ENTRY& Entry, UINT64 SystemAddress) {
    // Every record is read where a memory section holds its physical address, also a processor's, which holds
    // something else there. That is meant.
    const UINT64 Address = RecordField<UINT64>(Entry.pCper, CPER_MEMORY_PHYSICAL_ADDRESS_OFFSET);
    return (Address & CACHE_LINE_MASK) == (SystemAddress & CACHE_LINE_MASK);
}

static bool IsReported(const ERROR_RECORD_BUFFER_ENTRY& Entry, UINT32 Mode) {
    switch (Mode) {
        case MemoryUncorrectedEccPoisonDetection:
            return Entry.PoisonDetectionReported != FALSE;
        case MemoryUncorrectedEccPoisonConsumption:
            return Entry.PoisonConsumptionReported != FALSE;
        default:
            return Mode == AnyCachelineMatch;
    }
}

static const CHAR8* ModeName(UINT32 Mode) {
    switch (Mode) {
        case MemoryUncorrectedEccPoisonDetection:
            return "MemoryUncorrectedEccPoisonDetection";
        case MemoryUncorrectedEccPoisonConsumption:
            return "MemoryUncorrectedEccPoisonConsumption";
        case AnyCachelineMatch:
            return "any cacheline match";
        default:
            return "unknown mode";
    }
}

static ERROR_RECORD_BUFFER_ENTRY* FindDeferred(UINT32 Mode, UINT64 SystemAddress) {
    NewestFirst Walk(mPrivateDataVornElogPolicyLib.pMcaDeferredCircularBuffer);
    while (ERROR_RECORD_BUFFER_ENTRY* Entry = Walk.Next()) {
        if (IsSameCacheLine(*Entry, SystemAddress) && IsReported(*Entry, Mode)) {
            return Entry;
        }
    }
    return nullptr;
}

EFI_STATUS VornElogSmmIsDeferredErrorPreviouslyLogged(UINT32 Mode, UINT64 SystemAddress,
                                                      BOOLEAN* pPreviouslyLoggedDeferredRecordFound) {
    if (pPreviouslyLoggedDeferredRecordFound == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pPreviouslyLoggedDeferredRecordFound == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pPreviouslyLoggedDeferredRecordFound = FALSE;
    const CIRCULAR_BUFFER* pBuffer = mPrivateDataVornElogPolicyLib.pMcaDeferredCircularBuffer;
    if (pBuffer == nullptr || CircularBufferIsEmpty(pBuffer)) {
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: No deferred errors to process\n");
        return EFI_NOT_FOUND;
    }
    *pPreviouslyLoggedDeferredRecordFound = FindDeferred(Mode, SystemAddress) != nullptr;
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: %a, SystemAddress 0x%016lx: found %d\n", ModeName(Mode),
          SystemAddress, *pPreviouslyLoggedDeferredRecordFound);
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmGetPriorPoisonDetected(UINT64 SystemAddress, ERROR_RECORD_BUFFER_ENTRY** ppDeferredEntry) {
    if (ppDeferredEntry == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR ppDeferredEntry == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *ppDeferredEntry = FindDeferred(AnyCachelineMatch, SystemAddress);
    return EFI_SUCCESS;
}

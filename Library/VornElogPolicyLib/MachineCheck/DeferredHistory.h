// Searches of the deferred records by cache line.
#pragma once

#include "Include/ErrorRecordBuffer.h"

enum DEFERRED_SEARCH_MODE : UINT32 {
    MemoryUncorrectedEccPoisonDetection = 0,    // entries whose poison creation was reported
    MemoryUncorrectedEccPoisonConsumption = 1,  // entries whose poison consumption was reported
    AnyCachelineMatch = 2,
};

// Whether an entry of the 64-byte cache line that SystemAddress lies in matches the mode.
// Mode: DEFERRED_SEARCH_MODE; another value matches nothing.
// EFI_INVALID_PARAMETER: the result pointer is NULL. EFI_NOT_FOUND: there are no deferred records; *Found is FALSE.
EFI_STATUS VornElogSmmIsDeferredErrorPreviouslyLogged(UINT32 Mode, UINT64 SystemAddress,
                                                      BOOLEAN* pPreviouslyLoggedDeferredRecordFound);

// The newest entry of the cache line, NULL when there is none. The entry stays the ring's.
// EFI_INVALID_PARAMETER: ppDeferredEntry is NULL.
EFI_STATUS VornElogSmmGetPriorPoisonDetected(UINT64 SystemAddress, ERROR_RECORD_BUFFER_ENTRY** ppDeferredEntry);

// What the containers' operations share.
#pragma once

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/OperatingModes.h"

// Debug level of the containers' progress.
inline UINT64 ContainerDebugLevel() {
    return SerialDebugLevels().SerDbgLevelDetailed;
}

// False for a NULL buffer, which is traced in the name of the operation.
inline bool IsBufferGiven(const void* pBuffer, const CHAR8* Operation = __builtin_FUNCTION()) {
    if (pBuffer == nullptr) {
        TraceAs(Operation, DEBUG_ERROR, "%a: ERROR input parameter pBuffer == NULL on entry, aborting...\n");
    }
    return pBuffer != nullptr;
}

// The same for a queue.
inline bool IsQueueGiven(const void* pQueue, const CHAR8* Operation = __builtin_FUNCTION()) {
    if (pQueue == nullptr) {
        TraceAs(Operation, DEBUG_ERROR, "%a: ERROR input parameter pQueue == NULL on entry, aborting...\n");
    }
    return pQueue != nullptr;
}

// Back to empty, every slot zeroed; the two sizes stay.
inline void ClearSlots(BUFFER_HEADER* pBuffer) {
    pBuffer->Head = 0;
    pBuffer->Tail = 0;
    for (UINT64 At = 0; At < pBuffer->MaxElements; At++) {
        ZeroMem(BufferSlot<UINT8>(pBuffer, At), pBuffer->ElementSize);
    }
}

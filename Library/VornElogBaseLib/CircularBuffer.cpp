#include "Library/VornElogBaseLib/CircularBuffer.h"

#include "Library/VornElogBaseLib/ContainerTrace.h"

void CircularBufferClear(CIRCULAR_BUFFER* pBuffer) {
    if (!IsBufferGiven(pBuffer)) {
        return;
    }
    Trace(ContainerDebugLevel(), "%a: clearing %d slots\n", pBuffer->MaxElements);
    ClearSlots(pBuffer);
}

BOOLEAN CircularBufferAddElement(CIRCULAR_BUFFER* pBuffer, const void* pElement) {
    if (pBuffer == nullptr || pElement == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL on entry, aborting...\n");
        return FALSE;
    }
    // The element goes into the slot that is always free; only then the ring may turn out to be full.
    CopyMem(BufferSlot<UINT8>(pBuffer, pBuffer->Tail), pElement, pBuffer->ElementSize);
    if (CircularBufferIsFull(pBuffer) != FALSE) {
        pBuffer->Head++;
        if (pBuffer->Head % pBuffer->MaxElements == 0) {
            pBuffer->Head = 0;
        }
    }
    pBuffer->Tail++;
    if (pBuffer->Tail % pBuffer->MaxElements == 0) {
        pBuffer->Tail = 0;
    }
    Trace(ContainerDebugLevel(), "%a: Head %d Tail %d\n", pBuffer->Head, pBuffer->Tail);
    return TRUE;
}

BOOLEAN CircularBufferIsEmpty(const CIRCULAR_BUFFER* pBuffer) {
    return IsBufferGiven(pBuffer) && pBuffer->Head == pBuffer->Tail ? TRUE : FALSE;
}

BOOLEAN CircularBufferIsFull(const CIRCULAR_BUFFER* pBuffer) {
    return IsBufferGiven(pBuffer) && pBuffer->Head == (UINT64{pBuffer->Tail} + 1) % pBuffer->MaxElements ? TRUE
                                                                                                         : FALSE;
}

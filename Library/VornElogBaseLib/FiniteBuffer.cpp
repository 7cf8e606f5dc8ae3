#include "Library/VornElogBaseLib/FiniteBuffer.h"

#include "Library/VornElogBaseLib/ContainerTrace.h"

void FiniteBufferClear(FINITE_BUFFER* pBuffer) {
    if (!IsBufferGiven(pBuffer)) {
        return;
    }
    Trace(ContainerDebugLevel(), "%a: clearing %d of %d elements\n", pBuffer->Tail, pBuffer->MaxElements);
    ClearSlots(pBuffer);
}

BOOLEAN FiniteBufferAddElement(FINITE_BUFFER* pBuffer, const void* pElement) {
    if (pBuffer == nullptr || pElement == nullptr) {
        Trace(DEBUG_ERROR, "%a: One or more input parameters are NULL on entry, aborting...\n");
        return FALSE;
    }
    if (FiniteBufferIsFull(pBuffer) != FALSE) {
        return FALSE;
    }
    CopyMem(BufferSlot<UINT8>(pBuffer, pBuffer->Tail), pElement, pBuffer->ElementSize);
    pBuffer->Tail++;
    Trace(ContainerDebugLevel(), "%a: %d of %d elements\n", pBuffer->Tail, pBuffer->MaxElements);
    return TRUE;
}

BOOLEAN FiniteBufferIsEmpty(const FINITE_BUFFER* pBuffer) {
    return IsBufferGiven(pBuffer) && pBuffer->Head == pBuffer->Tail ? TRUE : FALSE;
}

BOOLEAN FiniteBufferIsFull(const FINITE_BUFFER* pBuffer) {
    return IsBufferGiven(pBuffer) && pBuffer->Tail == pBuffer->Head + pBuffer->MaxElements ? TRUE : FALSE;
}

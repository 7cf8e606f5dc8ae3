// A fixed number of slots that fill from the front and are emptied all at once. The creator allocates header
// and slots in one block, stores MaxElements and ElementSize and clears. Slots hold byte copies; what they point
// at belongs to whoever clears the buffer.
#pragma once

#include "Include/BoundedContainers.h"

// Empties the buffer and zeroes every slot; NULL does nothing.
void FiniteBufferClear(FINITE_BUFFER* pBuffer);

// Appends a copy of ElementSize bytes. FALSE when the buffer is full (nothing changes) or an argument is NULL.
BOOLEAN FiniteBufferAddElement(FINITE_BUFFER* pBuffer, const void* pElement);

// FALSE for NULL.
BOOLEAN FiniteBufferIsEmpty(const FINITE_BUFFER* pBuffer);
BOOLEAN FiniteBufferIsFull(const FINITE_BUFFER* pBuffer);

// A ring of slots that drops its oldest element when it is full; one slot always stays empty. Laid out and
// created like a FINITE_BUFFER; MaxElements must not be 0.
#pragma once

#include "Include/BoundedContainers.h"

// Empties the ring and zeroes every slot; NULL does nothing.
void CircularBufferClear(CIRCULAR_BUFFER* pBuffer);

// Appends a copy of ElementSize bytes, dropping the oldest element when full. FALSE when an argument is NULL.
BOOLEAN CircularBufferAddElement(CIRCULAR_BUFFER* pBuffer, const void* pElement);

// FALSE for NULL.
BOOLEAN CircularBufferIsEmpty(const CIRCULAR_BUFFER* pBuffer);
BOOLEAN CircularBufferIsFull(const CIRCULAR_BUFFER* pBuffer);

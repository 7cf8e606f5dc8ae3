// Headers of the driver's containers. Users walk slots and nodes themselves, so the layout is an interface.
#pragma once

#include "Include/Layout.h"

// The slots follow the header, MaxElements of ElementSize bytes each.
struct BUFFER_HEADER {
    UINT64 MaxElements;
    UINT64 ElementSize;
    UINT32 Head;  // oldest element
    UINT32 Tail;  // slot that is written next
};
KYR_RECORD(BUFFER_HEADER, 24);
KYR_FIELD(BUFFER_HEADER, ElementSize, 8);
KYR_FIELD(BUFFER_HEADER, Head, 16);
KYR_FIELD(BUFFER_HEADER, Tail, 20);

// Fills from the front and is emptied all at once.
struct FINITE_BUFFER : BUFFER_HEADER {};
KYR_RECORD(FINITE_BUFFER, 24);

// Drops its oldest element when full; one slot always stays empty.
struct CIRCULAR_BUFFER : BUFFER_HEADER {};
KYR_RECORD(CIRCULAR_BUFFER, 24);

struct QUEUE_NODE {
    void* pData;  // the node's own copy
    QUEUE_NODE* pNext;
};
KYR_RECORD(QUEUE_NODE, 16);

struct QUEUE {
    UINT32 NumElements;
    QUEUE_NODE* pHead;  // oldest
    QUEUE_NODE* pTail;  // newest
};
KYR_RECORD(QUEUE, 24);
KYR_FIELD(QUEUE, pHead, 8);
KYR_FIELD(QUEUE, pTail, 16);

// Slot Index of a buffer whose elements are Element records.
template <class Element>
Element* BufferSlot(BUFFER_HEADER* Buffer, UINT64 Index) {
    return reinterpret_cast<Element*>(reinterpret_cast<UINT8*>(Buffer + 1) + Index * Buffer->ElementSize);
}

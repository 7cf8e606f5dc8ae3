// Memory base address registers of a function (PCI Express Base 6.0, section 7.5.1.2.1).
#pragma once

#include "Platform/Base.h"

struct MEMORY_BAR {
    UINT64 Base;   // bytes
    UINT64 Size;   // bytes, a power of two
    BOOLEAN Is64;  // takes the next register as its upper half
};

// Reads a memory BAR and sizes it (all ones written and read back, the old value restored). Function: segment address
// of the function, register 0. Index: 0 to 5, 0 and 1 for a type 1 header. False, with *Bar zeroed, for an IO BAR,
// one that decodes nothing, one whose upper half would lie outside the header's registers, or an Index out of range.
bool GetMemoryBar(UINT64 Function, UINT8 Index, MEMORY_BAR* Bar);

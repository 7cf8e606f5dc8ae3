// Memory base address registers of a function (PCI Express Base 6.0, section 7.5.1.2.1).
#pragma once

#include "Platform/Base.h"

struct MEMORY_BAR {
    UINT64 Base;   // bytes
    UINT64 Size;   // bytes, a power of two
    BOOLEAN Is64;  // takes the next register as its upper half
};

// A memory BAR as sizing shows it. An address is decoded when its bits under SizeMask are Base.
struct SIZED_MEMORY_BAR {
    UINT64 Base;
    UINT64 SizeMask;  // 0: nothing is decoded
    bool Is64;        // takes the next register as its upper half
};

// Sizes the BAR (all ones written and read back, the old value restored). Function: segment address of the function,
// register 0. Index: below Count, the number of base address registers of its header. False for an IO BAR and for one
// whose upper half would lie outside these registers; neither is written.
bool SizeMemoryBar(UINT64 Function, UINT8 Index, UINT8 Count, SIZED_MEMORY_BAR* Bar);

// Reads a memory BAR and sizes it (all ones written and read back, the old value restored). Function: segment address
// of the function, register 0. Index: 0 to 5, 0 and 1 for a type 1 header. False, with *Bar zeroed, for an IO BAR,
// one that decodes nothing, one whose upper half would lie outside the header's registers, or an Index out of range.
bool GetMemoryBar(UINT64 Function, UINT8 Index, MEMORY_BAR* Bar);

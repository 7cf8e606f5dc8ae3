// System Management Network registers, through the index/data pair of a root complex. The pair is not locked:
// callers run inside one SMI handler at a time on one processor.
#pragma once

#include "Platform/Base.h"

// Selects the root complex that routes an access: PCI segment and base bus number.
constexpr UINT32 SmnSegBus(UINT8 Segment, UINT8 Bus) {
    return static_cast<UINT32>(Segment) << 8 | Bus;
}

// What an absent device reads as.
inline constexpr UINT32 SMN_NO_ANSWER = 0xFFFFFFFF;

// SegBus: bus in bits 7:0, PCI segment in bits 23:8. Address: SMN address in bytes.
void RasSmnRead(UINT32 SegBus, UINT32 Address, UINT32* Value);

void RasSmnWrite(UINT32 SegBus, UINT32 Address, const UINT32* Value);

// Value = (Value & AndMask) | OrMask; not atomic with respect to other processors.
void RasSmnRW(UINT32 SegBus, UINT32 Address, UINT32 AndMask, UINT32 OrMask);

// Events that carry the contents of registers.
#pragma once

#include "Platform/Base.h"

// Sends each non-zero byte of a configuration register. RegisterOffset in bytes.
void ElogLogRegisterInfo(UINT16 RegisterOffset, UINT32 Value);

// Sends the address and value of a chipset register as three bodies; nothing when Value is 0.
void ElogLogMmioChipsetInfo(UINT32 Address, UINT32 Value);

// ErrorFlags: bit 0 POST errors, bit 1 errors of the previous boot, bit 2 memory-training errors.
void ElogLogErrorInfo(UINT8 ErrorFlags, UINT8 Data);

// Sends a doubleword of the CXL RAS capability structure: its low half, and its high half when that is not 0.
// Offset in bytes.
void ElogLogCxlRasCapabilityStructure(UINT8 Offset, UINT32 Value);

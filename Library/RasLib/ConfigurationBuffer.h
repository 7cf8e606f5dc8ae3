// The silicon maker's configuration buffer.
#pragma once

#include "Platform/Services.h"

// Locates the buffer's service. EFI_NOT_FOUND without one; SetTalvoCfg8 is then dropped.
EFI_STATUS KyrCfgPcdBufLibDxeConstructor(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

// Stores an 8-bit value under its identifier.
void SetTalvoCfg8(UINT32 Uid, UINT8 Value);

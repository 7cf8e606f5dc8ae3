// Downstream port containment: who handles it, and the check that the OS asks for after a recovery.
#pragma once

#include "Platform/Base.h"

// Whether the OS has taken over containment for the port of this function.
BOOLEAN IsDpcAwareOs(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func);

// Handler of the software SMI that the OS raises after a recovery (_OST): checks what lies below contained ports.
EFI_STATUS VornElogSmmHandlerPcieDpcCheckDownstream(EFI_HANDLE DispatchHandle, const void* Context, void* CommBuffer,
                                                    UINTN* CommBufferSize);

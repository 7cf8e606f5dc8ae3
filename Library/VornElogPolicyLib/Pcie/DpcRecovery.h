// The check that follows the OS's recovery of contained ports.
#pragma once

#include "Platform/Services.h"

// Handler of the software SMI that the ACPI code raises after the OS told the outcome of a recovery (_OST): looks at
// every port with an outcome, logs what lies below it, and holds it in containment where it was not recovered.
// EFI_NOT_FOUND: the platform shares no memory with its ACPI code; the status of sending the events; EFI_SUCCESS.
EFI_STATUS VornElogSmmHandlerPcieDpcCheckDownstream(EFI_HANDLE DispatchHandle, const void* Context, void* CommBuffer,
                                                    UINTN* CommBufferSize);

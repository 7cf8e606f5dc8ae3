// Platform configuration values, read by token.
#pragma once

#include "Platform/Services.h"

// Finds the service that the readers below ask. EFI_SUCCESS, or the status of the locate: values read 0 then.
EFI_STATUS PcdLibConstructor(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

// An 8-bit value; 0 while the service is missing.
UINT8 LibPcdGet8(UINTN TokenNumber);

// A boolean value; FALSE while the service is missing.
BOOLEAN LibPcdGetBool(UINTN TokenNumber);

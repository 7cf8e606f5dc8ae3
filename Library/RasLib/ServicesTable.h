// The tables that every later constructor calls through.
#pragma once

#include "Platform/Services.h"

// Sets gBS from the system table and gSmst through the SMM base protocol (PI 1.8, volume 4, section 4).
// EFI_INVALID_PARAMETER without a system table or boot services; the status of the locate or of
// GetSmstLocation when the SMM system table cannot be had; EFI_SUCCESS. After a failure gSmst is a table that
// finds nothing and gives nothing, so that what comes next fails by its own rules.
EFI_STATUS SmmServicesTableLibConstructor(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

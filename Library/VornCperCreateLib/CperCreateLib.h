// Constructor and destructor of the record library.
#pragma once

#include "Platform/Services.h"

// Copies the memory interface's DIMM map and registers the handlers that SMBIOS data is handed to. EFI_LOAD_ERROR
// without the memory interface or memory for the map; else the status of the second registration.
EFI_STATUS VornCperCreateLibConstructor(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

// Takes the registrations back that still stand and frees the map. The statuses of that, folded.
EFI_STATUS VornCperCreateLibDestructor(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

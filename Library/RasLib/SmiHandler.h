// SMI handlers that other firmware calls by GUID.
#pragma once

#include "Platform/Services.h"

// Registers the handler. The services' status; *DispatchHandle is NULL after a failure.
EFI_STATUS RegisterSmiHandler(EFI_SMM_HANDLER_ENTRY_POINT2 Handler, const EFI_GUID& Guid, EFI_HANDLE* DispatchHandle);

// Takes a registration back. The services' status; a failure is traced in the name of Caller and leaves
// *DispatchHandle, success makes it NULL.
EFI_STATUS UnregisterSmiHandler(EFI_HANDLE* DispatchHandle, const EFI_GUID& Guid, const CHAR8* Caller);

// POST errors on their way to the BMC.
#pragma once

#include "Platform/Base.h"

// Makes VornElogSmmProcessPostErrors the handler of gElogLogPOSTErrorToBMCGuid.
EFI_STATUS VornElogSmmRegisterPostErrorsHandler();

// Takes the registration back where it still stands.
EFI_STATUS VornElogSmmUnregisterPostErrorsHandler();

// Forwards POST's message codes, logs that there were errors and lets the BMC have them. Runs once: it unregisters
// itself as soon as the BMC's error count could be read.
// CommBuffer: one byte that is skipped, then the message-code area. CommBufferSize: bytes.
// EFI_INVALID_PARAMETER: a buffer that is NULL, too short or inside SMRAM. EFI_NOT_FOUND: no errors are waiting.
// Else the status of the first service that failed.
EFI_STATUS VornElogSmmProcessPostErrors(EFI_HANDLE DispatchHandle, const void* Context, void* CommBuffer,
                                        UINTN* CommBufferSize);

// The OS asks, through its _DSM, to have a root port prepared for containment that it manages itself.
#pragma once

#include "Platform/Services.h"

EFI_STATUS VornSmmHandlerPcieDpcConfigIioSmiGeneration(EFI_HANDLE DispatchHandle, const void* Context,
                                                       void* CommBuffer, UINTN* CommBufferSize);

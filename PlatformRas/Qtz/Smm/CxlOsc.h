// The OS evaluates CXL _OSC or hands a CXL error request over.
#pragma once

#include "Platform/Protocol/SwDispatch.h"

EFI_STATUS KyrCxlOscCallback(EFI_HANDLE DispatchHandle, const FCH_SMM_SW_REGISTER_CONTEXT* Context, void* CommBuffer,
                             UINTN* CommBufferSize);

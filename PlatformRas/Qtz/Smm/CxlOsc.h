// Who owns the CXL error controls, the OS or the firmware: the negotiation by _OSC (CXL 3.0, section 9.18.2).
#pragma once

#include "Platform/Protocol/SwDispatch.h"

// The OS evaluates _OSC of a CXL host bridge: takes the controls that it may not have out of the control doubleword
// in the CXL policy data. EFI_NOT_FOUND without CXL policy data; EFI_SUCCESS.
EFI_STATUS KyrCxlOscCallback(EFI_HANDLE DispatchHandle, const FCH_SMM_SW_REGISTER_CONTEXT* Context, void* CommBuffer,
                             UINTN* CommBufferSize);

// Traces the support and the control doubleword.
void SmmPrintCxlOscData(UINT32 Dword4, UINT32 Dword5);

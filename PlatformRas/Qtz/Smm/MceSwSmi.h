// The machine-check SMI: scans the machine-check banks of every processor with a source, decides what the OS
// sees of each error, and has what was found reported once at the end.
#pragma once

#include "Platform/Protocol/SwDispatch.h"

// Re-arming of thresholds on the re-cloak path happens only when this is 1, and nothing ever changes it.
extern UINT32 mMcaThresholdRearmOnRecloak;

// Software-SMI handler; none of its arguments is read. EFI_OUT_OF_RESOURCES (or the allocator's status) when the
// status list cannot be allocated, else EFI_SUCCESS whatever the scan met.
EFI_STATUS KyrMcetoSmiCallback(EFI_HANDLE DispatchHandle, const FCH_SMM_SW_REGISTER_CONTEXT* Context,
                               void* CommBuffer, UINTN* CommBufferSize);

// Results of VornMcaErrorHandle.
inline constexpr UINT8 MCA_ERROR_HANDLED = 0;
inline constexpr UINT8 MCA_ERROR_NULL_FLAG = 2;

// Scans one processor's banks, logs every error and consumes or forwards it. Sets the flag when what was logged
// asks for post-processing. MCA_ERROR_NULL_FLAG when the flag pointer is NULL, else MCA_ERROR_HANDLED.
UINT8 VornMcaErrorHandle(UINT64 ProcessorNumber, BOOLEAN* pIsPostProcessingRequired);

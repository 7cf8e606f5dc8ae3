// Repair of DRAM rows while the system runs: start and completion.
#pragma once

#include "Platform/Base.h"

// Prepares runtime repair where the platform wants it; called once when the driver starts. After a failure runtime
// repair is disabled, in the platform's settings too, and nothing that it took is kept.
// EFI_SUCCESS, also when the platform does not want it; EFI_OUT_OF_RESOURCES; EFI_NOT_FOUND without a PSP mailbox;
// the status of the protocol's installation.
EFI_STATUS RuntimePprInit();

// The PSP is done. *pRepairStatus: 0, or why the repairs failed. Verifies the repaired rows.
// EFI_INVALID_PARAMETER: pRepairStatus is NULL.
EFI_STATUS PspRuntimePprCompletion(const UINT32* pRepairStatus);

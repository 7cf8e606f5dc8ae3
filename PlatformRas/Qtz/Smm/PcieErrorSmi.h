// Root complexes report errors of their ports. The dispatcher calls the handler of every root complex in one SMI;
// each scans and dispatches its own, the last one ends the SMI for all.
#pragma once

#include "Platform/Protocol/SwDispatch.h"

// Handlers that have run in this SMI, and whether one of them found an error; both 0 between SMIs.
extern UINT64 NumPcieRbCallbacksProcessed;
extern UINT8 PciErrorsDetected;

// Handler of one root complex, which the context names by socket and IO hub. EFI_SUCCESS: whatever fails is traced.
EFI_STATUS KyrPcieLegacyRasSmiCallback(EFI_HANDLE DispatchHandle, const FCH_SMM_APU_RAS_REGISTER_CONTEXT* Context);

// Prints the global error status of every root complex.
void VornDisplayRasGlobalStatus(UINT64 DebugLevel);

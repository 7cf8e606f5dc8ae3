// Memory health events for the BMC.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/RuntimePpr.h"

enum HOST_ECC_EVENT_TYPE : UINT8 {
    HostEccPoisonCreation = 1,
    HostEccCeccThreshold = 2,
    HostEccDiagnosticModeCorrectedEccError = 3,
    HostEccPoisonConsumption = 4,
};

// Sends the "Host ECC" event of the memory error that MemErrLocation and the chipset data name.
// EFI_INVALID_PARAMETER: pKyrChipsetSupportData is NULL, or the error has no normalized address or no DIMM address;
// EFI_UNSUPPORTED: no machine-check data, or the DIMM is not active; else the status of the locate, of the allocation
// or of the transmission.
EFI_STATUS VornElogSmmProcessMemoryHealthEventHostEcc(const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                                      UINT8 HostEccEventType);

// Sends the event of a row's repair at run time and what it came to, a RUNTIME_PPR_RESULT.
// EFI_INVALID_PARAMETER: pEntry is NULL; else the status of the locate or of the transmission.
EFI_STATUS VornElogSmmProcessMemoryHealthEventRtPpr(const RUNTIME_PPR_CHECK_ENTRY* pEntry, UINT8 Result);

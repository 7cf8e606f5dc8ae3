// Memory health events for the BMC.
#pragma once

#include "Include/ChipsetSupportData.h"

enum HOST_ECC_EVENT_TYPE : UINT8 {
    HostEccPoisonCreation = 1,
    HostEccCeccThreshold = 2,
    HostEccDiagnosticModeCorrectedEccError = 3,
    HostEccPoisonConsumption = 4,
};

// Sends the "Host ECC" event of the memory error that MemErrLocation and the chipset data name.
EFI_STATUS VornElogSmmProcessMemoryHealthEventHostEcc(const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                                      UINT8 HostEccEventType);

// Memory error records: filing, location, corrected post-processing.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

// Files a memory record in the buffer of its class. Failures are traced. A storm may clear the overflow bit of the
// bank's counter in pKyrChipsetSupportData.
void VornElogSmmProcessErrorRecordMemory(const CPER_RECORD* pCper, KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData);

// Decodes the DIMM of a memory record into MemErrLocation of the private data.
// EFI_NOT_FOUND: not a memory record, or its location is not valid.
EFI_STATUS VornElogSmmGetMemErrorLocation(const CPER_RECORD* pCper);

// Counts or reports one corrected memory record. *pIsOsNotificationRequired tells whether the OS must be told; it is
// left as it is where nothing says so.
void VornElogSmmPostProcessErrorRecordCorrectedMemory(CPER_RECORD* pCper,
                                                      KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                                      BOOLEAN* pIsOsNotificationRequired);

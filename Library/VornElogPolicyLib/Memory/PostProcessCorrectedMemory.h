// Corrected memory records at the end of an SMI.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

// Counts (production mode) or reports (diagnostic mode) one corrected memory record. *pIsOsNotificationRequired tells
// whether the OS must be told; it is left as it is where nothing says so.
void VornElogSmmPostProcessErrorRecordCorrectedMemory(CPER_RECORD* pCper,
                                                      KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                                      BOOLEAN* pIsOsNotificationRequired);

// Diagnostic mode: SEL event and health event of the record whose DIMM MemErrLocation names; asks for the OS to be
// told.
void VornElogSmmPostProcessErrorRecordCorrectedMemoryDiagnostic(const CPER_RECORD* pCper,
                                                                KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                                                BOOLEAN* pIsOsNotificationRequired);

// Filing of a processor's machine-check record.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

// Classifies the record by its bank's MCA_STATUS and files a copy in the buffer of its class. A corrected or
// transparent error is filed in diagnostic mode only; in every mode it is counted for storms, and a storm switches
// the bank's interrupt source off. Failures are traced.
void VornElogSmmProcessErrorRecordMachineCheck(const CPER_RECORD* pCper,
                                               KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData);

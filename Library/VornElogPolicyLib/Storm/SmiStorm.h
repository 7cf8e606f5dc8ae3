// Detection of sources that keep the processors in SMM.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

// Counts the record against its source. *pStormDetected is TRUE when the source's SMIs must be switched off.
EFI_STATUS VornElogSmmCheckSmiStorm(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                    BOOLEAN* pStormDetected);

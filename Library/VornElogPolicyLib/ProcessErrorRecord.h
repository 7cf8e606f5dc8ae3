// The one door through which error records enter the policy engine.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

// Hands the record to the processing of its section type, which files a copy of it and of the chipset data; both
// stay the caller's. The processing may clear overflow bits of the bank in pKyrChipsetSupportData.
// pCper: a complete record of Header.RecordLength bytes (UEFI 2.10, appendix N).
// EFI_INVALID_PARAMETER: a NULL pointer, or a record too short for its header and section descriptor.
// EFI_SUCCESS otherwise: the processing of the kind traces its own failures.
EFI_STATUS VornElogSmmProcessErrorRecord(const CPER_RECORD* pCper, KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData);

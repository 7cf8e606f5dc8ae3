// Whether a source of errors fires so often that its interrupts must be switched off.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

// Counts the record against the earlier ones of its kind from its source: expires the storm queue against the
// record's time stamp, appends the record and counts. *pStormDetected is TRUE when the source's interrupts must be
// switched off, FALSE otherwise and after every failure. EFI_INVALID_PARAMETER: an argument is NULL, the record is
// shorter than its front or, for a machine check, names no bank. EFI_UNSUPPORTED: an informational record; it is not
// counted. EFI_NOT_FOUND: the function that a PCIe or CXL record names was not captured in this SMI. The queue's
// status when the record could not be kept. EFI_SUCCESS.
EFI_STATUS VornElogSmmCheckSmiStorm(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                    BOOLEAN* pStormDetected);

// The answer alone; a failure is traced in the name of Caller and counts as no storm.
bool IsStormDetected(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                     const CHAR8* Caller = __builtin_FUNCTION());

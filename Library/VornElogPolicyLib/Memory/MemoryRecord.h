// Memory error records: filing and location.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

// Files a copy of a memory record in the buffer of its class, in every mode, and switches the bank's interrupt source
// off when the record is one too many. Failures are traced. A storm clears the overflow bit of the bank's counter in
// pKyrChipsetSupportData.
void VornElogSmmProcessErrorRecordMemory(const CPER_RECORD* pCper, KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData);

// Decodes the DIMM of a memory record into MemErrLocation of the private data. The values are the record's and may
// name no DIMM of the machine.
// EFI_NOT_FOUND: not a memory record, or its location is not valid; EFI_INVALID_PARAMETER: pCper is NULL.
EFI_STATUS VornElogSmmGetMemErrorLocation(const CPER_RECORD* pCper);

// Whether MemErrLocation names a rank of an active DIMM; traced, in the name of Caller, where it does not. Nothing
// may be indexed by it before.
bool VornElogSmmIsMemErrLocationActive(const CHAR8* Caller = __builtin_FUNCTION());

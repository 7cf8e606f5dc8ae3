// Deferred records at the end of an SMI.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

// Logs the deferred records that are new since the last pass, newest first, and tells the OS once where any of them
// asks for it.
void VornElogSmmPostProcessErrorRecordsDeferred();

// Reports a poison creation whose DIMM is in MemErrLocation: SEL record, memory health event and, in production
// mode where IsPprOnUceEnabled says so, a repair request.
void VornElogSmmPostProcessErrorRecordDeferredMemory(const CPER_RECORD* pCper,
                                                     KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                                     BOOLEAN IsPprOnUceEnabled);

// What the records of machine-check banks have in common on their way into a buffer, processors' and memory's alike.
#pragma once

#include "Include/ErrorRecordBuffer.h"

// Whether both pointers are there, the chipset data hold a bank and the record is long enough for its section
// descriptor; traced, in the name of Caller, where not.
bool VornElogSmmIsBankRecord(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                             const CHAR8* Caller = __builtin_FUNCTION());

// Classifies a bank's record by its MCA_STATUS and fills pEntry with the class and copies. False, and nothing held,
// when the pool has no room. Traced in the name of Caller.
bool VornElogSmmMakeBankEntry(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                              ERROR_RECORD_BUFFER_ENTRY* pEntry, const CHAR8* Caller = __builtin_FUNCTION());

// Puts the entry into the buffer of its class: uncorrected, deferred or, where KeepCorrected says so, corrected. A
// buffer that refuses it, and a class that has none, is traced in the name of Caller.
void VornElogSmmFileEntry(const ERROR_RECORD_BUFFER_ENTRY& Entry, bool KeepCorrected,
                          const CHAR8* Caller = __builtin_FUNCTION());

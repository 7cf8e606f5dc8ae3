// Index of a bank in a machine-check scan.
#pragma once

#include "Include/McaErrorInfo.h"
#include "Library/RasLib/Trace.h"

// Whether a scan can hold the index; traced, in the name of Caller, where it cannot.
inline bool IsBankIndexInRange(UINT32 BankIndex, const CHAR8* Caller = __builtin_FUNCTION()) {
    if (BankIndex < MCA_BANK_ERROR_INFO_MAX) {
        return true;
    }
    TraceAs(Caller, DEBUG_ERROR, "%a: ERROR BankIndex %d >= Max %d, aborting...\n", BankIndex,
            MCA_BANK_ERROR_INFO_MAX);
    return false;
}

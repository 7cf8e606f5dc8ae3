// Decoded trace of a bank's registers.
#pragma once

#include "Include/McaErrorInfo.h"

// Prints every register of the bank and its fields; no decision depends on it.
void TraceMcaBank(UINT64 Level, const RasMcaErrorInfo& Info, const MCA_BANK_ERROR_INFO& Bank);

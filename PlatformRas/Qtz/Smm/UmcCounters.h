// Corrected-error counters of the memory controllers.
#pragma once

#include "Include/ChipsetSupportData.h"

// How many corrected errors the counters of the error's chip select took since they were last read.
EFI_STATUS VornGetUmcCeccErrorCounterDelta(UINT64 Level, const KYR_CHIPSET_SUPPORT_DATA* ChipsetSupportData,
                                           UmcCeccPfaThresholdData* ThresholdData);

// What a rank's corrected errors lead to as they grow.
#pragma once

#include "Include/PolicyPrivateData.h"

// Counts of corrected errors of a rank, from the count that foretells the DIMM's failure.
struct CECC_THRESHOLDS {
    UINT32 PageRetire;
    UINT32 Warning;
    UINT32 Critical;
};
constexpr CECC_THRESHOLDS CeccThresholds(UINT32 SwThresholdCount) {
    return {SwThresholdCount / 8, SwThresholdCount / 2, SwThresholdCount};
}

// The record of a corrected error and the rank that it counts for, which MemErrLocation names.
struct CECC_RECORD {
    CPER_RECORD* pCper;
    KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData;
    RANK_DATA* pRankData;
    const CHAR8* Caller;  // in whose name is traced
};

// Asks for the repair of the rank's row with the most errors, sends the health event and empties the row history.
void VornElogSmmCrossWarningThreshold(const CECC_RECORD& Crossing);

// The same, with the SEL event where "CECriticalSEL" asks for it, the DIMM's counters switched off and the OS told.
void VornElogSmmCrossCriticalThreshold(const CECC_RECORD& Crossing);

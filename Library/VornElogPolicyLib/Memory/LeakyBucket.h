// The leaky bucket of corrected errors that each rank has.
#pragma once

#include "Include/PolicyPrivateData.h"

// Production mode: counts the record's errors against the rank that MemErrLocation names and does what the thresholds
// that are crossed ask for. The flag becomes FALSE: what the OS must be told it is told from here.
void VornElogSmmPostProcessErrorRecordCorrectedMemoryThreshold(CPER_RECORD* pCper,
                                                               KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                                               BOOLEAN* pIsOsNotificationRequired);

// Store the record's time as that of the rank's previous, of its current error. MemErrLocation is traced only.
void VornElogSmmUpdateCeccLeakyBucketPreviousTimestampData(const CPER_RECORD* pCper,
                                                           const MEM_ERR_LOCATION& MemErrLocation,
                                                           RANK_DATA* pRankData);
void VornElogSmmUpdateCeccLeakyBucketCurrentTimestampData(const CPER_RECORD* pCper,
                                                          const MEM_ERR_LOCATION& MemErrLocation,
                                                          RANK_DATA* pRankData);

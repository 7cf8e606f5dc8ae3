// Switching a bank's interrupt source off after a storm.
#pragma once

#include "Include/ChipsetSupportData.h"

// Request for the bank that the chipset data are about. ThresholdType: which counter of the bank.
MCA_THRESHOLD_DISABLE_REQUEST VornElogSmmThresholdDisableRequest(const KYR_CHIPSET_SUPPORT_DATA& ChipsetData,
                                                                 UINT32 ThresholdType);

// Switch off the bank's threshold counter, its logging of transparent errors. The RAS service's status; a failure is
// traced in the name of Caller.
EFI_STATUS VornElogSmmDisableThreshold(const KYR_CHIPSET_SUPPORT_DATA& ChipsetData, UINT32 ThresholdType,
                                       const CHAR8* Caller = __builtin_FUNCTION());
EFI_STATUS VornElogSmmDisableTransparentErrorLogging(const KYR_CHIPSET_SUPPORT_DATA& ChipsetData,
                                                     const CHAR8* Caller = __builtin_FUNCTION());

// Requests that switch a bank's interrupt source off.
#pragma once

#include "Include/ChipsetSupportData.h"

// Request for the bank that the chipset data are about. ThresholdType: which counter of the bank.
MCA_THRESHOLD_DISABLE_REQUEST VornElogSmmThresholdDisableRequest(const KYR_CHIPSET_SUPPORT_DATA& ChipsetData,
                                                                 UINT32 ThresholdType);

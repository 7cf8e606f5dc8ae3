// Requests for DRAM post-package repair.
#pragma once

#include "Include/ChipsetSupportData.h"

enum PPR_TYPE : UINT16 { PPR_WARNING = 1, PPR_CRITICAL = 2, PPR_DEFER = 3, PPR_UNCORRECT = 4 };

// Asks for the repair of the row that the chipset data name: at the next boot and, where runtime repair is enabled,
// while the system runs. A row that cannot be repaired is no failure.
// EFI_INVALID_PARAMETER: pKyrChipsetSupportData is NULL; else the status of the repair service's member that failed
// first.
EFI_STATUS VornElogSmmRequestPpr(const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData, UINT16 PprType);

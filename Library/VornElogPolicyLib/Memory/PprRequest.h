// Requests for DRAM post-package repair.
#pragma once

#include "Include/ChipsetSupportData.h"

enum PPR_TYPE : UINT16 { PPR_WARNING = 1, PPR_CRITICAL = 2, PPR_DEFER = 3, PPR_UNCORRECT = 4 };

// Asks for the repair of the row that the chipset data name; their DRAM device range may be filled on the way.
EFI_STATUS VornElogSmmRequestPpr(KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData, UINT16 PprType);

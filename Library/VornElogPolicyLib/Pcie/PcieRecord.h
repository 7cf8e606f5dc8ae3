// PCIe error records.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

// Files a PCIe record in the PCI buffer.
EFI_STATUS VornElogSmmProcessErrorRecordPcie(const CPER_RECORD* pCper,
                                             KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData);

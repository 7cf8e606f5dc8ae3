// CXL error records on their way into the PCI buffer.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

// File a CXL component event or a CXL protocol error in the PCI buffer, and switch the function's reporting off when
// its errors come too fast. Statuses as of VornElogSmmProcessErrorRecordPcie.
EFI_STATUS VornElogSmmProcessErrorRecordCxlComponent(const CPER_RECORD* pCper,
                                                     KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData);
EFI_STATUS VornElogSmmProcessErrorRecordCxlProtocol(const CPER_RECORD* pCper,
                                                    KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData);

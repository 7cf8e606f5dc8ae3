// CXL error records.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

// Whether a section of this type holds a CXL component event.
BOOLEAN VornElogCxlCheckComponentEventSectionType(const EFI_GUID* pSectionType);

// File a CXL component event or a CXL protocol error in the PCI buffer.
EFI_STATUS VornElogSmmProcessErrorRecordCxlComponent(const CPER_RECORD* pCper,
                                                     KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData);
EFI_STATUS VornElogSmmProcessErrorRecordCxlProtocol(const CPER_RECORD* pCper,
                                                    KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData);

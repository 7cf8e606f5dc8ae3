// The record of a memory controller's bank with a platform memory error section (UEFI 2.10, appendix N.2.5).
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

// Bytes of the section and of the record.
UINT64 VornCperGetMemorySectionLength();
UINT64 VornCperGetMemoryRecordLength();

// Fills a zeroed record of CperLength bytes for bank BankIndex, whose error lies at SystemAddress (bytes) on the DIMM
// that pNormalizedAddress and pDimmInfo name. A DIMM without label or SMBIOS data goes without FRU text or handles.
// EFI_INVALID_PARAMETER for NULL pointers or a bank index that the scan cannot hold; EFI_BUFFER_TOO_SMALL when
// CperLength cannot hold the record; EFI_SUCCESS.
EFI_STATUS VornCperCreateMemory(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo, UINT32 BankIndex,
                                UINT64 SystemAddress, const NORMALIZED_ADDRESS* pNormalizedAddress,
                                const DIMM_INFO* pDimmInfo, BOOLEAN PreviousError, UINT64 CperLength,
                                CPER_RECORD* pCper);

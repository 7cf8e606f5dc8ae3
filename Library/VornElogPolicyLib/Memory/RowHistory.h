// The rows of each DIMM that had corrected errors, with their counts: which row a repair is worth most for. The
// messages call the history a hash table; it is a list, searched from the front.
#pragma once

#include "Include/Cper.h"
#include "Include/RowHistory.h"

// Whether the error symbol can be mapped to DRAM devices.
// EFI_INVALID_PARAMETER: a NULL pointer or no normalized address; EFI_UNSUPPORTED: not a DRAM ECC error, or one whose
// syndrome names no symbol. *pIsSupported is TRUE exactly with EFI_SUCCESS.
EFI_STATUS VornElogSmmIsDeviceDecodeSupported(const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                              BOOLEAN* pIsSupported);

// Looks for a row. EFI_SUCCESS whether or not it is there; *ppNode is NULL when it is not.
// EFI_INVALID_PARAMETER: a NULL pointer; EFI_NOT_FOUND: the list is empty.
EFI_STATUS VornElogSmmIsDdrRowAlreadyInHashTable(LIST_ENTRY* pUniqueRowIdentifierList, UINT8 ChipSelect,
                                                 UINT8 RankMul, UINT32 DeviceStart, UINT32 DeviceEnd, UINT8 Bank,
                                                 UINT32 Row, BOOLEAN* pIsPresent, UNIQUE_ROW_INSTANCE_NODE** ppNode);

// Counts the record's errors against its row; the row keeps copies of the latest record and chipset data. The DRAM
// device range is filled in the chipset data on the way. Rank is traced only: the history is the DIMM's.
// EFI_INVALID_PARAMETER: a NULL pointer, or a DIMM without a history; EFI_UNSUPPORTED: no device decode; else the
// status of the RAS service or of the allocation that failed. A row is not counted then.
EFI_STATUS VornElogSmmUpdateMemoryCeccHashTable(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, UINT8 Rank,
                                                const CPER_RECORD* pCper,
                                                KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData);

// The copies that the row with the most errors keeps, of equal ones the row that came last. They stay the history's,
// valid until it is cleared.
// EFI_INVALID_PARAMETER: a NULL pointer; EFI_NOT_FOUND: the history is empty.
EFI_STATUS VornElogSmmRetrieveMemoryCeccHashTableHighestRowCount(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm,
                                                                 UINT8 Rank, CPER_RECORD** ppCper,
                                                                 KYR_CHIPSET_SUPPORT_DATA** ppKyrChipsetSupportData);

// Empties the history of the DIMM; the rows of its other ranks go with those of Rank.
void VornElogSmmClearMemoryCeccHashTable(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, UINT8 Rank);

// Prints every row.
void VornElogSmmDisplayMemoryCeccHashTable(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, UINT8 Rank);

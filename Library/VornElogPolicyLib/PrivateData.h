// The policy engine's memory and the accessors by which the rest of the driver reaches it.
#pragma once

#include "Include/PolicyPrivateData.h"
#include "Library/VornElogChipsetLib/DimmLocation.h"

// Made by the constructor, never freed. Buffer, queue and protocol pointers may be NULL: whoever uses one tests it.
// Not so the RAS service: without it no record is kept that could need it.
extern VORN_ELOG_POLICY_PRIVATE_DATA mPrivateDataVornElogPolicyLib;

// Stores the address of the private data.
// EFI_INVALID_PARAMETER: ppPrivateData is NULL.
EFI_STATUS VornElogGetPrivateData(VORN_ELOG_POLICY_PRIVATE_DATA** ppPrivateData);

// TRUE when the DIMM slot is present and enabled. FALSE for a place that the machine cannot have.
// Level: debug level of the trace.
BOOLEAN VornElogSmmDimmActiveCheck(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm);

// Copies what a DIMM's corrected-error counter starts from.
// EFI_INVALID_PARAMETER: an index out of range or pInitData NULL; nothing is written.
EFI_STATUS VornElogSmmGetUmcEccErrCntInitData(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm,
                                              UmcEccErrCntRegInitData* pInitData);

// Makes the silicon maker's thresholds raise their interrupt on every error. The RAS service must be located.
EFI_STATUS VornElogSmmSetKyrRasPolicyDataForDiagnosticMode();

// Fills the accounting of one DIMM slot from its slot information: place, flags and, for an active DIMM, an empty
// row history, the thresholds and the counter's start value. RasErrorLoggingMode must be set before.
// Socket, UmcChannel and Dimm must be in range; pSlotInfo stays the memory interface's.
void VornElogSmmSeedDimmData(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, VORN_MEMORY_SLOT_INFO* pSlotInfo,
                             UINT8 DimmIndex);

// Print one DIMM, one rank, one page-retire entry field by field.
void VornElogSmmDisplayPrivateDataPerDimmData(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm);
void VornElogSmmDisplayPrivateDataPerRankData(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, UINT8 Rank);
void VornElogSmmDisplayPrivateDataEsxiMemPageRetireDataPerEntry(UINT64 Level, UINT32 Index,
                                                                const ESXI_PAGE_RETIRE_ENTRY* pEsxiPageRetireEntry);

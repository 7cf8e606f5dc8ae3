// The way of an event body to the BMC: into the vendor's store one by one, from there in one consolidated command.
#pragma once

#include "Include/MemorySlots.h"
#include "Include/SelData.h"
#include "Platform/Protocol/VendorServices.h"
#include "Platform/Services.h"

enum VORN_APPLY_PPR_TYPE : UINT32 { ApplyPprTypeNone = 0, ApplyPprTypeHard = 1, ApplyPprTypeSoft = 2 };

// What the event log library remembers.
struct VORN_ELOG_IPMI_PRIVATE_DATA {
    UINT64 SerDbgLevelConstructor;
    UINT64 SerDbgLevel;
    UINT64 SerDbgLevelDetailed;
    UINT16 NumDimmSlot;
    const DIMM_MAP_ENTRY* pDimmMap;  // the memory interface's own array of NumDimmSlot entries
    UINT32 ApplyPprType;             // VORN_APPLY_PPR_TYPE: the repair that memory events announce
    VORN_ELOG_IPMI_SMM_PROTOCOL* pVornElogIpmiProtocol;
    VORN_SMM_SEL_RECORD_PROTOCOL* pVornSelRecordProtocol;
    VORN_SMM_IPMI_SEL_SUPPORT_PROTOCOL* pVornIpmiSelSupportProtocol;
};
extern VORN_ELOG_IPMI_PRIVATE_DATA mPrivateDataVornElogIpmi;

// Takes the debug levels, the DIMM map of the memory interface and the default repair type (hard).
// EFI_NOT_FOUND when the memory interface is missing.
EFI_STATUS VornELogIpmiLibConstructor(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

// Stores one event body (IPMI 2.0, section 32.1) for the next transmission. The vendor's protocol is located on
// first use. A failure is traced and the event dropped.
void ElogBmcData(const ELOG_SEL_DATA* pSelRecord);

// Sends every stored body to the BMC and empties the store. EFI_SUCCESS also when nothing is stored; EFI_NOT_FOUND
// when a protocol or the store is missing; else the status of the member that failed. After a failed
// transmission the store stays: its bodies go out with the next successful one.
EFI_STATUS ElogSendSelLog();

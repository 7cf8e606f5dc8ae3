// PCIe error records: made from a captured function, filed in the PCI buffer.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"
#include "Include/PciDeviceState.h"

// Makes the record of a captured function's handled errors, legacy PCI or PCIe, and hands it with its chipset data to
// the policy engine. Nothing is made when the function handles nothing, no longer answered when it was captured, or
// memory runs out.
void VornElogSmmHandlePciError(const PCI_DEVICE_STATE* pPciDeviceState);

// What the record of a containment event tells the later steps; both FALSE for any other record.
struct DPC_RECORD_MARKS {
    BOOLEAN Event;
    BOOLEAN OsLoaded;  // the OS drives the recovery of the port
};

// The making alone, traced in the name of Caller.
void ReportPciFunction(const PCI_DEVICE_STATE& PciDeviceState, DPC_RECORD_MARKS Dpc,
                       const CHAR8* Caller = __builtin_FUNCTION());

// What the capture of a function left for the chipset data of its records.
void CopyChipsetDataOfFunction(const PCI_DEVICE_STATE& PciDeviceState, KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData);

// Files copies of the record and its chipset data in the PCI buffer, and switches the function's error reporting off
// when its errors come too fast. The record of a port whose containment counts its own errors is not counted.
// EFI_INVALID_PARAMETER: a NULL pointer or a record too short for its front. EFI_OUT_OF_RESOURCES: the buffer is full
// or missing; else the pool's status. The record is lost then; what a full buffer refuses stays allocated, as in
// every record buffer. EFI_NOT_FOUND: the source of a storm was not captured; else the status of switching it off.
// EFI_SUCCESS.
EFI_STATUS VornElogSmmProcessErrorRecordPcie(const CPER_RECORD* pCper,
                                             KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData);

// Steps that the records of CXL functions share; traced in the name of Caller. The filing alone:
EFI_STATUS FileRecordInPciBuffer(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                 const CHAR8* Caller = __builtin_FUNCTION());

// The queued state of the function that the record names, and its place; NULL, traced, when there is none.
PCI_DEVICE_STATE* DeviceStateOfRecord(const CPER_RECORD* pCper, PCI_SBDF* pSbdf,
                                      const CHAR8* Caller = __builtin_FUNCTION());

#include "Library/VornElogPolicyLib/Pcie/PciSlotData.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/VendorServices.h"

// The common part of both look-ups.
static EFI_STATUS GetSlotNumberData(const PCI_SBDF& Where, PCI_SLOT_NUMBER_DATA* pSlotNumberData,
                                    const CHAR8* Caller) {
    if (pSlotNumberData == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR pSlotNumberData == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    ZeroMem(pSlotNumberData, sizeof(*pSlotNumberData));
    const VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    if (Data.IsPciSlotDataLocated == FALSE) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR VornPciSlotData SMM protocol not available for PCIe slot number retrieval, aborting...\n");
        return EFI_NOT_READY;
    }
    const EFI_STATUS Status = Data.pVornPciSlotDataSmmProtocol->GetSlotNumberData(Where.Seg, Where.Bus, Where.Dev,
                                                                                  Where.Func, pSlotNumberData);
    TraceAs(Caller, Data.SerDbgLevelDetailed, "%a: SBDF %04X:%02X:%02X.%1X slot data %r\n", Where.Seg, Where.Bus,
            Where.Dev, Where.Func, Status);
    return Status;
}

EFI_STATUS RetrieveVornPciSlotDataSmmProtocol(const EFI_GUID*, void*, EFI_HANDLE) {
    VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    if (Data.IsPciSlotDataLocated != FALSE) {
        return EFI_SUCCESS;
    }
    const EFI_STATUS Status = LocateSmmProtocol(gVornPciSlotDataSmmProtocolGuid, &Data.pVornPciSlotDataSmmProtocol);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating gVornPciSlotDataSmmProtocolGuid %g\n", Status,
              &gVornPciSlotDataSmmProtocolGuid);
        return Status;
    }
    Data.IsPciSlotDataLocated = TRUE;
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmGetPcieSlotData(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                      PCI_SLOT_NUMBER_DATA* pSlotNumberData) {
    return GetSlotNumberData({Seg, Bus, Dev, Func}, pSlotNumberData, __func__);
}

PCI_SLOT_NUMBER_DATA SlotDataOf(const PCI_SBDF& Where, const CHAR8* Caller) {
    PCI_SLOT_NUMBER_DATA SlotNumberData{};
    const EFI_STATUS Status =
        VornElogSmmGetPcieSlotData(Where.Seg, Where.Bus, Where.Dev, Where.Func, &SlotNumberData);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornElogSmmGetPcieSlotData for SBDF %04X:%02X:%02X.%1X\n",
                Status, Where.Seg, Where.Bus, Where.Dev, Where.Func);
    }
    return SlotNumberData;
}

EFI_STATUS VornElogSmmGetPciSlotData(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                     PCI_SLOT_NUMBER_DATA* pSlotNumberData) {
    const EFI_STATUS Status = GetSlotNumberData({Seg, Bus, Dev, Func}, pSlotNumberData, __func__);
    if (!EFI_ERROR(Status)) {
        VornElogDisplayPciSlotNumberData(Seg, Bus, Dev, Func, pSlotNumberData);
    }
    return Status;
}

EFI_STATUS VornElogDisplayPciSlotNumberData(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                            const PCI_SLOT_NUMBER_DATA* pSlotNumberData) {
    if (pSlotNumberData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pSlotNumberData == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const UINT64 Level = mPrivateDataVornElogPolicyLib.SerDbgLevel;
    // Copies: the record is packed, and the trace takes its values by reference.
    const UINT32 DeviceType = pSlotNumberData->DeviceType;
    const UINT32 SlotNumber = pSlotNumberData->SlotNumber;
    if (DeviceType == PciSlotDeviceNvmeDrive) {
        Trace(Level, "%a: SBDF %04X:%02X:%02X.%1X Valid %d DeviceType %d BayId %d SlotId %d\n", Seg, Bus, Dev, Func,
              pSlotNumberData->Valid, DeviceType, pSlotNumberData->Drive.BayId, pSlotNumberData->Drive.SlotId);
    } else {
        Trace(Level, "%a: SBDF %04X:%02X:%02X.%1X Valid %d DeviceType %d SlotNumber %d\n", Seg, Bus, Dev, Func,
              pSlotNumberData->Valid, DeviceType, SlotNumber);
    }
    return EFI_SUCCESS;
}

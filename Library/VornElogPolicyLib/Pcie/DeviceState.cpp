#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/Queue.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/State.h"

KYR_STATE BOOLEAN DpcTriggerIoHubDataValid = FALSE;
KYR_STATE IO_HUB_DATA DpcTriggerIoHubData = {};
KYR_STATE BOOLEAN DpcTriggerPortMapEntryValid = FALSE;
KYR_STATE KYR_PCIE_PORT_MAP_ENTRY DpcTriggerPortMapEntry = {};

void ClearDpcTriggerSlot() {
    DpcTriggerIoHubDataValid = FALSE;
    DpcTriggerIoHubData = {};
    DpcTriggerPortMapEntryValid = FALSE;
    DpcTriggerPortMapEntry = {};
}

EFI_STATUS VornElogSmmAllocatePciDeviceStateMemory(PCI_DEVICE_STATE** ppPciDeviceState) {
    if (ppPciDeviceState == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR ppPciDeviceState == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const EFI_STATUS Status = AllocateZeroedRuntimeData(sizeof(PCI_DEVICE_STATE), ppPciDeviceState);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r allocating EfiRuntimeServicesData memory for ppPciDeviceState, aborting...",
              Status);
    }
    return Status;
}

EFI_STATUS VornElogSmmFreePciDeviceStateMemory(PCI_DEVICE_STATE** ppPciDeviceState) {
    if (ppPciDeviceState == nullptr || *ppPciDeviceState == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR *ppPciDeviceState == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    return FreeRuntimeData(*ppPciDeviceState);
}

EFI_STATUS VornElogRetrievePciDeviceState(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                          PCI_DEVICE_STATE** ppPciDeviceState) {
    if (ppPciDeviceState == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR ppPciDeviceState == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    for (const QUEUE_NODE* pNode = QueueHead(mPrivateDataVornElogPolicyLib.pQueuePciDeviceData); pNode != nullptr;
         pNode = pNode->pNext) {
        auto* pState = static_cast<PCI_DEVICE_STATE*>(pNode->pData);
        const PCI_SBDF At = SbdfOf(pState->PciAddress);
        if (At.Seg == Seg && At.Bus == Bus && At.Dev == Dev && At.Func == Func) {
            *ppPciDeviceState = pState;
            return EFI_SUCCESS;
        }
    }
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: SBDF %04X:%02X:%02X.%1X has no device state, exiting...\n",
          Seg, Bus, Dev, Func);
    return EFI_NOT_FOUND;
}

EFI_STATUS VornElogSmmClearPciDeviceStatusQueue() {
    const EFI_STATUS Status = QueueClear(mPrivateDataVornElogPolicyLib.pQueuePciDeviceData);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from QueueClear for mPrivateDataVornElogPolicyLib.pQueuePciDeviceData\n",
              Status);
    }
    return Status;
}

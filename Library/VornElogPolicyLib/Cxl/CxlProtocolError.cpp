#include "Library/VornElogPolicyLib/Cxl/CxlProtocolError.h"

#include "Include/ChipsetSupportData.h"
#include "Include/CxlRegisters.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornCperCreateLib/CxlSections.h"
#include "Library/VornElogPolicyLib/Pcie/HandleFlags.h"
#include "Library/VornElogPolicyLib/Pcie/PciSlotData.h"
#include "Library/VornElogPolicyLib/Pcie/PcieRecord.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/ProcessErrorRecord.h"

namespace {

constexpr const CHAR8* OPERATION = "VornElogSmmHandleCxlProtocolError";

void BuildAndProcess(const PCI_DEVICE_STATE& Device, const PCI_SLOT_NUMBER_DATA& Slot, UINT32 CperLength,
                     CPER_RECORD* pCper, KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData) {
    const PCI_SBDF Where = SbdfOf(Device.PciAddress);
    const EFI_STATUS Status =
        VornCperCreateCxlProtocol(mPrivateDataVornElogPolicyLib.SerDbgLevel, Where.Seg, Where.Bus, Where.Dev,
                                  Where.Func, &Slot, &Device, FALSE, CperLength, pCper);
    if (EFI_ERROR(Status)) {
        TraceAs(OPERATION, DEBUG_ERROR, "%a: ERROR %r from VornCperCreateCxlProtocol for SBDF %04X:%02X:%02X.%1X\n",
                Status, Where.Seg, Where.Bus, Where.Dev, Where.Func);
        return;
    }
    CopyChipsetDataOfFunction(Device, pKyrChipsetSupportData);
    VornElogSmmProcessErrorRecord(pCper, pKyrChipsetSupportData);
}

}  // namespace

void VornElogSmmHandleCxlProtocolError(const PCI_DEVICE_STATE* pPciDeviceState) {
    if (pPciDeviceState == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pPciDeviceState == NULL, aborting...\n");
        return;
    }
    if (CapturedRegister16(pPciDeviceState->PciHeader, PCI_STATUS) == PCI_STATUS_ABSENT) {
        Trace(DEBUG_ERROR, "%a: PCI Status = 0xFFFF, aborting...\n");
        return;
    }
    if (pPciDeviceState->Cxl.IsCxl == FALSE || !IsCxlProtocolErrorHandled(pPciDeviceState->Cxl.ErrorStatus)) {
        return;
    }
    const PCI_SLOT_NUMBER_DATA Slot = SlotDataOf(SbdfOf(pPciDeviceState->PciAddress));
    // Room for a device's captured registers, whatever the agent is: no agent has more.
    const UINT32 CperLength = static_cast<UINT32>(VornCperGetCxlProtocolRecordLength(
        CxlAgentDevice, pPciDeviceState->Cxl.DvsecValid, pPciDeviceState->Cxl.RasCapabilityValid));
    CPER_RECORD* pCper = nullptr;
    EFI_STATUS Status = AllocateZeroedRuntimeData(CperLength, &pCper);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r Unable to allocate EfiRuntimeServicesData memory for CXL Protocol CPER, aborting...\n",
              Status);
        return;
    }
    KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData = nullptr;
    Status = AllocateZeroedRuntimeData(sizeof(KYR_CHIPSET_SUPPORT_DATA), &pKyrChipsetSupportData);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r Unable to allocate EfiRuntimeServicesData memory for chipset support data, aborting...\n",
              Status);
    } else {
        BuildAndProcess(*pPciDeviceState, Slot, CperLength, pCper, pKyrChipsetSupportData);
        FreeRuntimeData(pKyrChipsetSupportData);
    }
    FreeRuntimeData(pCper);
}

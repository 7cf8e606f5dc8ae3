#include "Library/VornElogPolicyLib/Pcie/PcieRecord.h"

#include "Library/RasLib/Memory.h"
#include "Library/VornCperCreateLib/PcieSection.h"
#include "Library/VornElogBaseLib/FiniteBuffer.h"
#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/Pcie/HandleFlags.h"
#include "Library/VornElogPolicyLib/Pcie/PciSlotData.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/ProcessErrorRecord.h"
#include "Library/VornElogPolicyLib/RecordFields.h"
#include "Library/VornElogPolicyLib/RecordFunction.h"
#include "Library/VornElogPolicyLib/Storm/ShutdownPcie.h"
#include "Library/VornElogPolicyLib/Storm/SmiStorm.h"

static bool IsHandled(const PCI_DEVICE_STATE& State) {
    return State.PcieCapabilityOffset == 0 ? State.LegacyPci.Handle != FALSE
                                           : IsPcieErrorOrDpcEventHandled(State.Pcie.ErrorStatus);
}

void CopyChipsetDataOfFunction(const PCI_DEVICE_STATE& PciDeviceState,
                               KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData) {
    static_assert(sizeof(PciDeviceState.ChipsetData) == sizeof(pChipsetSupportData->Pci.ChipsetData));
    if (PciDeviceState.ChipsetDataValid != FALSE) {
        CopyMem(pChipsetSupportData->Pci.ChipsetData, PciDeviceState.ChipsetData, sizeof(PciDeviceState.ChipsetData));
    }
}

static void FreeBlock(void* Block, const CHAR8* Caller) {
    const EFI_STATUS Status = FreeRuntimeData(Block);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from SmmFreePool\n", Status);
    }
}

static void MakeRecord(const PCI_DEVICE_STATE& State, const PCI_SLOT_NUMBER_DATA& SlotNumberData, CPER_RECORD* pCper,
                       KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData, const CHAR8* Caller) {
    const PCI_SBDF Sbdf = SbdfOf(State.PciAddress);
    EFI_STATUS Status =
        VornCperCreatePcie(mPrivateDataVornElogPolicyLib.SerDbgLevel, Sbdf.Seg, Sbdf.Bus, Sbdf.Dev, Sbdf.Func,
                           &SlotNumberData, &State, FALSE, static_cast<UINT32>(VornCperGetPcieRecordLength()), pCper);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornCperCreatePcie\n", Status);
        return;
    }
    CopyChipsetDataOfFunction(State, pChipsetSupportData);
    Status = VornElogSmmProcessErrorRecord(pCper, pChipsetSupportData);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornElogSmmProcessErrorRecord\n", Status);
    }
}

void ReportPciFunction(const PCI_DEVICE_STATE& PciDeviceState, DPC_RECORD_MARKS Dpc, const CHAR8* Caller) {
    PCI_SLOT_NUMBER_DATA SlotNumberData{};
    if (PciDeviceState.PcieCapabilityOffset != 0) {
        SlotNumberData = SlotDataOf(SbdfOf(PciDeviceState.PciAddress), Caller);
    }
    CPER_RECORD* pCper = nullptr;
    EFI_STATUS Status = AllocateZeroedRuntimeData(VornCperGetPcieRecordLength(), &pCper);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r Unable to allocate EfiRuntimeServicesData memory for PCIe CPER, aborting...\n", Status);
        return;
    }
    KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData = nullptr;
    Status = AllocateZeroedRuntimeData(sizeof(KYR_CHIPSET_SUPPORT_DATA), &pChipsetSupportData);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r Unable to allocate EfiRuntimeServicesData memory for chipset support data, "
                "aborting...\n",
                Status);
    } else {
        pChipsetSupportData->Pci.DpcOsLoaded = Dpc.OsLoaded;
        pChipsetSupportData->Pci.DpcEvent = Dpc.Event;
        pChipsetSupportData->Pci.ChipsetDataValid = Dpc.Event;
        MakeRecord(PciDeviceState, SlotNumberData, pCper, pChipsetSupportData, Caller);
        FreeBlock(pChipsetSupportData, Caller);
    }
    FreeBlock(pCper, Caller);
}

void VornElogSmmHandlePciError(const PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return;
    }
    if (CapturedRegister16(pPciDeviceState->PciHeader, PCI_STATUS) == PCI_STATUS_ABSENT) {
        Trace(DEBUG_ERROR, "%a: PCI Status = 0xFFFF, aborting...\n");
        return;
    }
    if (IsHandled(*pPciDeviceState)) {
        ReportPciFunction(*pPciDeviceState, {});
    }
}

EFI_STATUS FileRecordInPciBuffer(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                 const CHAR8* Caller) {
    if (pCper == nullptr || pKyrChipsetSupportData == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (!IsRecordFrontComplete(pCper, Caller)) {
        return EFI_INVALID_PARAMETER;
    }
    ERROR_RECORD_BUFFER_ENTRY Entry;
    const EFI_STATUS Status =
        VornElogSmmCopyRecordIntoEntry(pCper, pKyrChipsetSupportData, MceClassInvalid, &Entry, Caller);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: Recording error to PciFiniteBuffer\n");
    if (FiniteBufferAddElement(mPrivateDataVornElogPolicyLib.pPciFiniteBuffer, &Entry) == FALSE) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR adding element to finite buffer, aborting...\n");
        return EFI_OUT_OF_RESOURCES;
    }
    return EFI_SUCCESS;
}

PCI_DEVICE_STATE* DeviceStateOfRecord(const CPER_RECORD* pCper, PCI_SBDF* pSbdf, const CHAR8* Caller) {
    PCI_DEVICE_STATE* pPciDeviceState = nullptr;
    EFI_STATUS Status = EFI_NOT_FOUND;
    if (GetRecordFunction(pCper, pSbdf)) {
        Status = VornElogRetrievePciDeviceState(pSbdf->Seg, pSbdf->Bus, pSbdf->Dev, pSbdf->Func, &pPciDeviceState);
    }
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r unable to retrieve PCIe device state ptr for SBDF %04X:%02X:%02X.%1X, aborting...\n",
                Status, pSbdf->Seg, pSbdf->Bus, pSbdf->Dev, pSbdf->Func);
        return nullptr;
    }
    return pPciDeviceState;
}

// A port's containment has its own counting.
static bool IsContainmentOfDpcOs(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA& ChipsetSupportData) {
    const auto PortType = SectionField<UINT32>(pCper, offsetof(CPER_PCIE_SECTION, PortType));
    const bool IsPort =
        PortType == PcieRootPort || PortType == PcieRootComplexEventCollector || PortType == PcieSwitchDownstreamPort;
    return IsSectionType(pCper, gCperSectionPcieGuid) && IsPort && ChipsetSupportData.Pci.DpcOsLoaded != FALSE;
}

EFI_STATUS VornElogSmmProcessErrorRecordPcie(const CPER_RECORD* pCper,
                                             KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData) {
    EFI_STATUS Status = FileRecordInPciBuffer(pCper, pKyrChipsetSupportData);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    if (IsContainmentOfDpcOs(pCper, *pKyrChipsetSupportData)) {
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
              "%a: CPER reports PCIe root port or switch downstream port DPC event, skipping standard PCIe error SMI "
              "storm logic\n");
        return EFI_SUCCESS;
    }
    if (!IsStormDetected(pCper, pKyrChipsetSupportData)) {
        return EFI_SUCCESS;
    }
    PCI_SBDF Sbdf;
    const PCI_DEVICE_STATE* pPciDeviceState = DeviceStateOfRecord(pCper, &Sbdf);
    if (pPciDeviceState == nullptr) {
        return EFI_NOT_FOUND;
    }
    Status = VornElogSmmDisablePcieErrorGeneration(pPciDeviceState);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogSmmDisablePcieErrorGeneration (severity %d)\n", Status,
              pCper->Descriptor.Severity);
    }
    return Status;
}

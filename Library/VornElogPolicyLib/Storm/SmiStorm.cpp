#include "Library/VornElogPolicyLib/Storm/SmiStorm.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/Queue.h"
#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/RecordFields.h"
#include "Library/VornElogPolicyLib/RecordFunction.h"
#include "Library/VornElogPolicyLib/Storm/StormCount.h"
#include "Library/VornElogPolicyLib/Storm/StormRecord.h"

namespace {

constexpr const CHAR8* Checker = "VornElogSmmCheckSmiStorm";

// The state at the time of the error is kept: the captured one lives only as long as the SMI. A record of another
// kind has none.
EFI_STATUS KeepDeviceState(STORM_RECORD_KIND Kind, SMI_STORM_QUEUE_ENTRY* pEntry) {
    if (Kind != StormRecordPcie && Kind != StormRecordCxlProtocol && Kind != StormRecordCxlComponent) {
        pEntry->PciDeviceState = {};
        return EFI_SUCCESS;
    }
    PCI_SBDF At{};
    PCI_DEVICE_STATE* pPciDeviceState = nullptr;
    const EFI_STATUS Status = GetRecordFunction(EntryRecord(*pEntry), &At)
                                  ? VornElogRetrievePciDeviceState(At.Seg, At.Bus, At.Dev, At.Func, &pPciDeviceState)
                                  : EFI_NOT_FOUND;
    if (EFI_ERROR(Status)) {
        TraceAs(Checker, DEBUG_ERROR,
                "%a: ERROR %r unable to retrieve PCIe device state ptr for SBDF %04X:%02X:%02X.%1X, aborting...\n",
                Status, At.Seg, At.Bus, At.Dev, At.Func);
        return Status;
    }
    CopyMem(&pEntry->PciDeviceState, pPciDeviceState, sizeof(*pPciDeviceState));
    pEntry->IsPciDeviceStateValid = TRUE;
    return EFI_SUCCESS;
}

// Fills the whole entry, whatever it held: zeroing its 12 KB before would be for nothing.
EFI_STATUS AddToQueue(STORM_RECORD_KIND Kind, const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pChipsetData,
                      SMI_STORM_QUEUE_ENTRY* pEntry) {
    constexpr UINTN Behind = offsetof(SMI_STORM_QUEUE_ENTRY, IsPciDeviceStateValid);
    const UINTN Length = pCper->Header.RecordLength;
    const UINTN Kept = Length < SMI_STORM_CPER_SIZE ? Length : SMI_STORM_CPER_SIZE;
    CopyMem(pEntry->Cper, pCper, Kept);
    ZeroMem(pEntry->Cper + Kept, SMI_STORM_CPER_SIZE - Kept);
    ZeroMem(reinterpret_cast<UINT8*>(pEntry) + Behind, sizeof(*pEntry) - Behind);
    CopyMem(&pEntry->KyrChipsetSupportData, pChipsetData, sizeof(*pChipsetData));
    EFI_STATUS Status = KeepDeviceState(Kind, pEntry);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    Status = QueueAdd(mPrivateDataVornElogPolicyLib.SmiStormQueue, pEntry, sizeof(*pEntry));
    if (EFI_ERROR(Status)) {
        TraceAs(Checker, DEBUG_ERROR,
                "%a: ERROR %r unable to add new error record data to SMI storm queue, aborting...\n", Status);
    }
    return Status;
}

bool CountSaysStorm(STORM_RECORD_KIND Kind, const SMI_STORM_QUEUE_ENTRY& Entry) {
    const EFI_GUID SectionType = EntryRecord(Entry)->Descriptor.SectionType;
    const PCI_SBDF At = StormEntryFunction(Entry);
    switch (Kind) {
        case StormRecordMachineCheck: {
            const MCA_BANK_ERROR_INFO& Bank = RecordBank(Entry.KyrChipsetSupportData);
            return VornElogSmmCheckMceSmiStormPostProcess(
                       VornGetMceClass(Bank.McaStatus),
                       Entry.KyrChipsetSupportData.MachineCheck.RasMcaErrorInfo.CpuInfo.LocalApicId,
                       static_cast<UINT8>(Bank.McaBankNumber)) != FALSE;
        }
        case StormRecordPcie:
        case StormRecordCxlProtocol:
        case StormRecordPciComponent:
            return VornElogSmmCheckPciSmiStormPostProcess(&SectionType, At.Seg, At.Bus, At.Dev, At.Func,
                                                          EntryRecord(Entry)->Descriptor.Severity) != FALSE;
        case StormRecordCxlComponent:
            return VornElogSmmCheckCxlComponentSmiStormPostProcess(&SectionType, At.Seg, At.Bus, At.Dev, At.Func,
                                                                   StormEntryEventSeverity(Entry)) != FALSE;
        case StormRecordOther:
            break;
    }
    return false;
}

}  // namespace

EFI_STATUS VornElogSmmCheckSmiStorm(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                    BOOLEAN* pStormDetected) {
    if (pCper == nullptr || pKyrChipsetSupportData == nullptr || pStormDetected == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pStormDetected = FALSE;
    if (!IsRecordFrontComplete(pCper)) {
        return EFI_INVALID_PARAMETER;
    }
    const VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    const UINT32 Severity = pCper->Descriptor.Severity;
    if (Severity == CperSeverityNone) {
        Trace(Data.SerDbgLevel, "%a: CPER severity %d is unsupported, aborting...\n", Severity);
        return EFI_UNSUPPORTED;
    }
    const STORM_RECORD_KIND Kind = StormRecordKind(pCper);
    if (Kind == StormRecordMachineCheck &&
        pKyrChipsetSupportData->MachineCheck.McaBankIndex >= MCA_BANK_ERROR_INFO_MAX) {
        Trace(DEBUG_ERROR, "%a: ERROR McaBankIndex %d >= Max %d, aborting...\n",
              pKyrChipsetSupportData->MachineCheck.McaBankIndex, MCA_BANK_ERROR_INFO_MAX);
        return EFI_INVALID_PARAMETER;
    }
    if (Data.SmiStormQueue != nullptr && QueueIsEmpty(Data.SmiStormQueue) == FALSE) {
        VornElogSmmCheckSmiStormPreProcess(&pCper->Header.TimeStamp);
    }
    // From the pool: an entry is larger than what is left of a processor's SMM stack here.
    SMI_STORM_QUEUE_ENTRY* pEntry = nullptr;
    EFI_STATUS Status = AllocateRuntimeData(sizeof(*pEntry), &pEntry);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r allocating EfiRuntimeServicesData memory for SMI storm entry, aborting...\n",
              Status);
        return Status;
    }
    Status = AddToQueue(Kind, pCper, pKyrChipsetSupportData, pEntry);
    if (!EFI_ERROR(Status) && CountSaysStorm(Kind, *pEntry)) {
        Trace(Data.SerDbgLevel, "%a: Stop count met or exceeded, SMI storm detected\n");
        *pStormDetected = TRUE;
    }
    const EFI_STATUS FreeStatus = FreeRuntimeData(pEntry);
    if (EFI_ERROR(FreeStatus)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from SmmFreePool for SMI storm entry\n", FreeStatus);
    }
    return Status;
}

bool IsStormDetected(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                     const CHAR8* Caller) {
    BOOLEAN StormDetected = FALSE;
    const EFI_STATUS Status = VornElogSmmCheckSmiStorm(pCper, pKyrChipsetSupportData, &StormDetected);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornElogSmmCheckSmiStorm\n", Status);
    }
    return StormDetected != FALSE;
}

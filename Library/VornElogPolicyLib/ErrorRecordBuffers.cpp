#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/FiniteBuffer.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

EFI_STATUS VornElogSmmCopyRecordIntoEntry(const CPER_RECORD* pCper,
                                          const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData, UINT32 MceClass,
                                          ERROR_RECORD_BUFFER_ENTRY* pEntry, const CHAR8* Caller) {
    const UINT32 RecordLength = pCper->Header.RecordLength;
    *pEntry = {};
    pEntry->MceClass = MceClass;
    EFI_STATUS Status = AllocateRuntimeData(RecordLength, &pEntry->pCper);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r allocating EfiRuntimeServicesDataMemory for UEFI CPER, aborting...\n", Status);
        return Status;
    }
    CopyMem(pEntry->pCper, pCper, RecordLength);

    Status = AllocateRuntimeData(sizeof(KYR_CHIPSET_SUPPORT_DATA), &pEntry->pKyrChipsetSupportData);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r allocating EfiRuntimeServicesDataMemory for chipset support data, aborting...\n",
                Status);
        const EFI_STATUS FreeStatus = FreeRuntimeData(pEntry->pCper);
        if (EFI_ERROR(FreeStatus)) {
            TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from SmmFreePool for UEFI CPER\n", FreeStatus);
        }
        pEntry->pCper = nullptr;
        return Status;
    }
    CopyMem(pEntry->pKyrChipsetSupportData, pKyrChipsetSupportData, sizeof(KYR_CHIPSET_SUPPORT_DATA));
    return EFI_SUCCESS;
}

static void ClearErrorRecordBuffer(FINITE_BUFFER* pBuffer, const CHAR8* Caller = __builtin_FUNCTION()) {
    if (pBuffer == nullptr || FiniteBufferIsEmpty(pBuffer)) {
        return;
    }
    for (UINT64 Element = 0; Element < pBuffer->MaxElements; Element++) {
        const ERROR_RECORD_BUFFER_ENTRY& Entry = *BufferSlot<ERROR_RECORD_BUFFER_ENTRY>(pBuffer, Element);
        if (Entry.pCper != nullptr) {
            const EFI_STATUS Status = FreeRuntimeData(Entry.pCper);
            if (EFI_ERROR(Status)) {
                TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from SmmFreePool for Element %d CPER\n", Status, Element);
            }
        }
        if (Entry.pKyrChipsetSupportData != nullptr) {
            const EFI_STATUS Status = FreeRuntimeData(Entry.pKyrChipsetSupportData);
            if (EFI_ERROR(Status)) {
                TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from SmmFreePool for Element %d chipset support data\n",
                        Status, Element);
            }
        }
    }
    FiniteBufferClear(pBuffer);
}

void VornElogSmmClearErrorRecordBuffersMca() {
    ClearErrorRecordBuffer(mPrivateDataVornElogPolicyLib.pMcaUncorrectedFiniteBuffer);
    ClearErrorRecordBuffer(mPrivateDataVornElogPolicyLib.pMcaCorrectedFiniteBuffer);
}

void VornElogSmmClearErrorRecordBuffersPci() {
    ClearErrorRecordBuffer(mPrivateDataVornElogPolicyLib.pPciFiniteBuffer);
}

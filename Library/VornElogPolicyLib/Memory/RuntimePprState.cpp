#include "Library/VornElogPolicyLib/Memory/RuntimePprState.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/RuntimePpr.h"
#include "Platform/State.h"

KYR_STATE BOOLEAN mRtPprEn = FALSE;
KYR_STATE BOOLEAN mPspRtPprComplFlag = FALSE;
KYR_STATE UINT8 mQueueFront = 0;
KYR_STATE UINT32 mQueueFull = 0;
KYR_STATE BOOLEAN mReadyForNextRtPprReq = TRUE;
KYR_STATE UINT32 mNumOfRtPptEntryInServed = 0;
KYR_STATE UINT32 RtPprRepairStatus = 0;
KYR_STATE RUNTIME_PPR_REQUEST_BLOCK* mRtPprReqDataBlock = nullptr;
KYR_STATE RUNTIME_PPR_REQUEST_BLOCK* mEcsRtPprReqDataBlock = nullptr;
KYR_STATE UINT64 mPspBiosMboxCmdRegAddr = 0;
KYR_STATE RUNTIME_PPR_CHECK_ENTRY mChkRtPprComplStruct[RUNTIME_PPR_CHECK_ENTRIES] = {};

void ResetRuntimePprState() {
    RtPprRepairStatus = 0;
    mPspRtPprComplFlag = FALSE;
    mReadyForNextRtPprReq = TRUE;
    mNumOfRtPptEntryInServed = 0;
    mQueueFront = 0;
    mQueueFull = 0;
    ZeroMem(mChkRtPprComplStruct, sizeof(mChkRtPprComplStruct));
}

UINT32 RuntimePprEntriesInServed() {
    return mNumOfRtPptEntryInServed < RUNTIME_PPR_CHECK_ENTRIES ? mNumOfRtPptEntryInServed
                                                                : UINT32{RUNTIME_PPR_CHECK_ENTRIES};
}

// Takes the handles of every instance into a block of their own, NULL when there is none.
static EFI_STATUS LocateOemHandles(EFI_HANDLE** ppHandles, UINTN* pCount) {
    *ppHandles = nullptr;
    *pCount = 0;
    UINTN Bytes = 0;
    EFI_STATUS Status = gSmst->SmmLocateHandle(ByProtocol, &gKyrJrvRasOemSmmProtocolGuid, nullptr, &Bytes, nullptr);
    if (Status != EFI_BUFFER_TOO_SMALL) {
        return Status;
    }
    Status = AllocateRuntimeData(Bytes, ppHandles);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    Status = gSmst->SmmLocateHandle(ByProtocol, &gKyrJrvRasOemSmmProtocolGuid, nullptr, &Bytes, *ppHandles);
    *pCount = EFI_ERROR(Status) ? 0 : Bytes / sizeof(EFI_HANDLE);
    return Status;
}

void ReportRuntimePprResults(UINT32 RepairStatus, const UINT8* Results) {
    EFI_HANDLE* pHandles = nullptr;
    UINTN Count = 0;
    EFI_STATUS Status = LocateOemHandles(&pHandles, &Count);
    if (EFI_ERROR(Status) && Status != EFI_NOT_FOUND) {
        Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR %r locating gKyrJrvRasOemSmmProtocolGuid %g\n", __func__,
              Status, &gKyrJrvRasOemSmmProtocolGuid);
    }
    for (UINTN At = 0; At < Count; At++) {
        void* Interface = nullptr;
        Status = gSmst->SmmHandleProtocol(pHandles[At], &gKyrJrvRasOemSmmProtocolGuid, &Interface);
        if (!EFI_ERROR(Status) && Interface != nullptr) {
            Status = static_cast<const KYR_JRV_RAS_OEM_SMM_PROTOCOL*>(Interface)->RuntimePprResult(
                RepairStatus, mChkRtPprComplStruct, Results, RuntimePprEntriesInServed());
        }
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR %r reporting to OEM RAS protocol instance %d\n", __func__,
                  Status, At);
        }
    }
    if (pHandles != nullptr) {
        Status = FreeRuntimeData(pHandles);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR %r from SmmFreePool\n", __func__, Status);
        }
    }
}

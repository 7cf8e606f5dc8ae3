#include "Library/VornElogPolicyLib/Memory/RuntimePpr.h"

#include "Library/RasLib/Globals.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/PspMailbox.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/Memory/RepairVerification.h"
#include "Library/VornElogPolicyLib/Memory/RuntimePprState.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/RuntimePpr.h"
#include "Platform/State.h"

KYR_STATE static KYR_RUNTIME_PPR_SERVICE_SMM_PROTOCOL mRuntimePprService{PspRuntimePprCompletion};
KYR_STATE static EFI_HANDLE mRuntimePprServiceHandle = nullptr;  // NULL while the service is not installed

static bool IsWanted() {
    return mPlatformApeiData->RuntimePprEnable[0] != FALSE || mPlatformApeiData->RuntimePprEnable[1] != FALSE;
}

static EFI_STATUS AllocateRequestBlocks() {
    EFI_STATUS Status = AllocateZeroedRuntimeData(sizeof(*mRtPprReqDataBlock), &mRtPprReqDataBlock);
    if (!EFI_ERROR(Status)) {
        Status = AllocateZeroedRuntimeData(sizeof(*mEcsRtPprReqDataBlock), &mEcsRtPprReqDataBlock);
    }
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR %r allocating runtime PPR request blocks\n", __func__, Status);
    }
    return Status;
}

static EFI_STATUS InstallService() {
    const EFI_STATUS Status = gSmst->SmmInstallProtocolInterface(
        &mRuntimePprServiceHandle, &gKyrRuntimePprServiceSmmProtocolGuid, EFI_NATIVE_INTERFACE, &mRuntimePprService);
    if (EFI_ERROR(Status)) {
        mRuntimePprServiceHandle = nullptr;
        Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR %r installing gKyrRuntimePprServiceSmmProtocolGuid %g\n",
              __func__, Status, &gKyrRuntimePprServiceSmmProtocolGuid);
    }
    return Status;
}

static EFI_STATUS FindPspMailbox() {
    if (!GetPspBiosMboxRegAddr(0, &mPspBiosMboxCmdRegAddr)) {
        Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR PSP BIOS mailbox not found\n", __func__);
        return EFI_NOT_FOUND;
    }
    return EFI_SUCCESS;
}

static void FreeBlock(RUNTIME_PPR_REQUEST_BLOCK** ppBlock) {
    if (*ppBlock == nullptr) {
        return;
    }
    const EFI_STATUS Status = FreeRuntimeData(*ppBlock);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR %r from SmmFreePool\n", __func__, Status);
    }
    *ppBlock = nullptr;
}

static void DisableRuntimePpr() {
    Trace(DEBUG_ERROR, "[RAS Runtime PPR] Disable Runtime PPR. \n");
    mRtPprEn = FALSE;
    mPlatformApeiData->RuntimePprEnable[0] = FALSE;
    mPlatformApeiData->RuntimePprEnable[1] = FALSE;
    if (mRuntimePprServiceHandle != nullptr) {
        const EFI_STATUS Status = gSmst->SmmUninstallProtocolInterface(
            mRuntimePprServiceHandle, &gKyrRuntimePprServiceSmmProtocolGuid, &mRuntimePprService);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR %r from SmmUninstallProtocolInterface\n", __func__,
                  Status);
        }
        mRuntimePprServiceHandle = nullptr;
    }
    FreeBlock(&mRtPprReqDataBlock);
    FreeBlock(&mEcsRtPprReqDataBlock);
}

EFI_STATUS RuntimePprInit() {
    mRtPprEn = IsWanted();
    if (mRtPprEn == FALSE) {
        Trace(DEBUG_INIT, "[RAS Runtime PPR]%a: Runtime Post Package Repair is disabled\n", __func__);
        return EFI_SUCCESS;
    }
    ZeroMem(mChkRtPprComplStruct, sizeof(mChkRtPprComplStruct));
    EFI_STATUS Status = AllocateRequestBlocks();
    if (!EFI_ERROR(Status)) {
        Status = InstallService();
    }
    if (!EFI_ERROR(Status)) {
        Status = FindPspMailbox();
    }
    if (EFI_ERROR(Status)) {
        DisableRuntimePpr();
    }
    return Status;
}

EFI_STATUS PspRuntimePprCompletion(const UINT32* pRepairStatus) {
    if (pRepairStatus == nullptr) {
        Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR pRepairStatus == NULL, aborting...\n", __func__);
        return EFI_INVALID_PARAMETER;
    }
    RtPprRepairStatus = *pRepairStatus;
    if (RtPprRepairStatus != 0) {
        Trace(DEBUG_ERROR, "[RAS Runtime PPR] PSP RuntimePpr SMI callback returns Quen repair failed: 0x%08x.\n",
              RtPprRepairStatus);
        const UINT8 Results[RUNTIME_PPR_CHECK_ENTRIES] = {};
        ReportRuntimePprResults(RtPprRepairStatus, Results);
    }
    mPspRtPprComplFlag = TRUE;
    IsRtPprRepairedSuccess();
    return EFI_SUCCESS;
}

#include "Library/VornElogPolicyLib/Memory/PprRequest.h"

#include "Library/RasLib/Globals.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/Memory/RepairVerification.h"
#include "Library/VornElogPolicyLib/Memory/RuntimePprState.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Protocol/VendorServices.h"

// The last index of the repair service's queue that the front passes while nothing is lost.
static constexpr UINT8 QUEUE_FRONT_LIMIT = 2;

// The PSP is done with its block and did not say so.
static bool IsCompletionMissed() {
    if (mQueueFull == 0 || mQueueFront <= QUEUE_FRONT_LIMIT) {
        return false;
    }
    const UINT32 CommandWord = *static_cast<const volatile UINT32*>(&mRtPprReqDataBlock->PspCommandWord);
    return PspCommandWord::Completed::Get(CommandWord) && !PspCommandWord::CompletionSignalled::Get(CommandWord);
}

// Hands the row over for repair while the system runs; the PSP raises an SMI when it is done.
static EFI_STATUS StartRuntimeRepair(const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData, UINT16 PprType,
                                     const CHAR8* Caller) {
    if (IsCompletionMissed()) {
        Trace(DEBUG_ERROR,
              "[Runtime PPR] PspRuntimePprCompletion SMI was not received. Force check for result of Quen repair\n");
        mPspRtPprComplFlag = TRUE;
        RtPprRepairStatus = 0;
        IsRtPprRepairedSuccess();
    }
    const VORN_KYR_MEMORY_PPR_SMM_PROTOCOL& Ppr = *mPrivateDataVornElogPolicyLib.pVornKyrMemoryPPRSmmProtocol;
    RUNTIME_PPR_CHECK_ENTRY CheckTable[RUNTIME_PPR_CHECK_ENTRIES];
    ZeroMem(CheckTable, sizeof(CheckTable));
    UINT32 EntriesServed = 0;
    const EFI_STATUS Status =
        Ppr.VornRuntimePPRHandler(pKyrChipsetSupportData, &mReadyForNextRtPprReq, PprType, mPspMboxSmmBuffer,
                                  mPspMboxSmmFlagAddr, mRtPprEn, &EntriesServed, mRtPprReqDataBlock,
                                  &mRtPprReqDataBlock->PspCommandWord, &mQueueFront, &mQueueFull, CheckTable);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornRuntimePPRHandler\n", Status);
        return Status;
    }
    mReadyForNextRtPprReq = FALSE;
    mPspRtPprComplFlag = FALSE;
    mNumOfRtPptEntryInServed = EntriesServed;
    CopyMem(mChkRtPprComplStruct, CheckTable, sizeof(mChkRtPprComplStruct));
    ZeroMem(mRtPprReqDataBlock, sizeof(*mRtPprReqDataBlock));
    return EFI_SUCCESS;
}

// Keeps the repairs that were filed for the next boot and, where runtime repair is enabled, starts them now. The
// status of the member that failed first.
static EFI_STATUS StartRepair(const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData, UINT16 PprType,
                              const CHAR8* Caller) {
    const EFI_STATUS Status =
        mPrivateDataVornElogPolicyLib.pVornKyrMemoryPPRSmmProtocol->VornPostPackageRepairUpdateToUefiVariable();
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornPostPackageRepairUpdateToUefiVariable\n", Status);
    }
    if (mRtPprEn == FALSE) {
        return Status;
    }
    const EFI_STATUS RuntimeStatus = StartRuntimeRepair(pKyrChipsetSupportData, PprType, Caller);
    return EFI_ERROR(Status) ? Status : RuntimeStatus;
}

EFI_STATUS VornElogSmmRequestPpr(const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData, UINT16 PprType) {
    if (pKyrChipsetSupportData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pKyrChipsetSupportData == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const VORN_KYR_MEMORY_PPR_SMM_PROTOCOL* pPpr = mPrivateDataVornElogPolicyLib.pVornKyrMemoryPPRSmmProtocol;
    if (pPpr == nullptr) {
        Trace(DEBUG_ERROR,
              "%a: ERROR mPrivateDataVornElogPolicyLib.pVornKyrMemoryPPRSmmProtocol == NULL, aborting...\n");
        return EFI_NOT_FOUND;
    }
    BOOLEAN IsSupported = FALSE;
    EFI_STATUS Status = pPpr->KyrPostPackageRepairSupported(pKyrChipsetSupportData, &IsSupported);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from KyrPostPackageRepairSupported, aborting...\n", Status);
        return Status;
    }
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: PPR type %d, supported %d\n", PprType, IsSupported);
    if (IsSupported != FALSE) {
        BOOLEAN AtLeastOneRepair = FALSE;
        Status =
            pPpr->VornPostPackageCreateEntry(pKyrChipsetSupportData, PprType, mRtPprEn, mRbBusMap, &AtLeastOneRepair);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r from VornPostPackageCreateEntry, aborting...\n", Status);
            return Status;
        }
        if (AtLeastOneRepair != FALSE) {
            Status = StartRepair(pKyrChipsetSupportData, PprType, __func__);
        }
    }
    // Also where this row cannot be repaired: rows of an earlier request may wait for their verification.
    if (mRtPprEn != FALSE && mNumOfRtPptEntryInServed != 0 && mPspRtPprComplFlag != FALSE) {
        IsRtPprRepairedSuccess();
    }
    return Status;
}

#include "Library/VornElogPolicyLib/MachineCheck/Filing.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/CircularBuffer.h"
#include "Library/VornElogBaseLib/FiniteBuffer.h"
#include "Library/VornElogBaseLib/MachineCheckClass.h"
#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/RecordFields.h"

bool VornElogSmmIsBankRecord(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                             const CHAR8* Caller) {
    if (pCper == nullptr || pKyrChipsetSupportData == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return false;
    }
    if (pKyrChipsetSupportData->MachineCheck.ValidRasMcaErrorInfo == FALSE) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR RasMcaErrorInfo not valid, aborting...\n");
        return false;
    }
    const UINT8 McaBankIndex = pKyrChipsetSupportData->MachineCheck.McaBankIndex;
    if (McaBankIndex >= MCA_BANK_ERROR_INFO_MAX) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR McaBankIndex %d >= Max %d, aborting...\n", McaBankIndex,
                MCA_BANK_ERROR_INFO_MAX);
        return false;
    }
    return IsRecordFrontComplete(pCper, Caller);
}

bool VornElogSmmMakeBankEntry(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                              ERROR_RECORD_BUFFER_ENTRY* pEntry, const CHAR8* Caller) {
    const MCA_BANK_ERROR_INFO& Bank = RecordBank(*pKyrChipsetSupportData);
    const MCE_CLASS MceClass = VornGetMceClass(Bank.McaStatus);
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: Processor %d Bank %d MCA_STATUS 0x%016lx MceClass %d\n",
            pKyrChipsetSupportData->MachineCheck.RasMcaErrorInfo.CpuInfo.ProcessorNumber, Bank.McaBankNumber,
            Bank.McaStatus, MceClass);
    return !EFI_ERROR(VornElogSmmCopyRecordIntoEntry(pCper, pKyrChipsetSupportData, MceClass, pEntry, Caller));
}

void VornElogSmmFileEntry(const ERROR_RECORD_BUFFER_ENTRY& Entry, bool KeepCorrected, const CHAR8* Caller) {
    switch (Entry.MceClass) {
        case MceClassPccFatal:
        case MceClassUcThreadFatal:
        case MceClassUcThreadRecoverable:
            if (!FiniteBufferAddElement(mPrivateDataVornElogPolicyLib.pMcaUncorrectedFiniteBuffer, &Entry)) {
                TraceAs(Caller, DEBUG_ERROR, "%a: ERROR adding element to finite buffer\n");
            }
            break;
        case MceClassDeferred:
            if (!CircularBufferAddElement(mPrivateDataVornElogPolicyLib.pMcaDeferredCircularBuffer, &Entry)) {
                TraceAs(Caller, DEBUG_ERROR,
                        "%a: ERROR adding error to mPrivateDataVornElogPolicyLib.pMcaDeferredCircularBuffer\n");
            }
            break;
        case MceClassCorrected:
        case MceClassTransparent:
            if (KeepCorrected &&
                !FiniteBufferAddElement(mPrivateDataVornElogPolicyLib.pMcaCorrectedFiniteBuffer, &Entry)) {
                TraceAs(Caller, DEBUG_ERROR,
                        "%a: ERROR adding error to mPrivateDataVornElogPolicyLib.pMcaCorrectedFiniteBuffer\n");
            }
            break;
        default:
            TraceAs(Caller, DEBUG_ERROR, "%a: ERROR Invalid MceClass value %d detected, unable to process\n",
                    Entry.MceClass);
            break;
    }
}

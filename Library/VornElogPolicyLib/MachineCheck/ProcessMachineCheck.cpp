#include "Library/VornElogPolicyLib/MachineCheck/ProcessMachineCheck.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/CircularBuffer.h"
#include "Library/VornElogBaseLib/FiniteBuffer.h"
#include "Library/VornElogBaseLib/MachineCheckClass.h"
#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/MachineCheck/ThresholdDisable.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/RecordFields.h"
#include "Library/VornElogPolicyLib/Storm/SmiStorm.h"
#include "Platform/Protocol/RasService.h"

static bool IsMachineCheckRecord(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
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
    if (!IsRecordFrontComplete(pCper, Caller)) {
        return false;
    }
    if (!IsSectionType(pCper, gCperSectionProcessorGenericGuid) &&
        !IsSectionType(pCper, gCperSectionProcessorSpecificGuid)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: Supported CPER format not found, aborting...\n");
        return false;
    }
    return true;
}

// Switches the bank's interrupt source off when the record is one too many. A check that fails counts as no storm;
// it traces why.
static void StopSmiStorm(const ERROR_RECORD_BUFFER_ENTRY& Entry, const CHAR8* Caller) {
    BOOLEAN StormDetected = FALSE;
    VornElogSmmCheckSmiStorm(Entry.pCper, Entry.pKyrChipsetSupportData, &StormDetected);
    if (StormDetected == FALSE) {
        return;
    }

    const KYR_RAS_SERVICE_SMM_PROTOCOL& RasService = *mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol;
    const KYR_CHIPSET_SUPPORT_DATA& ChipsetData = *Entry.pKyrChipsetSupportData;
    const CPU_INFO& Cpu = ChipsetData.MachineCheck.RasMcaErrorInfo.CpuInfo;
    const UINT8 McaBankIndex = ChipsetData.MachineCheck.McaBankIndex;
    const MCA_BANK_ERROR_INFO& Bank = RecordBank(ChipsetData);
    if (Entry.MceClass == MceClassTransparent) {
        const MCA_THRESHOLD_DISABLE_REQUEST Request = VornElogSmmThresholdDisableRequest(ChipsetData, 0);
        const EFI_STATUS Status = RasService.DisableMcaTransparentErrorLogging(&Request);
        if (EFI_ERROR(Status)) {
            TraceAs(Caller, DEBUG_ERROR,
                    "%a: ERROR %r from mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol->"
                    "DisableMcaTransparentErrorLogging for ProcNum %d APIC 0x%08x McaBankIndex %d McBankNumber %d\n",
                    Status, Cpu.ProcessorNumber, Cpu.LocalApicId, McaBankIndex, Bank.McaBankNumber);
        }
        return;
    }
    const MCA_THRESHOLD_DISABLE_REQUEST Request =
        VornElogSmmThresholdDisableRequest(ChipsetData, McaIpid::IsUmc(Bank.McaIpid) ? 1 : 0);
    const EFI_STATUS Status = RasService.DisableMcaThreshold(&Request);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol->DisableMcaThreshold "
                "for ProcNum %d APIC 0x%08x McaBankIndex %d McBankNumber %d\n",
                Status, Cpu.ProcessorNumber, Cpu.LocalApicId, McaBankIndex, Bank.McaBankNumber);
    }
}

void VornElogSmmProcessErrorRecordMachineCheck(const CPER_RECORD* pCper,
                                               KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData) {
    if (!IsMachineCheckRecord(pCper, pKyrChipsetSupportData, __func__)) {
        return;
    }
    const MCA_BANK_ERROR_INFO& Bank = RecordBank(*pKyrChipsetSupportData);
    const MCE_CLASS MceClass = VornGetMceClass(Bank.McaStatus);
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: Processor %d Bank %d MCA_STATUS 0x%016lx MceClass %d\n",
          pKyrChipsetSupportData->MachineCheck.RasMcaErrorInfo.CpuInfo.ProcessorNumber, Bank.McaBankNumber,
          Bank.McaStatus, MceClass);
    ERROR_RECORD_BUFFER_ENTRY Entry;
    if (EFI_ERROR(VornElogSmmCopyRecordIntoEntry(pCper, pKyrChipsetSupportData, MceClass, &Entry))) {
        return;
    }

    switch (MceClass) {
        case MceClassPccFatal:
        case MceClassUcThreadFatal:
        case MceClassUcThreadRecoverable:
            if (!FiniteBufferAddElement(mPrivateDataVornElogPolicyLib.pMcaUncorrectedFiniteBuffer, &Entry)) {
                Trace(DEBUG_ERROR, "%a: ERROR adding element to finite buffer\n");
            }
            break;
        case MceClassDeferred:
            if (!CircularBufferAddElement(mPrivateDataVornElogPolicyLib.pMcaDeferredCircularBuffer, &Entry)) {
                Trace(DEBUG_ERROR,
                      "%a: ERROR adding error to mPrivateDataVornElogPolicyLib.pMcaDeferredCircularBuffer\n");
            }
            break;
        case MceClassCorrected:
        case MceClassTransparent:
            // In production mode such an error feeds the storm check and nothing else. No buffer refers to its copies
            // then, and nothing frees them, which is meant.
            if (mPrivateDataVornElogPolicyLib.RasErrorLoggingMode == RasDiagnosticMode &&
                !FiniteBufferAddElement(mPrivateDataVornElogPolicyLib.pMcaCorrectedFiniteBuffer, &Entry)) {
                Trace(DEBUG_ERROR,
                      "%a: ERROR adding error to mPrivateDataVornElogPolicyLib.pMcaCorrectedFiniteBuffer\n");
            }
            StopSmiStorm(Entry, __func__);
            break;
        default:
            Trace(DEBUG_ERROR, "%a: ERROR Invalid MceClass value %d detected, unable to process\n", MceClass);
            break;
    }
}

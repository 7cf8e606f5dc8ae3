#include "Library/VornElogPolicyLib/MachineCheck/ProcessMachineCheck.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/MachineCheckClass.h"
#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/MachineCheck/Filing.h"
#include "Library/VornElogPolicyLib/MachineCheck/ThresholdDisable.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/Storm/SmiStorm.h"

// Switches the bank's interrupt source off when the record is one too many. A check that fails counts as no storm;
// it traces why.
static void StopSmiStorm(const ERROR_RECORD_BUFFER_ENTRY& Entry, const CHAR8* Caller) {
    BOOLEAN StormDetected = FALSE;
    VornElogSmmCheckSmiStorm(Entry.pCper, Entry.pKyrChipsetSupportData, &StormDetected);
    if (StormDetected == FALSE) {
        return;
    }
    const KYR_CHIPSET_SUPPORT_DATA& ChipsetData = *Entry.pKyrChipsetSupportData;
    if (Entry.MceClass == MceClassTransparent) {
        VornElogSmmDisableTransparentErrorLogging(ChipsetData, Caller);
    } else {
        VornElogSmmDisableThreshold(ChipsetData, McaIpid::IsUmc(RecordBank(ChipsetData).McaIpid) ? 1 : 0, Caller);
    }
}

void VornElogSmmProcessErrorRecordMachineCheck(const CPER_RECORD* pCper,
                                               KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData) {
    if (!VornElogSmmIsBankRecord(pCper, pKyrChipsetSupportData)) {
        return;
    }
    if (!IsSectionType(pCper, gCperSectionProcessorGenericGuid) &&
        !IsSectionType(pCper, gCperSectionProcessorSpecificGuid)) {
        Trace(DEBUG_ERROR, "%a: Supported CPER format not found, aborting...\n");
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
    // In production mode a corrected or transparent error feeds the storm check and nothing else. No buffer refers to
    // its copies then, and nothing frees them, which is meant.
    VornElogSmmFileEntry(Entry, mPrivateDataVornElogPolicyLib.RasErrorLoggingMode == RasDiagnosticMode);
    if (MceClass == MceClassCorrected || MceClass == MceClassTransparent) {
        StopSmiStorm(Entry, __func__);
    }
}

#include "Library/VornElogPolicyLib/MachineCheck/ProcessMachineCheck.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/MachineCheck/Filing.h"
#include "Library/VornElogPolicyLib/MachineCheck/ThresholdDisable.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/RecordFields.h"
#include "Library/VornElogPolicyLib/Storm/SmiStorm.h"

// Switches the bank's interrupt source off when the record is one too many.
static void StopSmiStorm(const ERROR_RECORD_BUFFER_ENTRY& Entry, const CHAR8* Caller) {
    if (!IsStormDetected(Entry.pCper, Entry.pKyrChipsetSupportData, Caller)) {
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
    if (!IsProcessorRecord(pCper)) {
        Trace(DEBUG_ERROR, "%a: Supported CPER format not found, aborting...\n");
        return;
    }
    ERROR_RECORD_BUFFER_ENTRY Entry;
    if (!VornElogSmmMakeBankEntry(pCper, pKyrChipsetSupportData, &Entry)) {
        return;
    }
    // In production mode a corrected or transparent error feeds the storm check and nothing else. No buffer refers to
    // its copies then, and nothing frees them, which is meant.
    VornElogSmmFileEntry(Entry, mPrivateDataVornElogPolicyLib.RasErrorLoggingMode == RasDiagnosticMode);
    if (Entry.MceClass == MceClassCorrected || Entry.MceClass == MceClassTransparent) {
        StopSmiStorm(Entry, __func__);
    }
}

#include "Library/VornElogPolicyLib/MachineCheck/PostProcessCorrected.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/MachineCheck/MachineCheckSel.h"
#include "Library/VornElogPolicyLib/Memory/PostProcessCorrectedMemory.h"
#include "Library/VornElogPolicyLib/Notification/OsNotification.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/RecordFields.h"

static void PostProcessCorrectedEntry(const ERROR_RECORD_BUFFER_ENTRY& Entry, BOOLEAN* pIsOsNotificationRequired) {
    if (IsProcessorRecord(Entry.pCper) && mPrivateDataVornElogPolicyLib.RasErrorLoggingMode == RasDiagnosticMode) {
        if (Entry.pKyrChipsetSupportData->MachineCheck.ValidRasMcaErrorInfo != FALSE) {
            VornElogSmmLogMachineCheckData(Entry.pKyrChipsetSupportData);
        }
        *pIsOsNotificationRequired = TRUE;
    }
    if (IsSectionType(Entry.pCper, gCperSectionPlatformMemoryGuid)) {
        VornElogSmmPostProcessErrorRecordCorrectedMemory(Entry.pCper, Entry.pKyrChipsetSupportData,
                                                         pIsOsNotificationRequired);
    }
}

void VornElogSmmPostProcessErrorRecordsCorrected() {
    BOOLEAN IsOsNotificationRequired = FALSE;
    const ERROR_RECORD_BUFFER_ENTRY* pOldest = nullptr;
    NewestFirst Walk(mPrivateDataVornElogPolicyLib.pMcaCorrectedFiniteBuffer);
    while (const ERROR_RECORD_BUFFER_ENTRY* pEntry = Walk.Next()) {
        PostProcessCorrectedEntry(*pEntry, &IsOsNotificationRequired);
        pOldest = pEntry;
    }
    if (IsOsNotificationRequired == FALSE) {
        return;
    }
    const EFI_STATUS Status = VornElogSmmOsErrorNotification(
        pOldest->pCper, pOldest->pKyrChipsetSupportData, pOldest->pCper->Header.ErrorSeverity, SCI_CAUSE_APEI_GHES);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r updating OS error notification (SCI) settings SciCause 0x%08x "
              "(APEI HEST GHESS for CPER Corrected Error GUID %g)\n",
              Status, SCI_CAUSE_APEI_GHES, &gCperNotifyCorrectedMachineCheckGuid);
    }
}

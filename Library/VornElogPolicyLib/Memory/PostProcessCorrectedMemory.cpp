#include "Library/VornElogPolicyLib/Memory/PostProcessCorrectedMemory.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/SelMemory.h"
#include "Library/VornElogPolicyLib/MachineCheck/MachineCheckSel.h"
#include "Library/VornElogPolicyLib/Memory/HealthEvent.h"
#include "Library/VornElogPolicyLib/Memory/LeakyBucket.h"
#include "Library/VornElogPolicyLib/Memory/MemoryRecord.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

void VornElogSmmPostProcessErrorRecordCorrectedMemoryDiagnostic(const CPER_RECORD*,
                                                                KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                                                BOOLEAN* pIsOsNotificationRequired) {
    const MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
    ElogLogMemoryCorrectedEccError(Location.Socket, Location.Channel, Location.Dimm);
    const EFI_STATUS Status =
        VornElogSmmProcessMemoryHealthEventHostEcc(pKyrChipsetSupportData, HostEccDiagnosticModeCorrectedEccError);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r from VornElogSmmProcessMemoryHealthEventHostEcc (DiagnosticModeCorrectedEccError)\n",
              Status);
    }
    *pIsOsNotificationRequired = TRUE;
}

void VornElogSmmPostProcessErrorRecordCorrectedMemory(CPER_RECORD* pCper,
                                                      KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                                      BOOLEAN* pIsOsNotificationRequired) {
    if (pCper == nullptr || pKyrChipsetSupportData == nullptr || pIsOsNotificationRequired == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return;
    }
    const EFI_STATUS Status = VornElogSmmGetMemErrorLocation(pCper);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r returned while decoding DIMM location, aborting...\n", Status);
        return;
    }
    if (mPrivateDataVornElogPolicyLib.RasErrorLoggingMode == RasProductionMode) {
        VornElogSmmPostProcessErrorRecordCorrectedMemoryThreshold(pCper, pKyrChipsetSupportData,
                                                                  pIsOsNotificationRequired);
        return;
    }
    BOOLEAN IsReportingRequired = FALSE;
    VornElogSmmPostProcessErrorRecordCorrectedMemoryDiagnostic(pCper, pKyrChipsetSupportData, &IsReportingRequired);
    if (IsReportingRequired == FALSE) {
        return;
    }
    *pIsOsNotificationRequired = TRUE;
    if (pKyrChipsetSupportData->MachineCheck.ValidRasMcaErrorInfo != FALSE) {
        VornElogSmmLogMachineCheckData(pKyrChipsetSupportData);
    }
}

#include "Library/VornElogPolicyLib/MachineCheck/PostProcessDeferred.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/SetupAttributes.h"
#include "Library/VornElogChipsetLib/SelMemory.h"
#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/MachineCheck/DeferredHistory.h"
#include "Library/VornElogPolicyLib/MachineCheck/MachineCheckSel.h"
#include "Library/VornElogPolicyLib/Memory/HealthEvent.h"
#include "Library/VornElogPolicyLib/Memory/MemoryRecord.h"
#include "Library/VornElogPolicyLib/Memory/PprRequest.h"
#include "Library/VornElogPolicyLib/Notification/OsNotification.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/RecordFields.h"

void VornElogSmmPostProcessErrorRecordDeferredMemory(const CPER_RECORD* pCper,
                                                     KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                                     BOOLEAN IsPprOnUceEnabled) {
    if (pCper == nullptr || pKyrChipsetSupportData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return;
    }
    const MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
    ElogLogMemoryUncorrectedEccErrorPoisonDetection(Location.Socket, Location.Channel, Location.Dimm);
    if (pKyrChipsetSupportData->MachineCheck.ValidRasMcaErrorInfo == FALSE) {
        return;
    }

    EFI_STATUS Status = VornElogSmmProcessMemoryHealthEventHostEcc(pKyrChipsetSupportData, HostEccPoisonCreation);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogSmmProcessMemoryHealthEventHostEcc (PoisonCreation)\n", Status);
    }
    const UINT32 Mode = mPrivateDataVornElogPolicyLib.RasErrorLoggingMode;
    if (Mode == RasDiagnosticMode) {
        VornElogSmmLogMachineCheckData(pKyrChipsetSupportData);
    }
    if (IsPprOnUceEnabled != FALSE && Mode == RasProductionMode) {
        Status = VornElogSmmRequestPpr(pKyrChipsetSupportData, PPR_DEFER);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogSmmRequestPpr (PPR_DEFER)\n", Status);
        }
    }
}

// Looks for an earlier poison report of the cache line; false when the search failed.
static bool FindPoisonReport(UINT64 SystemAddress, BOOLEAN* pFound, const CHAR8* Caller) {
    const EFI_STATUS Status =
        VornElogSmmIsDeferredErrorPreviouslyLogged(MemoryUncorrectedEccPoisonDetection, SystemAddress, pFound);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from VornElogSmmIsDeferredErrorPreviouslyLogged "
                "(MemoryUncorrectedEccPoisonDetection), skipping to next record\n",
                Status);
    }
    return !EFI_ERROR(Status);
}

// False leaves the entry unmarked: the next SMI examines it again.
static bool PostProcessDeferredMemoryEntry(ERROR_RECORD_BUFFER_ENTRY& Entry, bool* pIsOsNotificationRequired,
                                           const CHAR8* Caller) {
    const UINT64 ValidationBits = SectionField<UINT64>(Entry.pCper, offsetof(CPER_MEMORY_SECTION, ValidationBits));
    if (!IsMemoryLocationValid(ValidationBits)) {
        return true;
    }
    const EFI_STATUS Status = VornElogSmmGetMemErrorLocation(Entry.pCper);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r returned while decoding DIMM location, skipping to next record\n",
                Status);
        return false;
    }
    if (CperMemoryValid::PhysicalAddress::Get(ValidationBits) == 0) {
        return true;
    }
    BOOLEAN PreviouslyLogged = FALSE;
    const UINT64 SystemAddress = RecordField<UINT64>(Entry.pCper, CPER_MEMORY_PHYSICAL_ADDRESS_OFFSET);
    if (!FindPoisonReport(SystemAddress, &PreviouslyLogged, Caller)) {
        return false;
    }
    if (mPrivateDataVornElogPolicyLib.RasErrorLoggingMode == RasDiagnosticMode || PreviouslyLogged == FALSE) {
        const BOOLEAN IsPprOnUceEnabled = VornIsNvramAttributeEqual(u"PPROnUCE", u"Enabled");
        VornElogSmmPostProcessErrorRecordDeferredMemory(Entry.pCper, Entry.pKyrChipsetSupportData, IsPprOnUceEnabled);
        Entry.PoisonDetectionReported = TRUE;
        *pIsOsNotificationRequired = true;
    }
    return true;
}

// The same of a processor's record, which never asks for the OS to be told and never counts as a poison report.
static bool PostProcessDeferredProcessorEntry(const ERROR_RECORD_BUFFER_ENTRY& Entry, const CHAR8* Caller) {
    const KYR_CHIPSET_SUPPORT_DATA& ChipsetData = *Entry.pKyrChipsetSupportData;
    BOOLEAN PreviouslyLogged = FALSE;
    if (!FindPoisonReport(McaAddr::ErrorAddr::Get(RecordBank(ChipsetData).McaAddr), &PreviouslyLogged, Caller)) {
        return false;
    }
    if (PreviouslyLogged == FALSE && ChipsetData.MachineCheck.ValidRasMcaErrorInfo != FALSE) {
        VornElogSmmLogMachineCheckData(&ChipsetData);
    }
    return true;
}

static bool PostProcessDeferredEntry(ERROR_RECORD_BUFFER_ENTRY& Entry, bool* pIsOsNotificationRequired,
                                     const CHAR8* Caller) {
    if (IsSectionType(Entry.pCper, gCperSectionPlatformMemoryGuid)) {
        return PostProcessDeferredMemoryEntry(Entry, pIsOsNotificationRequired, Caller);
    }
    if (IsSectionType(Entry.pCper, gCperSectionProcessorSpecificGuid)) {
        return PostProcessDeferredProcessorEntry(Entry, Caller);
    }
    return true;
}

void VornElogSmmPostProcessErrorRecordsDeferred() {
    bool IsOsNotificationRequired = false;
    const ERROR_RECORD_BUFFER_ENTRY* pLastWalked = nullptr;
    NewestFirst Walk(mPrivateDataVornElogPolicyLib.pMcaDeferredCircularBuffer);
    while (ERROR_RECORD_BUFFER_ENTRY* pEntry = Walk.Next()) {
        if (pEntry->Processed != FALSE) {
            Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: Previously processed - halt further processing\n");
            break;
        }
        pLastWalked = pEntry;
        if (PostProcessDeferredEntry(*pEntry, &IsOsNotificationRequired, __func__)) {
            pEntry->Processed = TRUE;
        }
    }
    if (!IsOsNotificationRequired) {
        return;
    }
    const EFI_STATUS Status =
        VornElogSmmOsErrorNotification(pLastWalked->pCper, pLastWalked->pKyrChipsetSupportData,
                                       pLastWalked->pCper->Header.ErrorSeverity, SCI_CAUSE_APEI_GHES);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r updating OS error notification (SCI) settings SciCause 0x%08x "
              "(APEI HEST GHESS for CPER Deferred Error)\n",
              Status, SCI_CAUSE_APEI_GHES);
    }
}

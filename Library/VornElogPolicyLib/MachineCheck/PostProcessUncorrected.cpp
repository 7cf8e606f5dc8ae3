#include "Library/VornElogPolicyLib/MachineCheck/PostProcessUncorrected.h"

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

// Poisoned data of a known DIMM was used.
static void ReportPoisonConsumption(KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData, const CHAR8* Caller) {
    const MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
    ElogLogMemoryUncorrectedEccErrorPoisonConsumption(Location.Socket, Location.Channel, Location.Dimm);
    EFI_STATUS Status = VornElogSmmProcessMemoryHealthEventHostEcc(pKyrChipsetSupportData, HostEccPoisonConsumption);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from VornElogSmmProcessMemoryHealthEventHostEcc (PoisonConsumption)\n", Status);
    }
    if (mPrivateDataVornElogPolicyLib.RasErrorLoggingMode == RasProductionMode &&
        VornIsNvramAttributeEqual(u"PPROnUCE", u"Enabled")) {
        Status = VornElogSmmRequestPpr(pKyrChipsetSupportData, PPR_UNCORRECT);
        if (EFI_ERROR(Status)) {
            TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornElogSmmRequestPpr (PPR_UNCORRECT)\n", Status);
        }
    }
}

void VornElogSmmPostProcessErrorRecordUncorrectedReporting(const ERROR_RECORD_BUFFER_ENTRY* pBufferEntryUncorrected,
                                                           const ERROR_RECORD_BUFFER_ENTRY* pBufferEntryDeferred) {
    if (pBufferEntryUncorrected == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pBufferEntryUncorrected is NULL, aborting...\n");
        return;
    }
    KYR_CHIPSET_SUPPORT_DATA* pMemoryData = nullptr;
    if (!EFI_ERROR(VornElogSmmGetMemErrorLocation(pBufferEntryUncorrected->pCper))) {
        pMemoryData = pBufferEntryUncorrected->pKyrChipsetSupportData;
    }
    if (pBufferEntryDeferred != nullptr && !EFI_ERROR(VornElogSmmGetMemErrorLocation(pBufferEntryDeferred->pCper))) {
        pMemoryData = pBufferEntryDeferred->pKyrChipsetSupportData;
    }
    if (pMemoryData != nullptr) {
        ReportPoisonConsumption(pMemoryData, __func__);
    } else {
        VornElogSmmLogMachineCheckData(pBufferEntryUncorrected->pKyrChipsetSupportData);
    }
}

// The address that the error is about; false when the hardware gave none.
static bool GetSystemAddress(const ERROR_RECORD_BUFFER_ENTRY& Entry, UINT64* pSystemAddress) {
    if (IsSectionType(Entry.pCper, gCperSectionPlatformMemoryGuid)) {
        *pSystemAddress = RecordField<UINT64>(Entry.pCper, CPER_MEMORY_PHYSICAL_ADDRESS_OFFSET);
        return CperMemoryValid::PhysicalAddress::Get(
                   SectionField<UINT64>(Entry.pCper, offsetof(CPER_MEMORY_SECTION, ValidationBits))) != 0;
    }
    const MCA_BANK_ERROR_INFO& Bank = RecordBank(*Entry.pKyrChipsetSupportData);
    *pSystemAddress = McaAddr::ErrorAddr::Get(Bank.McaAddr);
    return McaStatus::AddrV::Get(Bank.McaStatus) != 0;
}

// A search that fails counts as no match.
static bool IsInDeferredHistory(UINT32 Mode, UINT64 SystemAddress) {
    BOOLEAN Found = FALSE;
    return !EFI_ERROR(VornElogSmmIsDeferredErrorPreviouslyLogged(Mode, SystemAddress, &Found)) && Found != FALSE;
}

// Whether the error is to be reported, and the deferred record that foretold it (NULL where there is none): poison
// is reported when it is consumed first, later consumers of the same cache line are not.
static bool IsToBeReported(const ERROR_RECORD_BUFFER_ENTRY& Entry, ERROR_RECORD_BUFFER_ENTRY** ppDeferred,
                           const CHAR8* Caller) {
    *ppDeferred = nullptr;
    UINT64 SystemAddress = 0;
    if (!GetSystemAddress(Entry, &SystemAddress)) {
        return true;
    }
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: Scan for deferred error (any cacheline match) - first pass\n");
    if (!IsInDeferredHistory(AnyCachelineMatch, SystemAddress)) {
        return true;
    }
    if (IsInDeferredHistory(MemoryUncorrectedEccPoisonConsumption, SystemAddress)) {
        return false;
    }
    const EFI_STATUS Status = VornElogSmmGetPriorPoisonDetected(SystemAddress, ppDeferred);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornElogSmmGetPriorPoisonDetected\n", Status);
        *ppDeferred = nullptr;
    }
    return true;
}

static void NotifyOs(const ERROR_RECORD_BUFFER_ENTRY& Entry, const CHAR8* Caller) {
    const EFI_STATUS Status = VornElogSmmOsErrorNotification(Entry.pCper, Entry.pKyrChipsetSupportData,
                                                             Entry.pCper->Header.ErrorSeverity, SCI_CAUSE_APEI_GHES);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r updating OS error notification (SCI) settings SciCause 0x%08x "
                "(APEI HEST GHESS for CPER Uncorrected Error)\n",
                Status, SCI_CAUSE_APEI_GHES);
    }
}

// A processor's record has no memory section to mark.
static void MarkPoisoned(CPER_RECORD* pCper) {
    if (!IsSectionType(pCper, gCperSectionPlatformMemoryGuid) ||
        !RecordHolds(pCper, sizeof(CPER_RECORD) + offsetof(CPER_MEMORY_SECTION, ErrorStatus), sizeof(UINT64))) {
        return;
    }
    CPER_MEMORY_SECTION& Section = *CperSection<CPER_MEMORY_SECTION>(pCper);
    Section.ErrorStatus = CperErrorStatus::ErrorType::Set(Section.ErrorStatus, CperErrorStatus::ERR_POISONED);
}

void VornElogSmmPostProcessErrorRecordsUncorrected() {
    NewestFirst Walk(mPrivateDataVornElogPolicyLib.pMcaUncorrectedFiniteBuffer);
    while (const ERROR_RECORD_BUFFER_ENTRY* pEntry = Walk.Next()) {
        ERROR_RECORD_BUFFER_ENTRY* pDeferred = nullptr;
        if (!IsToBeReported(*pEntry, &pDeferred, __func__)) {
            continue;
        }
        VornElogSmmPostProcessErrorRecordUncorrectedReporting(pEntry, pDeferred);
        if (pDeferred != nullptr) {
            pDeferred->PoisonConsumptionReported = TRUE;
        }
        NotifyOs(*pEntry, __func__);
        if (pDeferred != nullptr) {
            MarkPoisoned(pDeferred->pCper);
            NotifyOs(*pDeferred, __func__);
        }
        const EFI_STATUS Status = VornElogSmmOsErrorContainment(pEntry->pCper, pEntry->pKyrChipsetSupportData);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogSmmOsErrorContainment\n", Status);
        }
    }
}

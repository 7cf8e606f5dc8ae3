#include "Library/VornElogPolicyLib/Memory/PageRetire.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

static constexpr UINT32 INDEX_NONE = 0xDEADBEEF;

// Whether pages are still tracked; traced where not.
static EFI_STATUS CheckTracking(const CHAR8* Caller) {
    const VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    if (Data.pOsEsxiPageRetireInfo == nullptr) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR mPrivateDataVornElogPolicyLib.pOsEsxiPageRetireInfo == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (Data.OsEsxiPageRetireNotificationCount > ESXI_PAGE_RETIRE_MAX_NOTIFICATIONS) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR mPrivateDataVornElogPolicyLib.OsEsxiPageRetireNotificationCount %d > Max Notifications "
                "%d, aborting...\n",
                Data.OsEsxiPageRetireNotificationCount, ESXI_PAGE_RETIRE_MAX_NOTIFICATIONS);
        return EFI_UNSUPPORTED;
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmEsxiMemoryPageRetireUpdateCeccCount(UINT32 PageThreshold, UINT64 MemoryPageAddress,
                                                          UINT32 ErrorCount) {
    const EFI_STATUS Status = CheckTracking(__func__);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    ESXI_PAGE_RETIRE_ENTRY* const Entries = mPrivateDataVornElogPolicyLib.pOsEsxiPageRetireInfo;
    UINT32 EsxiPageRetireArrayIndex = 0;
    // A count of 0 marks a free entry, so one that wrapped back to it is free again, which is meant.
    while (EsxiPageRetireArrayIndex < ESXI_PAGE_RETIRE_ENTRIES &&
           Entries[EsxiPageRetireArrayIndex].CeccErrorCount != 0 &&
           Entries[EsxiPageRetireArrayIndex].MemoryPageAddress != MemoryPageAddress) {
        EsxiPageRetireArrayIndex++;
    }
    if (EsxiPageRetireArrayIndex >= ESXI_PAGE_RETIRE_ENTRIES) {
        Trace(DEBUG_ERROR,
              "%a: ERROR EsxiPageRetireArrayIndex %d >= Max %d, ESXi page retire entry buffer overrun, "
              "aborting...\n",
              EsxiPageRetireArrayIndex, ESXI_PAGE_RETIRE_ENTRIES);
        return EFI_BUFFER_TOO_SMALL;
    }
    ESXI_PAGE_RETIRE_ENTRY& Entry = Entries[EsxiPageRetireArrayIndex];
    Entry.MemoryPageAddress = MemoryPageAddress;
    Entry.CeccErrorCount += ErrorCount;
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: page 0x%016lx entry %d CeccErrorCount %d of threshold %d\n",
          MemoryPageAddress, EsxiPageRetireArrayIndex, Entry.CeccErrorCount, PageThreshold);
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmIsEsxiMemoryPageRetireThresholdExceeded(UINT32 PageThreshold, UINT64 MemoryPageAddress,
                                                              UINT32* pIndex, ESXI_PAGE_RETIRE_ENTRY** ppEntry,
                                                              BOOLEAN* pExceeded) {
    if (pIndex == nullptr || ppEntry == nullptr || pExceeded == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const EFI_STATUS Status = CheckTracking(__func__);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    ESXI_PAGE_RETIRE_ENTRY* const Entries = mPrivateDataVornElogPolicyLib.pOsEsxiPageRetireInfo;
    *pIndex = INDEX_NONE;
    *pExceeded = FALSE;
    // Stays at the first entry, whichever matches: notifications are marked there, while the matching entry is asked
    // whether one was tried. So every later page asks again until the notifications are used up, which is meant.
    *ppEntry = &Entries[0];
    UINT32 EsxiPageRetireArrayIndex = 0;
    while (EsxiPageRetireArrayIndex < ESXI_PAGE_RETIRE_ENTRIES &&
           Entries[EsxiPageRetireArrayIndex].MemoryPageAddress != MemoryPageAddress) {
        EsxiPageRetireArrayIndex++;
    }
    if (EsxiPageRetireArrayIndex >= ESXI_PAGE_RETIRE_ENTRIES) {
        Trace(DEBUG_ERROR,
              "%a: ERROR EsxiPageRetireArrayIndex %d >= Max %d, ESXi page retire buffer matching entry not found, "
              "aborting...\n",
              EsxiPageRetireArrayIndex, ESXI_PAGE_RETIRE_ENTRIES);
        return EFI_NOT_FOUND;
    }
    *pIndex = EsxiPageRetireArrayIndex;
    const ESXI_PAGE_RETIRE_ENTRY& Match = Entries[EsxiPageRetireArrayIndex];
    *pExceeded = Match.CeccErrorCount >= PageThreshold && Match.ApeiHestNotificationAttempted == FALSE;
    return EFI_SUCCESS;
}

#include "Library/VornElogPolicyLib/Memory/LeakyBucket.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/RealTimeClock.h"
#include "Library/VornElogPolicyLib/Memory/HealthEvent.h"
#include "Library/VornElogPolicyLib/Memory/MemoryRecord.h"
#include "Library/VornElogPolicyLib/Memory/PageRetire.h"
#include "Library/VornElogPolicyLib/Memory/RowHistory.h"
#include "Library/VornElogPolicyLib/Memory/Thresholds.h"
#include "Library/VornElogPolicyLib/Notification/OsNotification.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/RecordFields.h"

static constexpr UINT32 LEAK_TIMEOUT_MINUTES = 10;
static constexpr UINT32 SECONDS_PER_MINUTE = 60;
static constexpr UINT32 ERROR_COUNT_MAX = 0xFFFFFFFF;

static CPER_TIMESTAMP RecordTimestamp(const CPER_RECORD* pCper) {
    return RecordField<CPER_TIMESTAMP>(pCper, offsetof(CPER_RECORD_HEADER, TimeStamp));
}

static bool IsTimestampValid(const CPER_TIMESTAMP& Timestamp) {
    return Timestamp.Year != 0;
}

static void StoreTimestamp(const CPER_RECORD* pCper, const MEM_ERR_LOCATION& MemErrLocation, CPER_TIMESTAMP* pField,
                           const CHAR8* Caller = __builtin_FUNCTION()) {
    *pField = RecordTimestamp(pCper);
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevelDetailed,
            "%a: Skt %d Ch %d Dimm %d Rank %d %02d%02d-%02d-%02d %02d:%02d:%02d\n", MemErrLocation.Socket,
            MemErrLocation.Channel, MemErrLocation.Dimm, MemErrLocation.Rank, pField->Century, pField->Year,
            pField->Month, pField->Day, pField->Hours, pField->Minutes, pField->Seconds);
}

void VornElogSmmUpdateCeccLeakyBucketPreviousTimestampData(const CPER_RECORD* pCper,
                                                           const MEM_ERR_LOCATION& MemErrLocation,
                                                           RANK_DATA* pRankData) {
    StoreTimestamp(pCper, MemErrLocation, &pRankData->CeccPfaTimestampPreviousError);
}

void VornElogSmmUpdateCeccLeakyBucketCurrentTimestampData(const CPER_RECORD* pCper,
                                                          const MEM_ERR_LOCATION& MemErrLocation,
                                                          RANK_DATA* pRankData) {
    StoreTimestamp(pCper, MemErrLocation, &pRankData->CeccPfaTimestampCurrentError);
}

// Whether the record may be counted: a corrected ECC error of an active DIMM's rank.
static bool IsCountable(const KYR_CHIPSET_SUPPORT_DATA& ChipsetData, const CHAR8* Caller) {
    if (ChipsetData.MachineCheck.ValidRasMcaErrorInfo == FALSE) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR RasMcaErrorInfo not valid, aborting...\n");
        return false;
    }
    const UINT64 Status = RecordBank(ChipsetData).McaStatus;
    if (McaStatus::ErrorCodeExt::Get(Status) != UmcErrorCodeExt::DRAM_ECC || !McaStatus::CECC::Get(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR Non ECC error detected, aborting...\n");
        return false;
    }
    return VornElogSmmIsMemErrLocationActive(Caller);
}

// Takes the time of the error. A bucket that none reached for a while is empty, unless the rank is past its critical
// threshold. The warning stays given: its flags are left alone on purpose.
static void AgeBucket(const CECC_RECORD& Record) {
    const MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
    RANK_DATA& Rank = *Record.pRankData;
    if (!IsTimestampValid(Rank.CeccPfaTimestampPreviousError)) {
        VornElogSmmUpdateCeccLeakyBucketPreviousTimestampData(Record.pCper, Location, &Rank);
    }
    VornElogSmmUpdateCeccLeakyBucketCurrentTimestampData(Record.pCper, Location, &Rank);
    const UINT32 Minutes =
        CperGetNoofSecondsPast(&Rank.CeccPfaTimestampCurrentError, &Rank.CeccPfaTimestampPreviousError) /
        SECONDS_PER_MINUTE;
    if (Minutes < LEAK_TIMEOUT_MINUTES || Rank.Flags.CritThresholdLogged != FALSE) {
        return;
    }
    TraceAs(Record.Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: Minutes elapsed since last error %d > leak timeout %d, resetting CECC leaky bucket data\n", Minutes,
            LEAK_TIMEOUT_MINUTES);
    Rank.CeccPfaCurrentErrorCount = 0;
    Rank.CeccPfaTimestampPreviousError = {};
    Rank.CeccPfaTimestampCurrentError = {};
    VornElogSmmClearMemoryCeccHashTable(Location.Socket, Location.Channel, Location.Dimm, Location.Rank);
    VornElogSmmUpdateCeccLeakyBucketPreviousTimestampData(Record.pCper, Location, &Rank);
    VornElogSmmUpdateCeccLeakyBucketCurrentTimestampData(Record.pCper, Location, &Rank);
}

static void AddErrors(RANK_DATA& Rank, UINT32 Errors, const CHAR8* Caller) {
    const UINT32 Sum = Rank.CeccPfaCurrentErrorCount + Errors;
    // No errors at all count as an overflow too, which is meant: the rank then crosses every threshold.
    if (Sum > Rank.CeccPfaCurrentErrorCount) {
        TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
                "%a: No overflow, adding %d errors to rank CECC error count\n", Errors);
        Rank.CeccPfaCurrentErrorCount = Sum;
    } else {
        TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
                "%a: UINT32 overflow, setting rank CECC error count to maximum value\n");
        Rank.CeccPfaCurrentErrorCount = ERROR_COUNT_MAX;
    }
}

// Counts the errors against their page and their row; the rank's count does not depend on either.
static void TrackPageAndRow(const CECC_RECORD& Record, UINT32 PageThreshold, UINT64 MemoryPageAddress,
                            UINT32 Errors) {
    const MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
    EFI_STATUS Status = VornElogSmmEsxiMemoryPageRetireUpdateCeccCount(PageThreshold, MemoryPageAddress, Errors);
    if (EFI_ERROR(Status)) {
        TraceAs(Record.Caller, DEBUG_ERROR, "%a: ERROR %r from VornElogSmmEsxiMemoryPageRetireUpdateCeccCount\n",
                Status);
    }
    Status = VornElogSmmUpdateMemoryCeccHashTable(Location.Socket, Location.Channel, Location.Dimm, Location.Rank,
                                                  Record.pCper, Record.pKyrChipsetSupportData);
    if (EFI_ERROR(Status)) {
        TraceAs(Record.Caller, DEBUG_ERROR, "%a: ERROR %r from VornElogSmmUpdateMemoryCeccHashTable\n", Status);
    }
}

static void RequestPageRetirement(const CECC_RECORD& Record, ESXI_PAGE_RETIRE_ENTRY& Entry) {
    EFI_STATUS Status =
        VornElogSmmProcessMemoryHealthEventHostEcc(Record.pKyrChipsetSupportData, HostEccCeccThreshold);
    if (EFI_ERROR(Status)) {
        TraceAs(Record.Caller, DEBUG_ERROR,
                "%a: ERROR %r from VornElogSmmProcessMemoryHealthEventHostEcc (ESXi memory page retirement)\n",
                Status);
    }
    constexpr UINT32 SciCause = SCI_CAUSE_ESXI_PAGE_RETIRE | SCI_CAUSE_APEI_GHES;
    Entry.ApeiHestNotificationAttempted = TRUE;
    Record.pCper->Descriptor.Flags |= CPER_DESCRIPTOR_FLAG_ERROR_THRESHOLD_EXCEEDED;
    Status = VornElogSmmOsErrorNotification(Record.pCper, Record.pKyrChipsetSupportData,
                                            Record.pCper->Header.ErrorSeverity, SciCause);
    if (EFI_ERROR(Status)) {
        TraceAs(Record.Caller, DEBUG_ERROR,
                "%a: ERROR %r updating OS error notification (SCI) settings SciCause 0x%08x (APEI HEST GHESS for "
                "ESXi memory page retirement request), aborting...\n",
                Status, SciCause);
    } else {
        Entry.ApeiHestNotificationSuccessful = TRUE;
        const CPER_TIMESTAMP Timestamp = RecordTimestamp(Record.pCper);
        CopyMem(Entry.ApeiHestNotificationTimestamp, &Timestamp, sizeof(Timestamp));
    }
    mPrivateDataVornElogPolicyLib.OsEsxiPageRetireNotificationCount++;
}

// A rank past its page threshold may have a page that the OS should retire. False ends the record's processing:
// pages are not tracked, or the notifications are used up.
static bool CheckPage(const CECC_RECORD& Record, UINT32 PageThreshold, UINT64 MemoryPageAddress) {
    UINT32 Index = 0;
    ESXI_PAGE_RETIRE_ENTRY* pEsxiMemoryPageRetireEntry = nullptr;
    BOOLEAN Exceeded = FALSE;
    const EFI_STATUS Status = VornElogSmmIsEsxiMemoryPageRetireThresholdExceeded(
        PageThreshold, MemoryPageAddress, &Index, &pEsxiMemoryPageRetireEntry, &Exceeded);
    if (pEsxiMemoryPageRetireEntry == nullptr) {
        TraceAs(Record.Caller, DEBUG_ERROR,
                "%a: ERROR %r from VornElogSmmIsEsxiMemoryPageRetireThresholdExceeded. pEsxiMemoryPageRetireEntry is "
                "returned as NULL\n",
                Status);
        return false;
    }
    if (!EFI_ERROR(Status) && Exceeded != FALSE) {
        RequestPageRetirement(Record, *pEsxiMemoryPageRetireEntry);
    }
    return true;
}

void VornElogSmmPostProcessErrorRecordCorrectedMemoryThreshold(CPER_RECORD* pCper,
                                                               KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                                               BOOLEAN* pIsOsNotificationRequired) {
    *pIsOsNotificationRequired = FALSE;
    if (!IsCountable(*pKyrChipsetSupportData, __func__)) {
        return;
    }
    const MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
    DIMM_DATA& Dimm = mPrivateDataVornElogPolicyLib.DimmData[Location.Socket][Location.Channel][Location.Dimm];
    RANK_DATA& Rank = Dimm.Rank[Location.Rank];
    const CECC_RECORD Record = {pCper, pKyrChipsetSupportData, &Rank, __func__};
    AgeBucket(Record);
    const UINT32 Errors = pKyrChipsetSupportData->MachineCheck.UmcCeccPfaThresholdData.EccErrCntDelta;
    AddErrors(Rank, Errors, __func__);

    const UINT32 Count = Rank.CeccPfaCurrentErrorCount;
    const CECC_THRESHOLDS Thresholds = CeccThresholds(Dimm.CeccPfaData.SwThresholdCount);
    const UINT64 MemoryPageAddress =
        MemoryPageAddressOf(pKyrChipsetSupportData->MachineCheck.NormalizedAddressInfo.NormalizedAddress);
    TrackPageAndRow(Record, Thresholds.PageRetire, MemoryPageAddress, Errors);
    if (Count >= Thresholds.PageRetire && !CheckPage(Record, Thresholds.PageRetire, MemoryPageAddress)) {
        return;
    }
    if (Count >= Thresholds.Warning && Rank.Flags.WarnThresholdLogged == FALSE) {
        VornElogSmmCrossWarningThreshold(Record);
        // The warning leaves the previous error's time as it is, which is meant.
        return;
    }
    if (Count >= Thresholds.Critical && Rank.Flags.WarnThresholdLogged != FALSE &&
        Rank.Flags.CritThresholdLogged == FALSE) {
        VornElogSmmCrossCriticalThreshold(Record);
    }
    VornElogSmmUpdateCeccLeakyBucketPreviousTimestampData(pCper, Location, &Rank);
}

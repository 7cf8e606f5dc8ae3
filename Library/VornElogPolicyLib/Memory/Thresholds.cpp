#include "Library/VornElogPolicyLib/Memory/Thresholds.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/SetupAttributes.h"
#include "Library/VornElogChipsetLib/SelMemory.h"
#include "Library/VornElogPolicyLib/Memory/HealthEvent.h"
#include "Library/VornElogPolicyLib/Memory/PprRequest.h"
#include "Library/VornElogPolicyLib/Memory/RowHistory.h"
#include "Library/VornElogPolicyLib/Notification/OsNotification.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Protocol/RasService.h"

// How the SEL event numbers the critical threshold.
static constexpr UINT8 SEL_THRESHOLD_CRITICAL = 2;

// The latest record of a row.
struct ROW_RECORD {
    CPER_RECORD* pCper;
    KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData;
};

// The row of the rank's DIMM with the most errors; the crossing record itself where the history has none.
static ROW_RECORD MostAffectedRow(const CECC_RECORD& Crossing, TraceFormat<> SubstitutionText) {
    const MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
    ROW_RECORD Row{};
    const EFI_STATUS Status = VornElogSmmRetrieveMemoryCeccHashTableHighestRowCount(
        Location.Socket, Location.Channel, Location.Dimm, Location.Rank, &Row.pCper, &Row.pKyrChipsetSupportData);
    if (EFI_ERROR(Status) || Row.pCper == nullptr || Row.pKyrChipsetSupportData == nullptr) {
        TraceAs(Crossing.Caller, DEBUG_ERROR,
                "%a: ERROR %r from VornElogSmmRetrieveMemoryCeccHashTableHighestRowCount\n", Status);
        TraceAs(Crossing.Caller, DEBUG_ERROR, SubstitutionText);
        return {Crossing.pCper, Crossing.pKyrChipsetSupportData};
    }
    return Row;
}

// Once a threshold: a request that succeeded is not repeated.
static void RequestRepairOnce(const ROW_RECORD& Row, UINT16 PprType, UINT8* pIsRequested,
                              TraceFormat<EFI_STATUS> FailureText, const CHAR8* Caller) {
    if (*pIsRequested != FALSE) {
        return;
    }
    const EFI_STATUS Status = VornElogSmmRequestPpr(Row.pKyrChipsetSupportData, PprType);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, FailureText, Status);
    } else {
        *pIsRequested = TRUE;
    }
}

static void SendHealthEvent(const CECC_RECORD& Crossing) {
    const EFI_STATUS Status =
        VornElogSmmProcessMemoryHealthEventHostEcc(Crossing.pKyrChipsetSupportData, HostEccCeccThreshold);
    if (EFI_ERROR(Status)) {
        TraceAs(Crossing.Caller, DEBUG_ERROR,
                "%a: ERROR %r from VornElogSmmProcessMemoryHealthEventHostEcc (CECC threshold)\n", Status);
    }
}

static void ClearRowHistory() {
    const MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
    VornElogSmmClearMemoryCeccHashTable(Location.Socket, Location.Channel, Location.Dimm, Location.Rank);
}

void VornElogSmmCrossWarningThreshold(const CECC_RECORD& Crossing) {
    auto& Flags = Crossing.pRankData->Flags;
    Flags.WarnThresholdLogged = TRUE;
    const ROW_RECORD Row =
        MostAffectedRow(Crossing, "%a: ERROR Substituting error data @ warning threshold instead\n");
    RequestRepairOnce(Row, PPR_WARNING, &Flags.WarnThresholdPprRequested,
                      "%a: ERROR %r from VornElogSmmRequestPpr (PPR_WARNING)\n", Crossing.Caller);
    SendHealthEvent(Crossing);
    ClearRowHistory();
}

// No more SMIs from this DIMM: what it does now is known.
static void DisableCounters(const CECC_RECORD& Crossing) {
    const MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
    const NORMALIZED_ADDRESS& Address = Crossing.pKyrChipsetSupportData->MachineCheck.NormalizedAddressInfo;
    const EFI_STATUS Status =
        mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol->CorrectedErrorCounterPerDimmDisable(
            Address.Socket, Address.UmcChannel, Location.Dimm);
    if (EFI_ERROR(Status)) {
        TraceAs(Crossing.Caller, DEBUG_ERROR,
                "%a: ERROR %r from mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol->"
                "CorrectedErrorCounterPerDimmDisable for Skt %d Ch %d Dimm %d\n",
                Status, Address.Socket, Address.UmcChannel, Location.Dimm);
        return;
    }
    mPrivateDataVornElogPolicyLib.DimmData[Location.Socket][Location.Channel][Location.Dimm].Flags.CeccSmiDisabled =
        TRUE;
}

static void NotifyOs(const CECC_RECORD& Crossing, const ROW_RECORD& Row) {
    Row.pCper->Descriptor.Flags |= CPER_DESCRIPTOR_FLAG_ERROR_THRESHOLD_EXCEEDED;
    const EFI_STATUS Status = VornElogSmmOsErrorNotification(
        Row.pCper, Row.pKyrChipsetSupportData, Crossing.pCper->Header.ErrorSeverity, SCI_CAUSE_APEI_GHES);
    if (EFI_ERROR(Status)) {
        TraceAs(Crossing.Caller, DEBUG_ERROR,
                "%a: ERROR %r updating OS error notification (SCI) settings SciCause 0x%08x (APEI HEST GHESS for "
                "CECC critical threshold)\n",
                Status, SCI_CAUSE_APEI_GHES);
    }
}

void VornElogSmmCrossCriticalThreshold(const CECC_RECORD& Crossing) {
    auto& Flags = Crossing.pRankData->Flags;
    Flags.CritThresholdLogged = TRUE;
    if (VornIsNvramAttributeEqual(u"CECriticalSEL", u"Enabled")) {
        const MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
        ElogLogMemoryThresholdError(Location.Socket, Location.Channel, Location.Dimm, SEL_THRESHOLD_CRITICAL);
    }
    const ROW_RECORD Row =
        MostAffectedRow(Crossing, "%a: ERROR Substituting error data @ critical threshold instead\n");
    RequestRepairOnce(Row, PPR_CRITICAL, &Flags.CritThresholdPprRequested,
                      "%a: ERROR %r from VornElogSmmRequestPpr (PPR_CRITICAL)\n", Crossing.Caller);
    SendHealthEvent(Crossing);
    DisableCounters(Crossing);
    NotifyOs(Crossing, Row);
    ClearRowHistory();
}

#include "Library/VornElogPolicyLib/Notification/OsNotification.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornCperCreateLib/CxlSections.h"
#include "Library/VornElogPolicyLib/Memory/Thresholds.h"
#include "Library/VornElogPolicyLib/Pcie/DpcEvent.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/RecordFields.h"
#include "Library/VornElogPolicyLib/RecordFunction.h"
#include "Platform/Protocol/VendorServices.h"
#include "Platform/State.h"

KYR_STATE BOOLEAN ApeiGhesClearedThisSmi = FALSE;
KYR_STATE BOOLEAN VornApeiIssueSciFlag = FALSE;
KYR_STATE BOOLEAN VornApeiIssueNmiFlag = FALSE;
KYR_STATE UINT32 ApeiSciCause = 0;

static const VORN_APEI_LOGGING_SMM_PROTOCOL* ApeiLogging(const CHAR8* Caller = __builtin_FUNCTION()) {
    const VORN_APEI_LOGGING_SMM_PROTOCOL* pApeiLogging = mPrivateDataVornElogPolicyLib.pVornApeiLoggingSmmProtocol;
    if (pApeiLogging == nullptr) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR mPrivateDataVornElogPolicyLib.pVornApeiLoggingSmmProtocol == NULL, aborting...\n");
    }
    return pApeiLogging;
}

static bool IsErrorRecord(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                          const CHAR8* Caller = __builtin_FUNCTION()) {
    if (pCper == nullptr || pKyrChipsetSupportData == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return false;
    }
    return IsRecordFrontComplete(pCper, Caller);
}

static bool IsPciRecord(const CPER_RECORD* pCper) {
    return IsSectionType(pCper, gCperSectionPcieGuid) || IsSectionType(pCper, gCperSectionPciComponentGuid);
}

static void RequestSci(UINT32 SciCause) {
    VornApeiIssueSciFlag = TRUE;
    ApeiSciCause |= SciCause;
}

// Once an SMI, before its first record goes in.
static EFI_STATUS ClearGhes(const VORN_APEI_LOGGING_SMM_PROTOCOL& ApeiLogging, const CHAR8* Caller) {
    if (ApeiGhesClearedThisSmi != FALSE) {
        return EFI_SUCCESS;
    }
    const EFI_STATUS Status = ApeiLogging.ElogClearGhes(&ApeiLogging);
    if (EFI_ERROR(Status) && Status != EFI_NOT_READY) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r clearing APEI HEST GHESS structures unexpected error code requires debugging, "
                "aborting...\n",
                Status);
        return Status;
    }
    ApeiGhesClearedThisSmi = TRUE;
    return EFI_SUCCESS;
}

// Of the DIMM whose error is being processed. The location is what a record says and may name no DIMM.
static UINT32 PageRetireThreshold(const CHAR8* Caller) {
    const MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
    if (!VornElogSmmIsDimmPlace(Location.Socket, Location.Channel, Location.Dimm, Caller)) {
        return 0;
    }
    const DIMM_DATA& Dimm = mPrivateDataVornElogPolicyLib.DimmData[Location.Socket][Location.Channel][Location.Dimm];
    return CeccThresholds(Dimm.CeccPfaData.SwThresholdCount).PageRetire;
}

static void LogPageRetire(const VORN_APEI_LOGGING_SMM_PROTOCOL& ApeiLogging, const CPER_RECORD* pCper,
                          const CHAR8* Caller) {
    const EFI_STATUS Status = ApeiLogging.ElogLogPageRetire(
        &ApeiLogging, &pCper->Header.TimeStamp, pCper->Descriptor.FruString,
        RecordField<UINT64>(pCper, CPER_MEMORY_PHYSICAL_ADDRESS_OFFSET), PageRetireThreshold(Caller));
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r logging CPER data to APEI HEST GHESS for ESXi memory page retire\n", Status);
    }
}

EFI_STATUS VornElogSmmOsErrorNotification(const CPER_RECORD* pCper,
                                          const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                          UINT32 ErrorSeverity, UINT32 SciCause) {
    if (!IsErrorRecord(pCper, pKyrChipsetSupportData)) {
        return EFI_INVALID_PARAMETER;
    }
    const VORN_APEI_LOGGING_SMM_PROTOCOL* pApeiLogging = ApeiLogging();
    if (pApeiLogging == nullptr) {
        return EFI_NOT_FOUND;
    }
    BOOLEAN IsApeiOsLoaded = FALSE;
    EFI_STATUS Status = pApeiLogging->ElogIsApeiOsLoaded(&IsApeiOsLoaded);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r from mPrivateDataVornElogPolicyLib.pVornApeiLoggingSmmProtocol->ElogIsApeiOsLoaded, "
              "aborting...\n",
              Status);
        return Status;
    }
    if (IsApeiOsLoaded == FALSE) {
        // The text notwithstanding, the record is logged and the SCI asked for. That is meant.
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: APEI OS is not running, exiting...\n");
    }

    if (IsPciRecord(pCper) && pKyrChipsetSupportData->Pci.DpcEvent != FALSE &&
        pKyrChipsetSupportData->Pci.DpcOsLoaded != FALSE) {
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
              "%a: DPC event detected, DPC O/S loaded => Skipping APEI HEST error logging\n");
        RequestSci(SciCause);
        return EFI_SUCCESS;
    }

    Status = ClearGhes(*pApeiLogging, __func__);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    if (IsSectionType(pCper, gCperSectionPlatformMemoryGuid) &&
        pCper->Header.ErrorSeverity == CperSeverityCorrected && (SciCause & SCI_CAUSE_ESXI_PAGE_RETIRE) != 0) {
        LogPageRetire(*pApeiLogging, pCper, __func__);
    }
    Status = pApeiLogging->ElogLogCper(pApeiLogging, pCper, ErrorSeverity);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r logging CPER data to APEI HEST GHESS\n", Status);
        if (Status != EFI_NOT_READY && Status != EFI_ALREADY_STARTED) {
            Trace(DEBUG_ERROR,
                  "%a: ERROR %r logging CPER data to APEI HEST GHESS unexpected error code requires debugging\n",
                  Status);
        }
        return Status;
    }
    RequestSci(SciCause);
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: logged, severity %d, SciCause 0x%08x\n", ErrorSeverity,
          ApeiSciCause);
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmOsErrorContainment(const CPER_RECORD* pCper,
                                         const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData) {
    if (!IsErrorRecord(pCper, pKyrChipsetSupportData)) {
        return EFI_INVALID_PARAMETER;
    }
    const UINT32 Severity = pCper->Header.ErrorSeverity;
    const bool IsFatal = Severity == CperSeverityFatal;
    const bool IsFatalOrRecoverable = IsFatal || Severity == CperSeverityRecoverable;
    const EFI_GUID Type = RecordSectionType(pCper);
    bool IsNmiRequired = false;
    if (IsPciRecord(pCper)) {
        PCI_SBDF At;
        if (!GetRecordFunction(pCper, &At)) {
            Trace(DEBUG_ERROR, "%a: ERROR CPER RecordLength %d too short for its section, aborting...\n",
                  pCper->Header.RecordLength);
            return EFI_INVALID_PARAMETER;
        }
        if (IsFatalOrRecoverable && pKyrChipsetSupportData->Pci.DpcOsLoaded != FALSE &&
            IsDpcAwareOs(At.Seg, At.Bus, At.Dev, At.Func) != FALSE) {
            Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
                  "%a: Skipping NMI notification for DPC event, exiting...\n");
            return EFI_SUCCESS;
        }
        IsNmiRequired = IsFatalOrRecoverable;
    } else if (IsGuidEqual(Type, gCperSectionCxlProtocolGuid)) {
        IsNmiRequired = IsFatalOrRecoverable;
    } else {
        IsNmiRequired = IsFatal && VornElogCxlCheckComponentEventSectionType(&Type) != FALSE;
    }
    if (IsNmiRequired) {
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: NMI required, severity %d, section %g\n", Severity,
              &Type);
        VornApeiIssueNmiFlag = TRUE;
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmIssueSci() {
    const VORN_APEI_LOGGING_SMM_PROTOCOL* pApeiLogging = ApeiLogging();
    if (pApeiLogging == nullptr) {
        return EFI_NOT_FOUND;
    }
    const EFI_STATUS Status = pApeiLogging->ElogSignalSci(pApeiLogging, ApeiSciCause);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from ElogSignalSci\n", Status);
    }
    return Status;
}

EFI_STATUS VornElogSmmIssueNmi() {
    const VORN_APEI_LOGGING_SMM_PROTOCOL* pApeiLogging = ApeiLogging();
    if (pApeiLogging == nullptr) {
        return EFI_NOT_FOUND;
    }
    const EFI_STATUS Status = pApeiLogging->ElogSignalNmi(pApeiLogging);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from ElogSignalNmi\n", Status);
    }
    return Status;
}

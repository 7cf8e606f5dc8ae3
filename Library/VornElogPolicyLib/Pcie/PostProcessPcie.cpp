#include "Library/VornElogPolicyLib/Pcie/PostProcessPcie.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornCperCreateLib/CperSeverity.h"
#include "Library/VornCperCreateLib/CxlSections.h"
#include "Library/VornElogChipsetLib/SelPcie.h"
#include "Library/VornElogPolicyLib/Cxl/CxlRegisterLogging.h"
#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/Notification/OsNotification.h"
#include "Library/VornElogPolicyLib/Pcie/AerLogging.h"
#include "Library/VornElogPolicyLib/Pcie/DpcEvent.h"
#include "Library/VornElogPolicyLib/Pcie/DpcPostProcess.h"
#include "Library/VornElogPolicyLib/Pcie/DpcTriggerBuffer.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/Pcie/HandleFlags.h"
#include "Library/VornElogPolicyLib/Pcie/PciSlotData.h"
#include "Library/VornElogPolicyLib/Pcie/PcieRecord.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/RecordFields.h"
#include "Library/VornElogPolicyLib/RecordFunction.h"
#include "Platform/Guids.h"

namespace {

// Calls Visit with each filed entry, oldest first.
template <class Visitor>
void ForEachPciEntry(Visitor Visit) {
    FINITE_BUFFER* pBuffer = mPrivateDataVornElogPolicyLib.pPciFiniteBuffer;
    if (pBuffer == nullptr) {
        return;
    }
    for (UINT32 Element = pBuffer->Head; Element < pBuffer->Tail; Element++) {
        Visit(*BufferSlot<ERROR_RECORD_BUFFER_ENTRY>(pBuffer, Element));
    }
}

// What lies beside a filed record; NULL for a record that is not filed.
const KYR_CHIPSET_SUPPORT_DATA* ChipsetSupportDataOf(const CPER_RECORD* pCper) {
    const KYR_CHIPSET_SUPPORT_DATA* pFound = nullptr;
    ForEachPciEntry([&](const ERROR_RECORD_BUFFER_ENTRY& Entry) {
        if (Entry.pCper == pCper) {
            pFound = Entry.pKyrChipsetSupportData;
        }
    });
    return pFound;
}

// The answers start at nothing to be done. False, traced, for a NULL argument.
bool AreGiven(const CPER_RECORD* pCper, const PCIE_ALREADY_LOGGED* pAlreadyLogged, BOOLEAN* pIsPostProcessingRequired,
              UINT32* pSciCause, const CHAR8* Caller = __builtin_FUNCTION()) {
    if (pCper == nullptr || pAlreadyLogged == nullptr || pIsPostProcessingRequired == nullptr ||
        pSciCause == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return false;
    }
    *pIsPostProcessingRequired = FALSE;
    *pSciCause = 0;
    return true;
}

// Whether POST is over; *pIsRemembered keeps a yes for the life of the driver.
bool IsPostOver(UINT8* pIsRemembered) {
    if (*pIsRemembered == FALSE) {
        // The protocol is a mark without an interface.
        void* Interface = nullptr;
        *pIsRemembered = EFI_ERROR(gSmst->SmmLocateProtocol(&gEdkiiSmmReadyToBootProtocolGuid, nullptr, &Interface))
                             ? FALSE
                             : TRUE;
    }
    return *pIsRemembered != FALSE;
}

bool IsCorrected(const CPER_RECORD* pCper) {
    return pCper->Descriptor.Severity == CperSeverityCorrected;
}

bool IsCorrectedPcieLogged(const CPER_RECORD* pCper, const CHAR8* Caller) {
    VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    if (!IsCorrected(pCper)) {
        return true;
    }
    if (Data.RasErrorLoggingMode != RasDiagnosticMode) {
        TraceAs(Caller, Data.SerDbgLevel, "%a: Not in diagnostic mode, aborting...\n");
        return false;
    }
    if (!IsPostOver(&Data.PciePostCompleteForCper)) {
        TraceAs(Caller, Data.SerDbgLevel,
                "%a: System still in POST, not yet ready to log CPER corrected error (PCIe correctable), "
                "aborting...\n");
        return false;
    }
    return true;
}

// Unlike corrected PCIe errors, those of CXL are logged in production mode too.
bool IsCorrectedCxlLogged(const CPER_RECORD* pCper, const CHAR8* Caller) {
    VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    if (IsCorrected(pCper) && !IsPostOver(&Data.CxlPostCompleteForCper)) {
        TraceAs(Caller, Data.SerDbgLevel,
                "%a: System still in POST, not yet ready to log CPER corrected error (CXL correctable), "
                "aborting...\n");
        return false;
    }
    return true;
}

// What the step of one record works with.
struct RECORD_STEP {
    CPER_RECORD* pCper;
    PCIE_ALREADY_LOGGED* pAlreadyLogged;
    BOOLEAN* pIsPostProcessingRequired;
    UINT32* pSciCause;
    const CHAR8* Caller;
    const KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData = nullptr;
    const PCI_DEVICE_STATE* pState = nullptr;
    PCI_SBDF Sbdf{};
    PCIE_SEL_DATA SelData{};
    PCI_SLOT_NUMBER_DATA SlotNumberData{};
    EFI_STATUS SelStatus = EFI_NOT_FOUND;  // EFI_SUCCESS once an event went out
};

// Finds what belongs to the record's function; false when the function was not captured.
bool FindFunction(RECORD_STEP& Step) {
    Step.pState = DeviceStateOfRecord(Step.pCper, &Step.Sbdf, Step.Caller);
    if (Step.pState == nullptr) {
        return false;
    }
    Step.pChipsetSupportData = ChipsetSupportDataOf(Step.pCper);
    Step.SelData = {Step.Sbdf, SelSeverityNone, SelDeviceClassPcieSbdf};
    return true;
}

void LogEvents(RECORD_STEP& Step) {
    const auto LogEvent = IsRootPortOrEventCollector(*Step.pState)
                              ? VornElogSmmPostProcessErrorRecordPcieOrCxlRootPort
                              : VornElogSmmPostProcessErrorRecordPcieOrCxlDsDevice;
    LogEvent(Step.pCper, Step.pChipsetSupportData, Step.pState, &Step.SelData, &Step.SlotNumberData, &Step.SelStatus,
             Step.pAlreadyLogged, Step.pIsPostProcessingRequired);
}

void RequirePostProcessing(const RECORD_STEP& Step) {
    *Step.pIsPostProcessingRequired = TRUE;
    *Step.pSciCause = SCI_CAUSE_APEI_GHES;
}

// The OS sees every uncorrected error as fatal in its section, and as fatal overall during a storm only.
void RaiseUncorrectedSeverity(CPER_RECORD* pCper, bool IsStorm) {
    if (IsCorrected(pCper)) {
        return;
    }
    pCper->Descriptor.Severity = CperSeverityFatal;
    if (IsStorm) {
        pCper->Header.ErrorSeverity = CperSeverityFatal;
    }
}

void PostProcessLegacyPci(RECORD_STEP& Step) {
    if (Step.pCper->Descriptor.Severity != CperSeverityFatal) {
        return;
    }
    const PCI_SBDF& Sbdf = Step.Sbdf;
    const UINT16 Status = CapturedRegister16(Step.pState->PciHeader, PCI_STATUS);
    if ((Status & PciStatus::SignaledSystemError) != 0) {
        ElogLogPciSerr(Sbdf.Seg, Sbdf.Bus, Sbdf.Dev, Sbdf.Func);
        Step.SelStatus = EFI_SUCCESS;
    }
    if ((Status & PciStatus::DetectedParityError) != 0) {
        ElogLogPciPerr(Sbdf.Seg, Sbdf.Bus, Sbdf.Dev, Sbdf.Func);
        Step.SelStatus = EFI_SUCCESS;
    }
    if (!EFI_ERROR(Step.SelStatus)) {
        LogVendorDeviceId(*Step.pState);
    }
    RequirePostProcessing(Step);
}

// True when a containment event's own steps finished the record.
bool PostProcessDpcPort(RECORD_STEP& Step) {
    const PCIE_ERROR_STATUS& Is = Step.pState->Pcie.ErrorStatus;
    if (!IsDpcCapablePort(*Step.pState) || (Is.HandleRpPioFatal == FALSE && Is.HandleDpcEvent == FALSE)) {
        return false;
    }
    VornElogSmmPostProcessErrorRecordPcieDpcRpPio(Step.pCper, Step.pChipsetSupportData, Step.pState, &Step.SelData,
                                                  &Step.SlotNumberData, &Step.SelStatus, Step.pAlreadyLogged,
                                                  Step.pIsPostProcessingRequired);
    if (Is.HandleDpcEvent == FALSE) {
        return false;
    }
    const PCI_SBDF& Sbdf = Step.Sbdf;
    const PCI_SBDF RootPort = SbdfOf(Step.pState->PcieRootPortData.LogicalBridgePciAddress);
    const UINT8 Entry = GetSetDpcTriggerBuffer(Sbdf.Seg, Sbdf.Bus, Sbdf.Dev, Sbdf.Func, RootPort.Bus, RootPort.Dev,
                                               RootPort.Func, DpcTriggerLookUp);
    const bool IsDpcOs = IsDpcAwareOs(Sbdf.Seg, Sbdf.Bus, Sbdf.Dev, Sbdf.Func) != FALSE;
    TraceAs(Step.Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X DPC event, DPC_Triggered entry %d, DPC aware O/S %d\n", Sbdf.Seg, Sbdf.Bus,
            Sbdf.Dev, Sbdf.Func, Entry, IsDpcOs);
    const auto Finish = IsDpcOs ? VornElogSmmPostProcessErrorRecordPcieDpcTriggerOnDpcOs
                                : VornElogSmmPostProcessErrorRecordPcieDpcTriggerOnNonDpcOs;
    Finish(Step.pCper, Step.pChipsetSupportData, Step.pState, &Step.SelData, &Step.SlotNumberData, &Step.SelStatus,
           Step.pAlreadyLogged, Step.pIsPostProcessingRequired);
    *Step.pSciCause = IsDpcOs ? SCI_CAUSE_DPC_EVENT : SCI_CAUSE_APEI_GHES;
    return true;
}

void PostProcessPcieFunction(RECORD_STEP& Step) {
    const PCI_SBDF& Sbdf = Step.Sbdf;
    const CXL_ERROR_STATUS& Cxl = Step.pState->Cxl.ErrorStatus;
    if (Step.pState->Cxl.IsCxl != FALSE && IsCxlProtocolErrorHandled(Cxl)) {
        TraceAs(Step.Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
                "%a: SBDF %04X:%02X:%02X.%1X previously handled CXL Fatal %d Non-Fatal %d Correctable %d, skip SEL "
                "logging...\n",
                Sbdf.Seg, Sbdf.Bus, Sbdf.Dev, Sbdf.Func, Cxl.HandleFatal, Cxl.HandleNonFatal, Cxl.HandleCorrectable);
    } else {
        LogEvents(Step);
        VornElogSmmCheckAndLogPcieAerRegs(Step.pCper, Step.pState, &Step.SelData);
    }
    const bool IsStorm = Step.pState->Pcie.SmiStorm.UncorrectedError != FALSE;
    if (IsStorm && !IsCorrected(Step.pCper)) {
        TraceAs(
            Step.Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: Device @ SBDF %04X:%02X:%02X.%1X PCIe uncorrected error SMI storm detected, adjust CPER severity "
            "to all fatal\n",
            Sbdf.Seg, Sbdf.Bus, Sbdf.Dev, Sbdf.Func);
    }
    RaiseUncorrectedSeverity(Step.pCper, IsStorm);
    RequirePostProcessing(Step);
}

// The step of the record's section type; false for a type that has none.
bool PostProcessBySectionType(CPER_RECORD* pCper, PCIE_ALREADY_LOGGED* pAlreadyLogged,
                              BOOLEAN* pIsPostProcessingRequired, UINT32* pSciCause) {
    const EFI_GUID Type = RecordSectionType(pCper);
    if (IsGuidEqual(Type, gCperSectionPcieGuid)) {
        VornElogSmmPostProcessErrorRecordPcie(pCper, pAlreadyLogged, pIsPostProcessingRequired, pSciCause);
    } else if (IsGuidEqual(Type, gCperSectionCxlProtocolGuid)) {
        VornElogSmmPostProcessErrorRecordCxlProtocol(pCper, pAlreadyLogged, pIsPostProcessingRequired, pSciCause);
    } else if (VornElogCxlCheckComponentEventSectionType(&Type) != FALSE) {
        VornElogSmmPostProcessErrorRecordCxlComponent(pCper, pAlreadyLogged, pIsPostProcessingRequired, pSciCause);
    } else {
        return false;
    }
    return true;
}

void NotifyOs(const ERROR_RECORD_BUFFER_ENTRY& Entry, UINT32 SciCause, const CHAR8* Caller) {
    PCI_SBDF Sbdf;
    GetRecordFunction(Entry.pCper, &Sbdf);
    UINT16 HeaderSeverity = CperSeverityCorrected;
    UINT16 DescriptorSeverity = CperSeverityCorrected;
    VornElogSmmPostProcessErrorRecordsPciGetHighestSeverityForSbdf(Sbdf.Seg, Sbdf.Bus, Sbdf.Dev, Sbdf.Func,
                                                                   &HeaderSeverity, &DescriptorSeverity);
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X highest severity header %a descriptor %a SciCause 0x%08x\n", Sbdf.Seg,
            Sbdf.Bus, Sbdf.Dev, Sbdf.Func, ConvertCperSeverityToString(HeaderSeverity),
            ConvertCperSeverityToString(DescriptorSeverity), SciCause);
    EFI_STATUS Status =
        VornElogSmmOsErrorNotification(Entry.pCper, Entry.pKyrChipsetSupportData, HeaderSeverity, SciCause);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r updating OS error notification (SCI) settings SciCause 0x%08x\n",
                Status, SciCause);
    }
    Status = VornElogSmmOsErrorContainment(Entry.pCper, Entry.pKyrChipsetSupportData);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r updating OS error containment (NMI) settings\n", Status);
    }
}

}  // namespace

void VornElogSmmPostProcessErrorRecordsPci() {
    PCIE_ALREADY_LOGGED AlreadyLogged{};
    const CHAR8* const Caller = __func__;
    ForEachPciEntry([&](const ERROR_RECORD_BUFFER_ENTRY& Entry) {
        BOOLEAN IsPostProcessingRequired = FALSE;
        UINT32 SciCause = 0;
        if (!PostProcessBySectionType(Entry.pCper, &AlreadyLogged, &IsPostProcessingRequired, &SciCause)) {
            TraceAs(Caller, DEBUG_ERROR,
                    "%a: Unrecognized CPER SectionType GUID, skipping to next error record...\n");
            return;
        }
        if (IsPostProcessingRequired != FALSE) {
            NotifyOs(Entry, SciCause, Caller);
        }
    });
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: PCI/CXL error logging completed\n");
}

void VornElogSmmPostProcessErrorRecordPcie(CPER_RECORD* pCper, PCIE_ALREADY_LOGGED* pAlreadyLogged,
                                           BOOLEAN* pIsPostProcessingRequired, UINT32* pSciCause) {
    if (!AreGiven(pCper, pAlreadyLogged, pIsPostProcessingRequired, pSciCause) ||
        !IsCorrectedPcieLogged(pCper, __func__)) {
        return;
    }
    RECORD_STEP Step{pCper, pAlreadyLogged, pIsPostProcessingRequired, pSciCause, __func__};
    if (!FindFunction(Step)) {
        return;
    }
    if (Step.pState->PcieCapabilityOffset == 0) {
        PostProcessLegacyPci(Step);
        return;
    }
    Step.SlotNumberData = SlotDataOf(Step.Sbdf);
    if (!PostProcessDpcPort(Step)) {
        PostProcessPcieFunction(Step);
    }
}

void VornElogSmmPostProcessErrorRecordCxlProtocol(CPER_RECORD* pCper, PCIE_ALREADY_LOGGED* pAlreadyLogged,
                                                  BOOLEAN* pIsPostProcessingRequired, UINT32* pSciCause) {
    if (!AreGiven(pCper, pAlreadyLogged, pIsPostProcessingRequired, pSciCause) ||
        !IsCorrectedCxlLogged(pCper, __func__)) {
        return;
    }
    RECORD_STEP Step{pCper, pAlreadyLogged, pIsPostProcessingRequired, pSciCause, __func__};
    if (!FindFunction(Step)) {
        return;
    }
    Step.SlotNumberData = SlotDataOf(Step.Sbdf);
    LogEvents(Step);
    VornElogSmmCheckAndLogPcieAerRegs(pCper, Step.pState, &Step.SelData);
    VornElogSmmCheckAndLogCxlProtocolRegs(pCper, Step.pState, &Step.SelData);
    const bool IsStorm = Step.pState->Cxl.SmiStorm.ProtocolUncorrectedError != FALSE;
    if (IsStorm && !IsCorrected(pCper)) {
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
              "%a: Device @ SBDF %04X:%02X:%02X.%1X CXL protocol uncorrected error SMI storm detected, adjust CPER "
              "severity to all fatal\n",
              Step.Sbdf.Seg, Step.Sbdf.Bus, Step.Sbdf.Dev, Step.Sbdf.Func);
    }
    RaiseUncorrectedSeverity(pCper, IsStorm);
    RequirePostProcessing(Step);
}

void VornElogSmmPostProcessErrorRecordCxlComponent(CPER_RECORD* pCper, PCIE_ALREADY_LOGGED* pAlreadyLogged,
                                                   BOOLEAN* pIsPostProcessingRequired, UINT32* pSciCause) {
    if (!AreGiven(pCper, pAlreadyLogged, pIsPostProcessingRequired, pSciCause)) {
        return;
    }
    RECORD_STEP Step{pCper, pAlreadyLogged, pIsPostProcessingRequired, pSciCause, __func__};
    if (!FindFunction(Step)) {
        return;
    }
    // The event tells more than registers would: nothing goes to the event log.
    RaiseUncorrectedSeverity(pCper, Step.pState->Cxl.SmiStorm.ComponentFatalOrFailure != FALSE);
    RequirePostProcessing(Step);
}

void VornElogSmmPostProcessErrorRecordsPciGetHighestSeverityForSbdf(
    UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT16* pHighestPcieOrCxlErrorHeaderSeverity,
    UINT16* pHighestPcieOrCxlErrorDescriptorSeverity) {
    if (pHighestPcieOrCxlErrorHeaderSeverity == nullptr || pHighestPcieOrCxlErrorDescriptorSeverity == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return;
    }
    *pHighestPcieOrCxlErrorHeaderSeverity = CperSeverityCorrected;
    *pHighestPcieOrCxlErrorDescriptorSeverity = CperSeverityCorrected;
    const UINT64 Level = mPrivateDataVornElogPolicyLib.SerDbgLevelDetailed;
    ForEachPciEntry([&](const ERROR_RECORD_BUFFER_ENTRY& Entry) {
        PCI_SBDF At;
        if (GetRecordFunction(Entry.pCper, &At) && At.Seg == Seg && At.Bus == Bus && At.Dev == Dev &&
            At.Func == Func) {
            VornCperGetHighestCperSeverity(Level, static_cast<UINT16>(Entry.pCper->Header.ErrorSeverity),
                                           pHighestPcieOrCxlErrorHeaderSeverity);
            VornCperGetHighestCperSeverity(Level, static_cast<UINT16>(Entry.pCper->Descriptor.Severity),
                                           pHighestPcieOrCxlErrorDescriptorSeverity);
        }
    });
}

#include "Library/VornElogPolicyLib/Pcie/DpcPostProcess.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/SelPcie.h"
#include "Library/VornElogChipsetLib/SelRegisters.h"
#include "Library/VornElogPolicyLib/Pcie/AerLogging.h"
#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"
#include "Library/VornElogPolicyLib/Pcie/DpcDownstream.h"
#include "Library/VornElogPolicyLib/Pcie/DpcTrigger.h"
#include "Library/VornElogPolicyLib/Pcie/DpcTriggerBuffer.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/Pcie/PcieUceCount.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

// What the steps of one record work with.
struct DPC_STEP {
    CPER_RECORD* pCper;
    const PCI_DEVICE_STATE* pState;
    PCIE_SEL_DATA* pSelData;
    const PCI_SLOT_NUMBER_DATA* pSlotNumberData;
    EFI_STATUS* pSelStatus;
    PCIE_ALREADY_LOGGED* pAlreadyLogged;
    BOOLEAN* pIsPostProcessingRequired;
};

bool IsComplete(const DPC_STEP& Step, const CHAR8* Caller = __builtin_FUNCTION()) {
    if (Step.pCper == nullptr || Step.pState == nullptr || Step.pSelData == nullptr ||
        Step.pSlotNumberData == nullptr || Step.pSelStatus == nullptr || Step.pAlreadyLogged == nullptr ||
        Step.pIsPostProcessingRequired == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return false;
    }
    return true;
}

// The record's event is the port's own, named by its slot where that is known.
void SetEvent(const DPC_STEP& Step, UINT32 Severity) {
    Step.pSelData->Sbdf = SbdfOf(Step.pState->PciAddress);
    Step.pSelData->Severity = Severity;
    ElogGetPcieEventType(Step.pState->Cxl.IsCxl, Step.pSlotNumberData, &Step.pSelData->EventType);
}

void LogEvent(const DPC_STEP& Step) {
    const PCI_SBDF& At = Step.pSelData->Sbdf;
    ElogLogPcieOrCxlAnyEvent(At.Seg, At.Bus, At.Dev, At.Func, Step.pSelData->Severity, Step.pSelData->EventType,
                             Step.pSlotNumberData);
    *Step.pSelStatus = EFI_SUCCESS;
}

void LogChipsetEvent(const DPC_STEP& Step) {
    const PCI_SBDF At = SbdfOf(Step.pState->PciAddress);
    ElogLogChipsetAnyEvent(At.Seg, At.Bus, At.Dev, At.Func, SelChipsetSeverityFatal);
    *Step.pSelStatus = EFI_SUCCESS;
}

// Calls Log unless *pIsLogged says that this run has done it for the port's kind; a kind without an entry logs
// always.
template <class Action>
void LogOnce(UINT8* pIsLogged, Action Log) {
    if (pIsLogged != nullptr) {
        if (*pIsLogged != FALSE) {
            return;
        }
        *pIsLogged = TRUE;
    }
    Log();
}

void LogVendorDeviceIdOnce(const DPC_STEP& Step, PCIE_ALREADY_LOGGED_ENTRY* pEntry) {
    LogOnce(pEntry == nullptr ? nullptr : &pEntry->VendorDeviceId, [&] { LogVendorDeviceId(*Step.pState); });
}

PCIE_ALREADY_LOGGED_ENTRY* EntryOf(const DPC_STEP& Step) {
    PCIE_ALREADY_LOGGED_ENTRY* pEntry = nullptr;
    VornElogSmmGetPcieDeviceDataAlreadyLogged(Step.pState, Step.pAlreadyLogged, &pEntry);
    return pEntry;
}

void LogDpcRegister(const PCI_DEVICE_STATE& State, UINT16 Register) {
    ElogLogRegisterInfo(static_cast<UINT16>(State.DpcOffset + Register),
                        CapturedRegister32(State.DpcCapability, Register));
}

UINT32 CapturedAerStatus(const PCI_DEVICE_STATE& State, UINT16 Register) {
    return State.AerOffset == 0 ? 0 : CapturedRegister32(State.AerCapability, Register);
}

// Whether the port's own registers show an error, not only that it was contained.
bool HasErrorOfItsOwn(const PCI_DEVICE_STATE& State) {
    return CapturedAerStatus(State, AER_UNCORRECTABLE_STATUS) != 0 ||
           CapturedAerStatus(State, AER_CORRECTABLE_STATUS) != 0 ||
           (CapturedRegister16(State.PcieCapability, PCIE_DEVICE_STATUS) & PcieDeviceStatus::ErrorBits) != 0 ||
           (HasDpcRpExtensions(State) && CapturedRegister32(State.DpcCapability, DPC_RP_PIO_STATUS) != 0);
}

bool IsRpPioError(const PCI_DEVICE_STATE& State) {
    const PCIE_ERROR_STATUS& Errors = State.Pcie.ErrorStatus;
    return Errors.HandleRpPioFatal != FALSE || (Errors.HandleDpcEvent != FALSE && IsRpPioDpc(State));
}

}  // namespace

void VornElogSmmPostProcessErrorRecordPcieDpcRpPio(CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA*,
                                                   const PCI_DEVICE_STATE* pPciDeviceState, PCIE_SEL_DATA* pSelData,
                                                   const PCI_SLOT_NUMBER_DATA* pSlotNumberData,
                                                   EFI_STATUS* pSelStatus, PCIE_ALREADY_LOGGED* pAlreadyLogged,
                                                   BOOLEAN* pIsPostProcessingRequired) {
    const DPC_STEP Step{pCper,          pPciDeviceState,          pSelData, pSlotNumberData, pSelStatus,
                        pAlreadyLogged, pIsPostProcessingRequired};
    if (!IsComplete(Step)) {
        return;
    }
    const PCI_DEVICE_STATE& State = *pPciDeviceState;
    if (State.Pcie.Characteristics.IsRootPort == FALSE || State.DpcOffset == 0 || !HasDpcRpExtensions(State) ||
        !IsRpPioError(State)) {
        return;
    }
    PCIE_ALREADY_LOGGED_ENTRY* const pEntry = EntryOf(Step);
    SetEvent(Step, SelSeverityFatal);
    LogChipsetEvent(Step);
    if (pEntry != nullptr) {
        pEntry->ChipsetEvent = TRUE;
    }
    LogDpcRegister(State, DPC_RP_PIO_STATUS);
    LogDpcRegister(State, DPC_RP_PIO_SEVERITY);
    LogDpcRegister(State, DPC_RP_PIO_SYS_ERROR);
    for (UINT16 Index = 0; Index < TLP_HEADER_LOG_DWORDS; Index++) {
        LogDpcRegister(State, static_cast<UINT16>(DPC_RP_PIO_HEADER_LOG + Index * sizeof(UINT32)));
    }
    LogDpcRegister(State, DPC_RP_PIO_IMPSPEC_LOG);
    LogDpcRegister(State, DPC_RP_PIO_TLP_PREFIX_LOG);
    LogVendorDeviceIdOnce(Step, pEntry);
    LogRootPortDataOnce(State, pAlreadyLogged);
}

void VornElogSmmPostProcessErrorRecordPcieDpcTriggerOnDpcOs(
    CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA*, const PCI_DEVICE_STATE* pPciDeviceState,
    PCIE_SEL_DATA* pSelData, const PCI_SLOT_NUMBER_DATA* pSlotNumberData, EFI_STATUS* pSelStatus,
    PCIE_ALREADY_LOGGED* pAlreadyLogged, BOOLEAN* pIsPostProcessingRequired) {
    const DPC_STEP Step{pCper,          pPciDeviceState,          pSelData, pSlotNumberData, pSelStatus,
                        pAlreadyLogged, pIsPostProcessingRequired};
    if (!IsComplete(Step)) {
        return;
    }
    const PCI_DEVICE_STATE& State = *pPciDeviceState;
    const PCI_SBDF At = SbdfOf(State.PciAddress);
    PCIE_ALREADY_LOGGED_ENTRY* const pEntry = EntryOf(Step);
    SetEvent(Step, SelSeverityDpc);
    LogOnce(pEntry == nullptr ? nullptr : &pEntry->ChipsetEvent, [&] { LogChipsetEvent(Step); });
    LogVendorDeviceIdOnce(Step, pEntry);
    LogRootPortDataOnce(State, pAlreadyLogged);
    // The DPC Error Source ID is the doubleword's upper half.
    LogDpcRegister(State, DPC_STATUS);
    if (!IsSoftwareDpc(State) && HasErrorOfItsOwn(State)) {
        LogEvent(Step);
        VornElogSmmCheckAndLogPcieAerRegs(pCper, pPciDeviceState, pSelData);
    }
    if (DpcOstStatus(At.Seg, At.Bus, At.Dev, At.Func) == OST_FAILURE) {
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
              "%a: DPC Port @ SBDF %04X:%02X:%02X.%1X O/S reported failed recovery, not reported again\n", At.Seg,
              At.Bus, At.Dev, At.Func);
        return;
    }
    *pIsPostProcessingRequired = TRUE;
}

void VornElogSmmPostProcessErrorRecordPcieDpcTriggerOnNonDpcOs(
    CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA*, const PCI_DEVICE_STATE* pPciDeviceState,
    PCIE_SEL_DATA* pSelData, const PCI_SLOT_NUMBER_DATA* pSlotNumberData, EFI_STATUS* pSelStatus,
    PCIE_ALREADY_LOGGED* pAlreadyLogged, BOOLEAN* pIsPostProcessingRequired) {
    const DPC_STEP Step{pCper,          pPciDeviceState,          pSelData, pSlotNumberData, pSelStatus,
                        pAlreadyLogged, pIsPostProcessingRequired};
    if (!IsComplete(Step)) {
        return;
    }
    const PCI_DEVICE_STATE& State = *pPciDeviceState;
    const PCI_SBDF At = SbdfOf(State.PciAddress);
    PCIE_ALREADY_LOGGED_ENTRY* const pEntry = EntryOf(Step);
    ClearDpcTriggerSlot();
    SetEvent(Step, SelSeverityFatal);
    if (CapturedAerStatus(State, AER_UNCORRECTABLE_STATUS) != 0) {
        LogOnce(pEntry == nullptr ? nullptr : &pEntry->PcieEvent, [&] { LogEvent(Step); });
        LogVendorDeviceIdOnce(Step, pEntry);
        LogRootPortDataOnce(State, pAlreadyLogged);
        VornElogSmmCheckAndLogPcieAerRegs(pCper, pPciDeviceState, pSelData);
    }
    if (VornElogSmmCheckAndLogPcieDpcDownstream(At.Seg, At.Bus, At.Dev, At.Func, FALSE, pAlreadyLogged) != FALSE) {
        *pSelStatus = EFI_SUCCESS;
    }
    const PCI_SBDF Rp = SbdfOf(State.PcieRootPortData.LogicalBridgePciAddress);
    GetSetDpcTriggerBuffer(At.Seg, At.Bus, At.Dev, At.Func, Rp.Bus, Rp.Dev, Rp.Func, REMOVE_BDF);
    if (GetPcieUceLimitStatus(At.Seg, At.Bus, At.Dev, At.Func, FALSE) != PcieUceUnderLimit) {
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
              "%a: DPC Port @ SBDF %04X:%02X:%02X.%1X PCIe UCE at limit, adjust CPER severity to all fatal\n", At.Seg,
              At.Bus, At.Dev, At.Func);
        pCper->Header.ErrorSeverity = CperSeverityFatal;
    }
    pCper->Descriptor.Severity = CperSeverityFatal;
    *pIsPostProcessingRequired = TRUE;
}

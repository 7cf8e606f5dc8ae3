#include "Library/VornElogPolicyLib/Pcie/RpPio.h"

#include "Library/VornElogPolicyLib/Pcie/AddressDecode.h"
#include "Library/VornElogPolicyLib/Pcie/BusScan.h"
#include "Library/VornElogPolicyLib/Pcie/ErrorSeverity.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/Pcie/PowerState.h"
#include "Library/VornElogPolicyLib/Pcie/UnsupportedRequest.h"
#include "Library/VornElogPolicyLib/Pcie/VendorDefinedMessage.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

// The errors of an RP PIO status that are reported: not masked, and with a system error.
UINT32 ReportedErrors(const PCI_DEVICE_STATE& State, UINT32 RpPioStatus) {
    return RpPioStatus & ~CapturedRegister32(State.DpcCapability, DPC_RP_PIO_MASK) &
           CapturedRegister32(State.DpcCapability, DPC_RP_PIO_SYS_ERROR);
}

bool IsRpPioPort(const PCI_DEVICE_STATE& State) {
    return IsDpcCapablePort(State) && HasDpcRpExtensions(State);
}

// Whether a function below the port that sleeps in D3hot owns the address of the request. The port's own unsupported
// requests are looked at later: those of this search must not be among them.
bool IsOwnedBySleepingFunction(const PCI_DEVICE_STATE& Port, const UINT32* pHeaderLog, const CHAR8* Caller) {
    const UINT8* const Header = Port.PciHeader;
    const UINT8 SecondaryBus = Header[PCI_SECONDARY_BUS_NUMBER];
    if (PciHeaderType::Layout::Get(Header[PCI_HEADER_TYPE]) != PciHeaderType::Type1 || SecondaryBus == 0) {
        return false;
    }
    BOOLEAN IsReportingEnabled = FALSE;
    BOOLEAN IsUnmasked = FALSE;
    BOOLEAN IsAdvisoryUnmasked = FALSE;
    VornElogSuppressUnsupportedRequest(&Port, &IsReportingEnabled, &IsUnmasked, &IsAdvisoryUnmasked);
    const bool IsOwned = AnyFunctionOnBuses(
        SbdfOf(Port.PciAddress).Seg, SecondaryBus, Header[PCI_SUBORDINATE_BUS_NUMBER], [&](const PCI_SBDF& At) {
            if (!VornElogSmmCheckD3HotState(At.Seg, At.Bus, At.Dev, At.Func) ||
                !VornElogSmmCheckMemAccessForPcieDev(At.Seg, At.Bus, At.Dev, At.Func, pHeaderLog)) {
                return false;
            }
            TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
                    "%a: SBDF %04X:%02X:%02X.%1X Device in D3Hot refused a memory read, ignore "
                    "RP PIO error\n",
                    At.Seg, At.Bus, At.Dev, At.Func);
            return true;
        });
    ResumeUnsupportedRequestReporting(Port, IsReportingEnabled, IsUnmasked, IsAdvisoryUnmasked);
    return IsOwned;
}

struct RP_PIO_SCREEN {
    ERROR_SEVERITY Severity;
    UINT8 PCIE_ERROR_STATUS::*Handle;
};
constexpr RP_PIO_SCREEN FatalScreen = {ERROR_SEVERITY::Fatal, &PCIE_ERROR_STATUS::HandleFatal};
constexpr RP_PIO_SCREEN NonFatalScreen = {ERROR_SEVERITY::NonFatal, &PCIE_ERROR_STATUS::HandleNonFatal};

EFI_STATUS ScreenErrors(PCI_DEVICE_STATE* pPciDeviceState, const RP_PIO_SCREEN& Screen, const CHAR8* Caller) {
    if (!IsDeviceStateGiven(pPciDeviceState, Caller)) {
        return EFI_INVALID_PARAMETER;
    }
    PCIE_ERROR_STATUS& Flags = pPciDeviceState->Pcie.ErrorStatus;
    if (Flags.*Screen.Handle == FALSE || Flags.DetectedRpPioFatal == FALSE) {
        return EFI_SUCCESS;
    }
    BOOLEAN Ur = FALSE;
    BOOLEAN Ca = FALSE;
    BOOLEAN Cto = FALSE;
    VornElogSmmCheckPcieDpRpPioErrorTypeAsserted(pPciDeviceState, &Ur, &Ca, &Cto);
    const UINT32 Explained = (Ur != FALSE ? AerUncorrectable::UnsupportedRequest : 0) |
                             (Ca != FALSE ? AerUncorrectable::CompleterAbort : 0) |
                             (Cto != FALSE ? AerUncorrectable::CompletionTimeout : 0);
    if (Explained == 0) {
        return EFI_SUCCESS;
    }
    const UINT8* const Aer = pPciDeviceState->AerCapability;
    const UINT32 Unmasked =
        CapturedRegister32(Aer, AER_UNCORRECTABLE_STATUS) & ~CapturedRegister32(Aer, AER_UNCORRECTABLE_MASK);
    const UINT32 Errors =
        BitsOfSeverity(Screen.Severity, Unmasked, CapturedRegister32(Aer, AER_UNCORRECTABLE_SEVERITY));
    if ((Errors & ~Explained) == 0) {
        const PCI_SBDF At = SbdfOf(pPciDeviceState->PciAddress);
        TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
                "%a: SBDF %04X:%02X:%02X.%1X AER errors 0x%08x are reported as RP PIO error\n", At.Seg, At.Bus,
                At.Dev, At.Func, Errors);
        Flags.*Screen.Handle = FALSE;
    }
    return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS VornElogSmmCheckPcieDpRpPioErrorTypeAsserted(const PCI_DEVICE_STATE* pPciDeviceState, BOOLEAN* pUr,
                                                        BOOLEAN* pCa, BOOLEAN* pCto) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    if (pUr == nullptr || pCa == nullptr || pCto == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const UINT32 Asserted =
        HasDpcRpExtensions(*pPciDeviceState)
            ? ReportedErrors(*pPciDeviceState, CapturedRegister32(pPciDeviceState->DpcCapability, DPC_RP_PIO_STATUS))
            : 0;
    *pUr = (Asserted & RpPio::UrCompletions) != 0;
    *pCa = (Asserted & RpPio::CaCompletions) != 0;
    *pCto = (Asserted & RpPio::CompletionTimeouts) != 0;
    return EFI_SUCCESS;
}

EFI_STATUS VornElogValidateRpPioError(PCI_DEVICE_STATE* pPciDeviceState, BOOLEAN* pValid) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    if (pValid == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pValid == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pValid = FALSE;
    if (!IsRpPioPort(*pPciDeviceState)) {
        return EFI_UNSUPPORTED;
    }
    const PCI_SBDF At = SbdfOf(pPciDeviceState->PciAddress);
    if (pPciDeviceState->Pcie.ErrorStatus.DetectedHotRemoval != FALSE) {
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
              "%a: SBDF %04X:%02X:%02X.%1X PCIe device hot removal detected, ignore RP PIO error\n", At.Seg, At.Bus,
              At.Dev, At.Func);
        return EFI_SUCCESS;
    }
    // As much of the header as was captured: the rest of the log reads 0.
    UINT32 HeaderLog[TLP_HEADER_LOG_DWORDS];
    CopyHeaderLog(HeaderLog, pPciDeviceState->DpcCapability + DPC_RP_PIO_HEADER_LOG);
    BOOLEAN IsVdm = FALSE;
    BOOLEAN Ur = FALSE;
    BOOLEAN Ca = FALSE;
    BOOLEAN Cto = FALSE;
    VornElogSmmIsPcieVdmType1DmtfMessage(pPciDeviceState, HeaderLog, &IsVdm);
    if (IsVdm != FALSE) {
        return EFI_SUCCESS;
    }
    VornElogSmmCheckPcieDpRpPioErrorTypeAsserted(pPciDeviceState, &Ur, &Ca, &Cto);
    if (Ur != FALSE && VornElogGetTlpHeaderFmtType(pPciDeviceState, HeaderLog) == TlpMemoryRead &&
        IsOwnedBySleepingFunction(*pPciDeviceState, HeaderLog, __func__)) {
        return EFI_SUCCESS;
    }
    *pValid = TRUE;
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmCheckRpPioErrors(PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    if (!IsRpPioPort(*pPciDeviceState)) {
        return EFI_SUCCESS;
    }
    const PCI_SBDF At = SbdfOf(pPciDeviceState->PciAddress);
    PCIE_ERROR_STATUS& Flags = pPciDeviceState->Pcie.ErrorStatus;
    const UINT32 RpPioStatus =
        PciSegmentRead32(LiveRegister(*pPciDeviceState, pPciDeviceState->DpcOffset + DPC_RP_PIO_STATUS));
    if (RpPioStatus == 0) {
        return EFI_SUCCESS;
    }
    Flags.DetectedRpPioFatal = TRUE;
    Flags.ClearRpPioFatal = TRUE;
    const UINT32 Remaining = Flags.DetectedHotRemoval != FALSE ? 0 : ReportedErrors(*pPciDeviceState, RpPioStatus);
    if (Remaining != 0) {
        BOOLEAN IsValid = FALSE;
        const EFI_STATUS Status = VornElogValidateRpPioError(pPciDeviceState, &IsValid);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogValidateRpPioError SBDF %04X:%02X:%02X.%1X\n", Status,
                  At.Seg, At.Bus, At.Dev, At.Func);
            IsValid = TRUE;
        }
        Flags.HandleRpPioFatal = IsValid;
    }
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
          "%a: SBDF %04X:%02X:%02X.%1X RP PIO status 0x%08x remaining 0x%08x handle %d\n", At.Seg, At.Bus, At.Dev,
          At.Func, RpPioStatus, Remaining, Flags.HandleRpPioFatal);
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmScreenPcieErrorFatalForDpRpPio(PCI_DEVICE_STATE* pPciDeviceState) {
    return ScreenErrors(pPciDeviceState, FatalScreen, __func__);
}

EFI_STATUS VornElogSmmScreenPcieErrorNonFatalForDpRpPio(PCI_DEVICE_STATE* pPciDeviceState) {
    return ScreenErrors(pPciDeviceState, NonFatalScreen, __func__);
}

#include "Library/VornElogPolicyLib/Pcie/AerClasses.h"

#include "Library/VornElogPolicyLib/Pcie/ErrorSeverity.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/Pcie/UnsupportedRequest.h"
#include "Library/VornElogPolicyLib/Pcie/VendorDefinedMessage.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

constexpr UINT32 EVERY_BIT = 0xFFFFFFFF;

// Side effects of something else: where Applies says so, Bits are no errors of this function.
struct AER_FILTER {
    bool (*Applies)(const PCI_DEVICE_STATE& State, const CHAR8* Caller);
    UINT32 Bits;
};

bool IsHotRemoved(const PCI_DEVICE_STATE& State, const CHAR8*) {
    return State.Pcie.ErrorStatus.DetectedHotRemoval != FALSE;
}

// The RAS capability of the CXL function reports the internal error.
bool IsCxlUncorrectable(const PCI_DEVICE_STATE& State, const CHAR8*) {
    return State.Cxl.ErrorStatus.DetectedFatal != FALSE || State.Cxl.ErrorStatus.DetectedNonFatal != FALSE;
}

bool IsCxlCorrectable(const PCI_DEVICE_STATE& State, const CHAR8*) {
    return State.Cxl.ErrorStatus.DetectedCorrectable != FALSE;
}

bool IsUnsupportedRequestDetected(const PCI_DEVICE_STATE& State, const CHAR8*) {
    return State.Pcie.ErrorStatus.DetectedUnsupportedRequest != FALSE;
}

bool IsUnsupportedRequestCleared(const PCI_DEVICE_STATE& State, const CHAR8*) {
    return State.Pcie.ErrorStatus.DetectedUnsupportedRequest != FALSE &&
           State.Pcie.ErrorStatus.ClearUnsupportedRequest != FALSE;
}

constexpr UINTN MAX_FILTERS = 3;

struct AER_CLASS {
    const CHAR8* Name;
    UINT16 DeviceBit;  // the same in Device Status and Device Control
    bool IsSystemErrorChecked;
    UINT16 StatusRegister;
    UINT16 MaskRegister;
    ERROR_SEVERITY Severity;
    UINT32 Bits;  // of the status register
    UINT8 PCIE_ERROR_STATUS::*Detected;
    UINT8 PCIE_ERROR_STATUS::*Clear;
    UINT8 PCIE_ERROR_STATUS::*Handle;
    AER_FILTER Filters[MAX_FILTERS];  // applied in this order
};

constexpr AER_CLASS FatalClass = {
    "fatal",
    PcieDeviceStatus::FatalErrorDetected,
    true,
    AER_UNCORRECTABLE_STATUS,
    AER_UNCORRECTABLE_MASK,
    ERROR_SEVERITY::Fatal,
    EVERY_BIT,
    &PCIE_ERROR_STATUS::DetectedFatal,
    &PCIE_ERROR_STATUS::ClearFatal,
    &PCIE_ERROR_STATUS::HandleFatal,
    {{IsCxlUncorrectable, AerUncorrectable::UncorrectableInternalError},
     {IsHotRemoved, AerUncorrectable::CompletionTimeout | AerUncorrectable::SurpriseDown},
     {IsErrorOfDmtfMessage, EVERY_BIT}},
};

constexpr AER_CLASS UnsupportedRequestClass = {
    "unsupported request",
    PcieDeviceStatus::UnsupportedRequestDetected,
    false,
    AER_UNCORRECTABLE_STATUS,
    AER_UNCORRECTABLE_MASK,
    ERROR_SEVERITY::NonFatal,
    AerUncorrectable::UnsupportedRequest,
    &PCIE_ERROR_STATUS::DetectedUnsupportedRequest,
    &PCIE_ERROR_STATUS::ClearUnsupportedRequest,
    &PCIE_ERROR_STATUS::HandleUnsupportedRequest,
    {{IsHotRemoved, AerUncorrectable::UnsupportedRequest}, {IsErrorOfDmtfMessage, EVERY_BIT}},
};

constexpr AER_CLASS NonFatalClass = {
    "non-fatal",
    PcieDeviceStatus::NonFatalErrorDetected,
    true,
    AER_UNCORRECTABLE_STATUS,
    AER_UNCORRECTABLE_MASK,
    ERROR_SEVERITY::NonFatal,
    EVERY_BIT,
    &PCIE_ERROR_STATUS::DetectedNonFatal,
    &PCIE_ERROR_STATUS::ClearNonFatal,
    &PCIE_ERROR_STATUS::HandleNonFatal,
    {{IsUnsupportedRequestDetected, AerUncorrectable::UnsupportedRequest},
     {IsCxlUncorrectable, AerUncorrectable::UncorrectableInternalError},
     {IsErrorOfDmtfMessage, EVERY_BIT}},
};

constexpr AER_CLASS CorrectableClass = {
    "correctable",
    PcieDeviceStatus::CorrectableErrorDetected,
    false,
    AER_CORRECTABLE_STATUS,
    AER_CORRECTABLE_MASK,
    ERROR_SEVERITY::Correctable,
    EVERY_BIT,
    &PCIE_ERROR_STATUS::DetectedCorrectable,
    &PCIE_ERROR_STATUS::ClearCorrectable,
    &PCIE_ERROR_STATUS::HandleCorrectable,
    {{IsUnsupportedRequestCleared, AerCorrectable::AdvisoryNonFatalError},
     {IsCxlCorrectable, AerCorrectable::CorrectedInternalError},
     {IsHotRemoved, EVERY_BIT}},
};

// The errors of a class that are left over when masked ones and side effects are taken out.
struct AER_ERRORS {
    UINT32 Signaled;
    UINT32 Unmasked;
    UINT32 Remaining;
};

AER_ERRORS ReadErrors(const PCI_DEVICE_STATE& State, const AER_CLASS& Class, const CHAR8* Caller) {
    const UINT32 Status = PciSegmentRead32(LiveRegister(State, State.AerOffset + Class.StatusRegister));
    const UINT32 Severity = CapturedRegister32(State.AerCapability, AER_UNCORRECTABLE_SEVERITY);
    const UINT32 Signaled = BitsOfSeverity(Class.Severity, Status & Class.Bits, Severity);
    const UINT32 Unmasked = Signaled & ~CapturedRegister32(State.AerCapability, Class.MaskRegister);
    UINT32 Remaining = Unmasked;
    for (const AER_FILTER& Filter : Class.Filters) {
        if ((Remaining & Filter.Bits) != 0 && Filter.Applies(State, Caller)) {
            Remaining &= ~Filter.Bits;
        }
    }
    return {Signaled, Unmasked, Remaining};
}

void CheckSystemError(PCI_DEVICE_STATE& State) {
    if ((PciSegmentRead16(LiveRegister(State, PCI_STATUS)) & PciStatus::SignaledSystemError) != 0) {
        State.LegacyPci.DetectedFatal = TRUE;
        State.LegacyPci.DetectedSerr = TRUE;
        State.LegacyPci.Clear = TRUE;
    }
}

// The rule that the four classes share. Returns what AER shows of the class; nothing without AER.
AER_ERRORS CheckClass(PCI_DEVICE_STATE& State, const AER_CLASS& Class, const CHAR8* Caller) {
    const PCI_SBDF At = SbdfOf(State.PciAddress);
    PCIE_ERROR_STATUS& Flags = State.Pcie.ErrorStatus;
    if (State.PcieCapabilityOffset == 0) {
        return {};
    }
    if (Class.IsSystemErrorChecked) {
        CheckSystemError(State);
    }
    const UINT16 Control = CapturedRegister16(State.PcieCapability, PCIE_DEVICE_CONTROL);
    const bool IsReportingEnabled = (Control & Class.DeviceBit) != 0;
    const UINT16 Status = PciSegmentRead16(LiveRegister(State, State.PcieCapabilityOffset + PCIE_DEVICE_STATUS));
    const bool IsInDeviceStatus = (Status & Class.DeviceBit) != 0;
    if (IsInDeviceStatus) {
        Flags.*Class.Detected = TRUE;
        Flags.*Class.Clear = TRUE;
        Flags.*Class.Handle = IsReportingEnabled;
    }
    if (State.AerOffset == 0) {
        TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
                "%a: SBDF %04X:%02X:%02X.%1X PCIe extended capability (AER) structure not supported, exiting...\n",
                At.Seg, At.Bus, At.Dev, At.Func);
        return {};
    }
    Flags.*Class.Handle = FALSE;
    const AER_ERRORS Errors = ReadErrors(State, Class, Caller);
    if (Errors.Signaled != 0) {
        Flags.*Class.Detected = TRUE;
        Flags.*Class.Clear = TRUE;
    }
    if (Flags.*Class.Detected == FALSE) {
        return Errors;
    }
    if (!IsReportingEnabled && !IsInDeviceStatus && Errors.Unmasked != 0) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR SBDF %04X:%02X:%02X.%1X Clearing error status to prevent spurious error reporting, needs "
                "investigation!!!\n",
                At.Seg, At.Bus, At.Dev, At.Func);
    } else if (Errors.Remaining != 0) {
        Flags.*Class.Handle = TRUE;
    }
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X %a: signaled 0x%08x unmasked 0x%08x remaining 0x%08x handle %d\n", At.Seg,
            At.Bus, At.Dev, At.Func, Class.Name, Errors.Signaled, Errors.Unmasked, Errors.Remaining,
            Flags.*Class.Handle);
    return Errors;
}

}  // namespace

EFI_STATUS VornElogSmmCheckPcieErrorFatal(PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    CheckClass(*pPciDeviceState, FatalClass, __func__);
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmCheckPcieErrorUnsupportedRequest(PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    CheckClass(*pPciDeviceState, UnsupportedRequestClass, __func__);
    PCIE_ERROR_STATUS& Flags = pPciDeviceState->Pcie.ErrorStatus;
    if (Flags.DetectedUnsupportedRequest == FALSE) {
        return EFI_SUCCESS;
    }
    if (Flags.HandleUnsupportedRequest == FALSE) {
        Flags.ClearUnsupportedRequest = TRUE;
        return EFI_SUCCESS;
    }
    BOOLEAN HandleUrError = FALSE;
    const EFI_STATUS Status = VornElogSmmValidatePcieUnsupportedRequest(pPciDeviceState, &HandleUrError);
    if (EFI_ERROR(Status)) {
        const PCI_SBDF At = SbdfOf(pPciDeviceState->PciAddress);
        Trace(
            DEBUG_ERROR,
            "%a: ERROR %r from VornElogSmmValidatePcieUnsupportedRequest SBDF %04X:%02X:%02X.%1X, set HandleUrError "
            "= TRUE\n",
            Status, At.Seg, At.Bus, At.Dev, At.Func);
        HandleUrError = TRUE;
    }
    Flags.HandleUnsupportedRequest = HandleUrError;
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmCheckPcieErrorNonFatal(PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    const AER_ERRORS Errors = CheckClass(*pPciDeviceState, NonFatalClass, __func__);
    if ((Errors.Remaining & ~AerUncorrectable::UnsupportedRequest) != 0) {
        pPciDeviceState->Pcie.ErrorStatus.DetectedNonFatalBesidesUr = TRUE;
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmCheckPcieErrorCorrectable(PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    CheckClass(*pPciDeviceState, CorrectableClass, __func__);
    return EFI_SUCCESS;
}

#include "Library/VornElogPolicyLib/Pcie/CxlErrorChecks.h"

#include "Include/CxlRegisters.h"
#include "Library/VornElogPolicyLib/Pcie/ErrorSeverity.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Hardware.h"

namespace {

struct CXL_CLASS {
    const CHAR8* Name;
    UINT32 StatusRegister;  // bytes from the start of the RAS capability
    UINT32 MaskRegister;
    ERROR_SEVERITY Severity;
    UINT8 CXL_ERROR_STATUS::*Detected;
    UINT8 CXL_ERROR_STATUS::*Clear;
    UINT8 CXL_ERROR_STATUS::*Handle;
    UINT32 AerEcho;  // what AER shows of an uncorrectable error of this class
};

constexpr CXL_CLASS FatalClass = {
    "CXL protocol fatal",
    CXL_RAS_UNCORRECTABLE_STATUS,
    CXL_RAS_UNCORRECTABLE_MASK,
    ERROR_SEVERITY::Fatal,
    &CXL_ERROR_STATUS::DetectedFatal,
    &CXL_ERROR_STATUS::ClearFatal,
    &CXL_ERROR_STATUS::HandleFatal,
    AerUncorrectable::UncorrectableInternalError,
};

constexpr CXL_CLASS NonFatalClass = {
    "CXL protocol non-fatal",
    CXL_RAS_UNCORRECTABLE_STATUS,
    CXL_RAS_UNCORRECTABLE_MASK,
    ERROR_SEVERITY::NonFatal,
    &CXL_ERROR_STATUS::DetectedNonFatal,
    &CXL_ERROR_STATUS::ClearNonFatal,
    &CXL_ERROR_STATUS::HandleNonFatal,
    AerUncorrectable::UncorrectableInternalError,
};

// Meant: the captured AER status keeps the internal error that goes with a correctable one.
constexpr CXL_CLASS CorrectableClass = {
    "CXL protocol correctable",
    CXL_RAS_CORRECTABLE_STATUS,
    CXL_RAS_CORRECTABLE_MASK,
    ERROR_SEVERITY::Correctable,
    &CXL_ERROR_STATUS::DetectedCorrectable,
    &CXL_ERROR_STATUS::ClearCorrectable,
    &CXL_ERROR_STATUS::HandleCorrectable,
    0,
};

UINT32 CapturedRas(const PCI_DEVICE_STATE& State, UINT32 Register) {
    return State.Cxl.RasCapability[Register / sizeof(UINT32)];
}

EFI_STATUS CheckClass(PCI_DEVICE_STATE* pPciDeviceState, const CXL_CLASS& Class, const CHAR8* Caller) {
    if (!IsDeviceStateGiven(pPciDeviceState, Caller)) {
        return EFI_INVALID_PARAMETER;
    }
    PCI_DEVICE_STATE& State = *pPciDeviceState;
    if (State.Cxl.IsCxl == FALSE || State.Cxl.CxlRevision != CXL_REVISION_2_0 ||
        State.Cxl.RasCapabilityAddress == 0) {
        return EFI_SUCCESS;
    }
    const UINT32 Status = MmioRead32(State.Cxl.RasCapabilityAddress + Class.StatusRegister);
    const UINT32 Errors = BitsOfSeverity(Class.Severity, Status, CapturedRas(State, CXL_RAS_UNCORRECTABLE_SEVERITY));
    if (Errors == 0) {
        return EFI_SUCCESS;
    }
    CXL_ERROR_STATUS& Flags = State.Cxl.ErrorStatus;
    Flags.*Class.Detected = TRUE;
    Flags.*Class.Clear = TRUE;
    SetCapturedRegister32(State.AerCapability, AER_UNCORRECTABLE_STATUS,
                          CapturedRegister32(State.AerCapability, AER_UNCORRECTABLE_STATUS) & ~Class.AerEcho);
    const UINT32 Remaining =
        State.Pcie.ErrorStatus.DetectedHotRemoval != FALSE ? 0 : Errors & ~CapturedRas(State, Class.MaskRegister);
    if (Remaining != 0) {
        Flags.*Class.Handle = TRUE;
    }
    const PCI_SBDF At = SbdfOf(State.PciAddress);
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X %a: signaled 0x%08x remaining 0x%08x handle %d\n", At.Seg, At.Bus, At.Dev,
            At.Func, Class.Name, Errors, Remaining, Flags.*Class.Handle);
    return EFI_SUCCESS;
}

struct EVENT_LOG {
    UINT64 StatusBit;
    UINT8 CXL_COMPONENT_SEVERITIES::*Severity;
};
constexpr EVENT_LOG EventLogs[] = {
    {CxlEventStatus::Informational::Mask, &CXL_COMPONENT_SEVERITIES::Info},
    {CxlEventStatus::Warning::Mask, &CXL_COMPONENT_SEVERITIES::Warn},
    {CxlEventStatus::Failure::Mask, &CXL_COMPONENT_SEVERITIES::Failure},
    {CxlEventStatus::Fatal::Mask, &CXL_COMPONENT_SEVERITIES::Fatal},
};

}  // namespace

EFI_STATUS VornElogSmmCheckCxlProtocolErrorFatal(PCI_DEVICE_STATE* pPciDeviceState) {
    return CheckClass(pPciDeviceState, FatalClass, __func__);
}

EFI_STATUS VornElogSmmCheckCxlProtocolErrorNonFatal(PCI_DEVICE_STATE* pPciDeviceState) {
    return CheckClass(pPciDeviceState, NonFatalClass, __func__);
}

EFI_STATUS VornElogSmmCheckCxlProtocolErrorCorrectable(PCI_DEVICE_STATE* pPciDeviceState) {
    return CheckClass(pPciDeviceState, CorrectableClass, __func__);
}

EFI_STATUS VornElogSmmCheckCxlComponentErrorStatus(PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    CXL_ERROR_STATUS& Flags = pPciDeviceState->Cxl.ErrorStatus;
    const UINT64 EventStatus = pPciDeviceState->Cxl.DeviceEventStatus;
    if (CxlEventStatus::Logs::Get(EventStatus) == 0) {
        return EFI_SUCCESS;
    }
    Flags.ComponentDetected = TRUE;
    for (const EVENT_LOG& Log : EventLogs) {
        if ((EventStatus & Log.StatusBit) != 0) {
            Flags.ComponentDetectedSeverity.*Log.Severity = TRUE;
            Flags.ComponentClearSeverity.*Log.Severity = TRUE;
            Flags.ComponentHandleSeverity.*Log.Severity = TRUE;
        }
    }
    const PCI_SBDF At = SbdfOf(pPciDeviceState->PciAddress);
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: SBDF %04X:%02X:%02X.%1X CXL event status 0x%016lx\n",
          At.Seg, At.Bus, At.Dev, At.Func, EventStatus);
    return EFI_SUCCESS;
}

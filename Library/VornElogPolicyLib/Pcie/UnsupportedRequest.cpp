#include "Library/VornElogPolicyLib/Pcie/UnsupportedRequest.h"

#include "Library/VornElogBaseLib/NvmeSwitch.h"
#include "Library/VornElogPolicyLib/Pcie/AddressDecode.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/Pcie/HotRemoval.h"
#include "Library/VornElogPolicyLib/Pcie/PowerState.h"
#include "Library/VornElogPolicyLib/Pcie/VendorDefinedMessage.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

bool HasOtherFatalErrors(const PCI_DEVICE_STATE& State) {
    const UINT32 Status = CapturedRegister32(State.AerCapability, AER_UNCORRECTABLE_STATUS);
    const UINT32 Severity = CapturedRegister32(State.AerCapability, AER_UNCORRECTABLE_SEVERITY);
    return (Status & ~AerUncorrectable::UnsupportedRequest & Severity) != 0;
}

// Non-fatal errors go with unsupported requests: such a device reports these as errors of that severity.
void StopReportingUnsupportedRequests(const PCI_DEVICE_STATE& State) {
    const UINT16 Control = CapturedRegister16(State.PcieCapability, PCIE_DEVICE_CONTROL);
    PciSegmentWrite16(LiveRegister(State, State.PcieCapabilityOffset + PCIE_DEVICE_CONTROL),
                      static_cast<UINT16>(Control & ~(PcieDeviceControl::NonFatalErrorReportingEnable |
                                                      PcieDeviceControl::UnsupportedRequestReportingEnable)));
    if (State.AerOffset != 0) {
        const UINT32 Mask = CapturedRegister32(State.AerCapability, AER_UNCORRECTABLE_MASK);
        PciSegmentWrite32(LiveRegister(State, State.AerOffset + AER_UNCORRECTABLE_MASK),
                          Mask | AerUncorrectable::UnsupportedRequest);
    }
}

// Whether a drive was pulled out of the switch that owned the address: it had a downstream port of the switch, with
// the address in its window, to itself.
bool IsDriveRemoved(const PCI_DEVICE_STATE& UpstreamPort, const UINT32* pHeaderLog, const CHAR8* Caller) {
    const UINT8 Seg = SbdfOf(UpstreamPort.PciAddress).Seg;
    const UINT8 Bus = UpstreamPort.PciHeader[PCI_SECONDARY_BUS_NUMBER];
    for (UINT8 Dev = 0; Dev < PCI_DEVICES_PER_BUS; Dev++) {
        for (UINT8 Func = 0; Func < PCI_FUNCTIONS_PER_DEVICE; Func++) {
            if (!VornCheckDevicePresent(Seg, Bus, Dev, Func)) {
                continue;
            }
            BOOLEAN IsSwitchPort = FALSE;
            UINT32 Mode = NVME_SWITCH_MODE_UNKNOWN;
            VornCheckNvmePcieSwitchDownstreamPort(Seg, Bus, Dev, Func, &IsSwitchPort, &Mode);
            if (IsSwitchPort != FALSE && VornElogSmmCheckMemAccessForPcieDev(Seg, Bus, Dev, Func, pHeaderLog) &&
                VornElogSmmCheckPcieHotRemovalRegisterBased(Seg, Bus, Dev, Func)) {
                TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
                        "%a: SBDF %04X:%02X:%02X.%1X PCIe SSD Surprise Removal detected, ignore error\n", Seg, Bus,
                        Dev, Func);
                return true;
            }
        }
    }
    return false;
}

// Whether a write to an address that the function decodes was refused in error.
bool IsDecodedWriteError(const PCI_DEVICE_STATE& State, const UINT32* pHeaderLog, const CHAR8* Caller) {
    const PCI_SBDF At = SbdfOf(State.PciAddress);
    BOOLEAN IsNvmeSwitch = FALSE;
    UINT32 Mode = NVME_SWITCH_MODE_UNKNOWN;
    const EFI_STATUS Status =
        VornCheckNvmePcieSwitchUpstreamPort(At.Seg, At.Bus, At.Dev, At.Func, &IsNvmeSwitch, &Mode);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from VornCheckNvmePcieSwitchUpstreamPort SBDF %04X:%02X:%02X.%1X\n", Status, At.Seg,
                At.Bus, At.Dev, At.Func);
    }
    return IsNvmeSwitch == FALSE || Mode != NVME_SWITCH_MODE_ISSW || !IsDriveRemoved(State, pHeaderLog, Caller);
}

// Tells which function of the device the write was for, when that function sleeps.
void TraceSleepingFunctions(const PCI_DEVICE_STATE& State, const UINT32* pHeaderLog, const CHAR8* Caller) {
    const PCI_SBDF Own = SbdfOf(State.PciAddress);
    // Function 0 says whether there are others; any other function is one of several.
    if (Own.Func == 0 && !PciHeaderType::MultiFunction::Get(State.PciHeader[PCI_HEADER_TYPE])) {
        return;
    }
    for (UINT8 Func = 0; Func < PCI_FUNCTIONS_PER_DEVICE; Func++) {
        if (Func != Own.Func && VornCheckDevicePresent(Own.Seg, Own.Bus, Own.Dev, Func) &&
            VornElogSmmCheckD3HotState(Own.Seg, Own.Bus, Own.Dev, Func) &&
            VornElogSmmCheckMemAccessForPcieDev(Own.Seg, Own.Bus, Own.Dev, Func, pHeaderLog)) {
            TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
                    "%a: SBDF %04X:%02X:%02X.%1X Device in D3Hot and BAR on device positively decodes UR MMIO "
                    "address, ignore error\n",
                    Own.Seg, Own.Bus, Own.Dev, Func);
        }
    }
}

// Whether the request in the captured header log was refused in error. Only memory writes are refused for good
// reasons: firmware and OS write to addresses that nothing decodes.
bool IsRequestError(const PCI_DEVICE_STATE& State, const CHAR8* Caller) {
    UINT32 HeaderLog[TLP_HEADER_LOG_DWORDS];
    CopyHeaderLog(HeaderLog, State.AerCapability + AER_HEADER_LOG);
    if (VornElogGetTlpHeaderFmtType(&State, HeaderLog) != TlpMemoryWrite) {
        return true;
    }
    const PCI_SBDF At = SbdfOf(State.PciAddress);
    if (VornElogSmmCheckMemAccessForPcieDev(At.Seg, At.Bus, At.Dev, At.Func, HeaderLog)) {
        return IsDecodedWriteError(State, HeaderLog, Caller);
    }
    TraceSleepingFunctions(State, HeaderLog, Caller);
    return false;
}

// Read a register and write it back with some bits cleared and others set, also where that changes nothing. They
// return what it held before.
UINT32 Rewrite32(UINT64 Register, UINT32 Clear, UINT32 Set) {
    const UINT32 Before = PciSegmentRead32(Register);
    PciSegmentWrite32(Register, (Before & ~Clear) | Set);
    return Before;
}

UINT16 Rewrite16(UINT64 Register, UINT16 Clear, UINT16 Set) {
    const UINT16 Before = PciSegmentRead16(Register);
    PciSegmentWrite16(Register, static_cast<UINT16>((Before & ~Clear) | Set));
    return Before;
}

}  // namespace

EFI_STATUS VornElogSmmValidatePcieUnsupportedRequest(PCI_DEVICE_STATE* pPciDeviceState, BOOLEAN* pHandleUrError) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    if (pHandleUrError == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pHandleUrError == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pHandleUrError = FALSE;
    PCI_DEVICE_STATE& State = *pPciDeviceState;
    const UINT64 Level = mPrivateDataVornElogPolicyLib.SerDbgLevel;
    const PCI_SBDF At = SbdfOf(State.PciAddress);
    if (State.PcieCapabilityOffset == 0) {
        return EFI_UNSUPPORTED;
    }
    const bool HasAer = State.AerOffset != 0;
    if (HasAer && HasOtherFatalErrors(State)) {
        Trace(Level,
              "%a: SBDF %04X:%02X:%02X.%1X one or more non-UR fatal errors detected, skipping further UR "
              "categorization\n",
              At.Seg, At.Bus, At.Dev, At.Func);
        *pHandleUrError = TRUE;
        return EFI_SUCCESS;
    }
    if (State.Pcie.Characteristics.IsRoleBasedErrorReporting == FALSE) {
        StopReportingUnsupportedRequests(State);
        State.Pcie.ErrorStatus.UnsupportedRequestScreened = TRUE;
        Trace(Level, "%a: SBDF %04X:%02X:%02X.%1X is PCIe 1.0 device, disabling UR and ignoring UR error status\n",
              At.Seg, At.Bus, At.Dev, At.Func);
        return EFI_SUCCESS;
    }
    if (VornElogSmmCheckD3HotState(At.Seg, At.Bus, At.Dev, At.Func)) {
        Trace(Level, "%a: SBDF %04X:%02X:%02X.%1X Device in D3Hot, ignore error and exit...\n", At.Seg, At.Bus,
              At.Dev, At.Func);
        return EFI_SUCCESS;
    }
    *pHandleUrError = !HasAer || (!IsErrorOfDmtfMessage(State, __func__) && IsRequestError(State, __func__));
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSuppressUnsupportedRequest(const PCI_DEVICE_STATE* pPciDeviceState,
                                              BOOLEAN* pIsPcieDeviceControlUrReportingEnabled,
                                              BOOLEAN* pIsPcieAerUrReportingUnmasked,
                                              BOOLEAN* pIsPcieAerAdvisoryNonFatalReportingUnmasked) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    if (pIsPcieDeviceControlUrReportingEnabled == nullptr || pIsPcieAerUrReportingUnmasked == nullptr ||
        pIsPcieAerAdvisoryNonFatalReportingUnmasked == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pIsPcieDeviceControlUrReportingEnabled = FALSE;
    *pIsPcieAerUrReportingUnmasked = FALSE;
    *pIsPcieAerAdvisoryNonFatalReportingUnmasked = FALSE;
    const PCI_DEVICE_STATE& State = *pPciDeviceState;
    if (State.PcieCapabilityOffset == 0) {
        return EFI_UNSUPPORTED;
    }
    if (State.AerOffset != 0) {
        const UINT32 Uncorrectable = Rewrite32(LiveRegister(State, State.AerOffset + AER_UNCORRECTABLE_MASK), 0,
                                               AerUncorrectable::UnsupportedRequest);
        const UINT32 Correctable = Rewrite32(LiveRegister(State, State.AerOffset + AER_CORRECTABLE_MASK), 0,
                                             AerCorrectable::AdvisoryNonFatalError);
        *pIsPcieAerUrReportingUnmasked = (Uncorrectable & AerUncorrectable::UnsupportedRequest) == 0;
        *pIsPcieAerAdvisoryNonFatalReportingUnmasked = (Correctable & AerCorrectable::AdvisoryNonFatalError) == 0;
    }
    const UINT16 Control = Rewrite16(LiveRegister(State, State.PcieCapabilityOffset + PCIE_DEVICE_CONTROL),
                                     PcieDeviceControl::UnsupportedRequestReportingEnable, 0);
    *pIsPcieDeviceControlUrReportingEnabled = (Control & PcieDeviceControl::UnsupportedRequestReportingEnable) != 0;
    return EFI_SUCCESS;
}

void ResumeUnsupportedRequestReporting(const PCI_DEVICE_STATE& State, BOOLEAN IsPcieDeviceControlUrReportingEnabled,
                                       BOOLEAN IsPcieAerUrReportingUnmasked,
                                       BOOLEAN IsPcieAerAdvisoryNonFatalReportingUnmasked) {
    if (State.AerOffset != 0) {
        Rewrite32(LiveRegister(State, State.AerOffset + AER_UNCORRECTABLE_MASK),
                  IsPcieAerUrReportingUnmasked != FALSE ? AerUncorrectable::UnsupportedRequest : 0, 0);
        Rewrite32(LiveRegister(State, State.AerOffset + AER_CORRECTABLE_MASK),
                  IsPcieAerAdvisoryNonFatalReportingUnmasked != FALSE ? AerCorrectable::AdvisoryNonFatalError : 0, 0);
    }
    Rewrite16(LiveRegister(State, State.PcieCapabilityOffset + PCIE_DEVICE_CONTROL), 0,
              IsPcieDeviceControlUrReportingEnabled != FALSE ? PcieDeviceControl::UnsupportedRequestReportingEnable
                                                             : UINT16{0});
}

EFI_STATUS VornElogRestoreUnsupportedRequest(const PCI_DEVICE_STATE* pPciDeviceState,
                                             BOOLEAN IsPcieDeviceControlUrReportingEnabled,
                                             BOOLEAN IsPcieAerUrReportingUnmasked,
                                             BOOLEAN IsPcieAerAdvisoryNonFatalReportingUnmasked) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    const PCI_DEVICE_STATE& State = *pPciDeviceState;
    if (State.PcieCapabilityOffset == 0) {
        return EFI_UNSUPPORTED;
    }
    if (State.AerOffset != 0) {
        PciSegmentWrite32(LiveRegister(State, State.AerOffset + AER_UNCORRECTABLE_STATUS),
                          AerUncorrectable::UnsupportedRequest);
        PciSegmentWrite32(LiveRegister(State, State.AerOffset + AER_CORRECTABLE_STATUS),
                          AerCorrectable::AdvisoryNonFatalError);
    }
    PciSegmentWrite16(LiveRegister(State, State.PcieCapabilityOffset + PCIE_DEVICE_STATUS),
                      PcieDeviceStatus::UnsupportedRequestDetected);
    ResumeUnsupportedRequestReporting(State, IsPcieDeviceControlUrReportingEnabled, IsPcieAerUrReportingUnmasked,
                                      IsPcieAerAdvisoryNonFatalReportingUnmasked);
    return EFI_SUCCESS;
}

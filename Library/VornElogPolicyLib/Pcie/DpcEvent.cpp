#include "Library/VornElogPolicyLib/Pcie/DpcEvent.h"

#include "Library/VornElogChipsetLib/ActiveRootPorts.h"
#include "Library/VornElogPolicyLib/Pcie/ClearStatus.h"
#include "Library/VornElogPolicyLib/Pcie/DpcTrigger.h"
#include "Library/VornElogPolicyLib/Pcie/DpcTriggerBuffer.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/Pcie/PcieRecord.h"
#include "Library/VornElogPolicyLib/Pcie/PcieUceCount.h"
#include "Library/VornElogPolicyLib/Pcie/RpPio.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

BOOLEAN IsDpcAwareOs(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func) {
    const RAS_ACPI_SMM_DATA* const pShared = mPrivateDataVornElogPolicyLib.pKyrRasAcpiSmmData;
    if (pShared == nullptr) {
        return FALSE;
    }
    const UINT16 Bdf = PackDpcPortBdf(Bus, Dev, Func);
    // Meant: the index has 8 bits, ports behind the 256th are not looked at.
    UINT8 Index = 0;
    do {
        const DPC_AWARE_OS_ENTRY Entry = pShared->DpcAwareOs[Index];
        if (Entry.Bdf == 0 && Entry.Segment == 0) {
            return FALSE;
        }
        if (Entry.Segment == Seg && Entry.Bdf == Bdf) {
            Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
                  "%a: SBDF %04X:%02X:%02X.%1X is in DPC Aware OS buffer\n", Seg, Bus, Dev, Func);
            return TRUE;
        }
        Index++;
    } while (Index != 0);
    return FALSE;
}

// A root port's own programmed IO brought the containment about.
static void CheckTriggeringRpPioError(PCI_DEVICE_STATE& State) {
    PCIE_ERROR_STATUS& Errors = State.Pcie.ErrorStatus;
    const UINT32 Status = PciSegmentRead32(LiveRegister(State, State.DpcOffset + DPC_RP_PIO_STATUS));
    if (Status != 0) {
        Errors.ClearRpPioFatal = TRUE;
    }
    UINT32 Remaining = Status & ~CapturedRegister32(State.DpcCapability, DPC_RP_PIO_MASK) &
                       ~CapturedRegister32(State.DpcCapability, DPC_RP_PIO_SYS_ERROR);
    if (Errors.DetectedHotRemoval != FALSE) {
        Remaining = 0;
    }
    // Meant: nothing has set DetectedRpPioFatal yet when a record is classified, so that no error is handled here.
    // The record of the containment event covers it.
    if (Remaining == 0 || Errors.DetectedRpPioFatal == FALSE) {
        return;
    }
    BOOLEAN IsValid = FALSE;
    VornElogValidateRpPioError(&State, &IsValid);
    if (IsValid != FALSE) {
        Errors.HandleRpPioFatal = TRUE;
        Errors.ClearRpPioFatal = FALSE;
    }
}

static void TraceTriggerReason(const PCI_DEVICE_STATE& State, const PCI_SBDF& At, const CHAR8* Caller) {
    constexpr const CHAR8* Reasons[] = {"unmasked uncorrectable error",
                                        "ERR_NONFATAL received from downstream, for the O/S to handle",
                                        "ERR_FATAL received from downstream, for the O/S to handle"};
    const UINT16 Reason = DpcTriggerReason(State);
    const CHAR8* pText = "reserved";
    if (Reason != DpcReasonSeeExtension) {
        pText = Reasons[Reason];
    } else if (IsRpPioDpc(State)) {
        pText = "RP PIO error, for the O/S to handle";
    } else if (IsSoftwareDpc(State)) {
        pText = "DPC Software Trigger";
    }
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X PCIe DPC triggered, reason %d: %a\n", At.Seg, At.Bus, At.Dev, At.Func,
            Reason, pText);
}

EFI_STATUS VornElogSmmCheckPcieErrorDpc(PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    PCI_DEVICE_STATE& State = *pPciDeviceState;
    const UINT64 Level = mPrivateDataVornElogPolicyLib.SerDbgLevel;
    const PCI_SBDF At = SbdfOf(State.PciAddress);
    if (State.DpcOffset == 0) {
        Trace(Level,
              "%a: SBDF %04X:%02X:%02X.%1X PCIe extended capability (DPC) structure not supported, exiting...\n",
              At.Seg, At.Bus, At.Dev, At.Func);
        return EFI_UNSUPPORTED;
    }
    const UINT16 Control = CapturedRegister16(State.DpcCapability, DPC_CONTROL);
    if (DpcControl::TriggerEnable::Get(Control) == 0) {
        Trace(Level,
              "%a: SBDF %04X:%02X:%02X.%1X PCIe DPC Control Trigger Enable bitfield configured for DPC disabled, "
              "exiting...\n",
              At.Seg, At.Bus, At.Dev, At.Func);
        return EFI_SUCCESS;
    }
    if (DpcControl::ErrCorEnable::Get(Control) == 0) {
        Trace(Level,
              "%a: SBDF %04X:%02X:%02X.%1X PCIe DPC Control Error Correctable Enabled cleared/disabled, exiting...\n",
              At.Seg, At.Bus, At.Dev, At.Func);
        return EFI_SUCCESS;
    }
    if (DpcStatus::TriggerStatus::Get(CapturedRegister16(State.DpcCapability, DPC_STATUS)) == 0) {
        return EFI_SUCCESS;
    }
    PCIE_ERROR_STATUS& Errors = State.Pcie.ErrorStatus;
    Errors.DetectedDpcEvent = TRUE;
    Errors.HandleDpcEvent = TRUE;
    Errors.ClearDpcEvent = FALSE;
    TraceTriggerReason(State, At, __func__);
    if (IsRpPioDpc(State)) {
        CheckTriggeringRpPioError(State);
    }
    return EFI_SUCCESS;
}

// Tells the ACPI code of the event and counts it. A port that only signals on and on falls silent in the end.
static void CountDpcEvent(const PCI_DEVICE_STATE& State, const PCI_SBDF& At, BOOLEAN IsDpcOs) {
    const PCIE_CHARACTERISTICS& Is = State.Pcie.Characteristics;
    PCI_SBDF Rp = At;
    if (!IsRootPortOrEventCollector(State)) {
        VornGetRootPortBDF(At.Seg, At.Bus, At.Dev, At.Func, &Rp.Bus, &Rp.Dev, &Rp.Func);
    }
    GetSetDpcTriggerBuffer(At.Seg, At.Bus, At.Dev, At.Func, Rp.Bus, Rp.Dev, Rp.Func,
                           IsSoftwareDpc(State) ? ADD_BDF | SOFTWARE_DPC : ADD_BDF);
    IncrementPcieUceCount(At.Seg, At.Bus, At.Dev, At.Func);
    if (IsDpcOs == FALSE) {
        CheckForUceLimit(At.Seg, At.Bus, At.Dev, At.Func, Is.IsRootPort, Is.IsRootComplexEventCollector,
                         State.PcieCapabilityOffset);
    }
}

void VornElogSmmHandlePcieDpcEvent(PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return;
    }
    PCI_DEVICE_STATE& State = *pPciDeviceState;
    if (State.DpcOffset == 0) {
        Trace(DEBUG_ERROR, "%a: ERROR PCIe extended capability structure (DPC) not supported, aborting...\n");
        return;
    }
    const UINT64 Level = mPrivateDataVornElogPolicyLib.SerDbgLevel;
    const PCI_SBDF At = SbdfOf(State.PciAddress);
    const BOOLEAN IsDpcOs = IsDpcAwareOs(At.Seg, At.Bus, At.Dev, At.Func);
    if (IsDpcOs == FALSE) {
        Trace(Level, "%a: SBDF %04X:%02X:%02X.%1X Non DPC aware O/S, clear DPC state immediately\n", At.Seg, At.Bus,
              At.Dev, At.Func);
        const EFI_STATUS Status = VornElogClearPcieDpc(pPciDeviceState, Level);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogClearPcieDpc SBDF %04X:%02X:%02X.%1X\n", Status, At.Seg,
                  At.Bus, At.Dev, At.Func);
        }
    }
    // A port that the firmware holds down for good is no news.
    const PCIE_UCE_LIMIT_STATUS Limit = GetPcieUceLimitStatus(At.Seg, At.Bus, At.Dev, At.Func, FALSE);
    if (IsDpcOs == FALSE || !IsSoftwareDpc(State) || Limit != PcieUceOverLimit) {
        CountDpcEvent(State, At, IsDpcOs);
    }
    ReportPciFunction(State, {.Event = TRUE, .OsLoaded = IsDpcOs});
    if (IsDpcOs == FALSE) {
        PCIE_ERROR_STATUS& Errors = State.Pcie.ErrorStatus;
        if (DpcTriggerReason(State) == DpcReasonErrNonFatalReceived) {
            Errors.ClearNonFatal = TRUE;
        } else {
            Errors.ClearFatal = TRUE;
        }
        const EFI_STATUS Status = VornElogClearPcieDeviceStatus(pPciDeviceState, Level);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogClearPcieDeviceStatus SBDF %04X:%02X:%02X.%1X\n", Status,
                  At.Seg, At.Bus, At.Dev, At.Func);
        }
    }
}

#include "Library/VornElogPolicyLib/Storm/ShutdownCxl.h"

#include "Include/CxlRegisters.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/Cxl/CxlEventCommands.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

// Masks what the status register shows, and what it showed when the function was captured: the scan has cleared it
// since.
static void MaskSetErrors(const PCI_DEVICE_STATE& State, UINT32 StatusOffset, UINT32 MaskOffset, const CHAR8* Name,
                          const CHAR8* Caller) {
    const UINT64 Level = mPrivateDataVornElogPolicyLib.SerDbgLevel;
    const UINT64 RasCapability = State.Cxl.RasCapabilityAddress;
    const UINT32 Status =
        MmioRead32(RasCapability + StatusOffset) | State.Cxl.RasCapability[StatusOffset / sizeof(UINT32)];
    const UINT32 Mask = MmioRead32(RasCapability + MaskOffset);
    TraceAs(Caller, Level, "%a: %a Status Rd 0x%08x Mask Rd 0x%08x\n", Name, Status, Mask);
    MmioWrite32(RasCapability + MaskOffset, Mask | Status);
    TraceAs(Caller, Level, "%a: %a Mask Wr 0x%08x Rd Vrfy 0x%08x\n", Name, Mask | Status,
            MmioRead32(RasCapability + MaskOffset));
}

EFI_STATUS VornElogSmmDisableCxlProtocolErrorGeneration(const PCI_DEVICE_STATE* pPciDeviceState) {
    if (pPciDeviceState == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pPciDeviceState == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const CXL_SMI_STORM& Storm = pPciDeviceState->Cxl.SmiStorm;
    if (Storm.Protocol == FALSE) {
        Trace(DEBUG_ERROR, "%a: ERROR No CXL Protocol error SMI storm reported, aborting...\n");
        return EFI_UNSUPPORTED;
    }
    if (pPciDeviceState->Cxl.RasCapabilityAddress == 0) {
        const PCI_SBDF At = SbdfOf(pPciDeviceState->PciAddress);
        Trace(DEBUG_ERROR, "%a: ERROR SBDF %04X:%02X:%02X.%1X has no CXL RAS capability, aborting...\n", At.Seg,
              At.Bus, At.Dev, At.Func);
        return EFI_UNSUPPORTED;
    }
    if ((Storm.ProtocolFatal | Storm.ProtocolNonFatal) != FALSE) {
        MaskSetErrors(*pPciDeviceState, CXL_RAS_UNCORRECTABLE_STATUS, CXL_RAS_UNCORRECTABLE_MASK,
                      "Uncorrectable Error", __func__);
    }
    if (Storm.ProtocolCorrectable != FALSE) {
        MaskSetErrors(*pPciDeviceState, CXL_RAS_CORRECTABLE_STATUS, CXL_RAS_CORRECTABLE_MASK, "Correctable Error",
                      __func__);
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmDisableCxlComponentErrorGeneration(const PCI_DEVICE_STATE* pPciDeviceState,
                                                         UINT32 EventRecordSeverity) {
    if (pPciDeviceState == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pPciDeviceState == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (EventRecordSeverity > CxlEventLogFatal) {
        Trace(DEBUG_ERROR, "%a: ERROR event record severity %d > Max %d, aborting...\n", EventRecordSeverity,
              CxlEventLogFatal);
        return EFI_INVALID_PARAMETER;
    }
    const auto& Cxl = pPciDeviceState->Cxl;
    if ((Cxl.SmiStorm.ComponentSeverities >> EventRecordSeverity & 1) == 0) {
        Trace(DEBUG_ERROR, "%a: ERROR No CXL Component error SMI storm of severity %d reported, aborting...\n",
              EventRecordSeverity);
        return EFI_UNSUPPORTED;
    }
    if (Cxl.IsCxl == FALSE || Cxl.MemoryDeviceRegisterBlock == 0 || Cxl.SecondaryMailbox.Offset == 0) {
        const PCI_SBDF At = SbdfOf(pPciDeviceState->PciAddress);
        Trace(DEBUG_ERROR,
              "%a: ERROR SBDF %04X:%02X:%02X.%1X is no CXL memory device with a secondary mailbox, aborting...\n",
              At.Seg, At.Bus, At.Dev, At.Func);
        return EFI_UNSUPPORTED;
    }
    CXL_EVENT_INTERRUPT_POLICY Policy{};
    EFI_STATUS Status = VornElogCxlMbCmdGetEventInterruptPolicy(pPciDeviceState, &Policy);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogCxlMbCmdGetEventInterruptPolicy, aborting...\n", Status);
        return Status;
    }
    UINT8& Setting = Policy.Settings[EventRecordSeverity];
    const UINT8 Before = Setting;
    Setting = CxlEventInterruptSetting::Mode::Set(Setting, CxlEventInterruptSetting::NoInterrupts);
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: event log %d interrupt setting Rd 0x%02x Wr 0x%02x\n",
          EventRecordSeverity, Before, Setting);
    Status = VornElogCxlMbCmdSetEventInterruptPolicy(pPciDeviceState, &Policy);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogCxlMbCmdSetEventInterruptPolicy, aborting...\n", Status);
    }
    return Status;
}

#include "Library/VornElogPolicyLib/Pcie/VendorDefinedMessage.h"

#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

static bool HasAer(const PCI_DEVICE_STATE& State, const CHAR8* Caller) {
    if (State.AerOffset != 0) {
        return true;
    }
    const PCI_SBDF At = SbdfOf(State.PciAddress);
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X PCIe extended capability (AER) structure not supported, exiting...\n",
            At.Seg, At.Bus, At.Dev, At.Func);
    return false;
}

EFI_STATUS VornElogSmmIsPcieVdmType1DmtfMessage(const PCI_DEVICE_STATE* pPciDeviceState, const UINT32* pHeaderLog,
                                                BOOLEAN* pIsVdm) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    if (pHeaderLog == nullptr || pIsVdm == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const UINT32 FmtType = TlpHeader::FmtType::Get(pHeaderLog[0]);
    *pIsVdm = (FmtType == TlpHeader::Msg || FmtType == TlpHeader::MsgD) &&
              TlpHeader::MessageCode::Get(pHeaderLog[1]) == TlpHeader::VendorDefinedType1 &&
              TlpHeader::MessageVendorId::Get(pHeaderLog[2]) == TlpHeader::VendorIdDmtf;
    if (*pIsVdm != FALSE) {
        const PCI_SBDF At = SbdfOf(pPciDeviceState->PciAddress);
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
              "%a: SBDF %04X:%02X:%02X.%1X Error associated with PCIe VDM Type 1 Message, ignore associated errors\n",
              At.Seg, At.Bus, At.Dev, At.Func);
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmCheckPcieVdmType1DmtfMsg(const PCI_DEVICE_STATE* pPciDeviceState,
                                               BOOLEAN* pIgnorePcieVdmType1DmtfMessage) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    if (pIgnorePcieVdmType1DmtfMessage == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pIgnorePcieVdmType1DmtfMessage == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pIgnorePcieVdmType1DmtfMessage = FALSE;
    const PCI_DEVICE_STATE* const pRootPort = pPciDeviceState->PcieRootPortData.pPciDeviceStateUpstreamRootPort;
    if (pRootPort == nullptr) {
        Trace(DEBUG_ERROR,
              "%a: ERROR pPciDeviceState->PcieRootPortData.pPciDeviceStateUpstreamRootPort NULL on entry, "
              "aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (!HasAer(*pRootPort, __func__)) {
        return EFI_UNSUPPORTED;
    }
    const UINT32 RootErrorStatus =
        PciSegmentRead32(LiveRegister(*pRootPort, pRootPort->AerOffset + AER_ROOT_ERROR_STATUS));
    if ((RootErrorStatus & AerRootErrorStatus::MultipleErrFatalNonFatalReceived) != 0) {
        const PCI_SBDF At = SbdfOf(pRootPort->PciAddress);
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
              "%a: RP @ SBDF %04X:%02X:%02X.%1X received multiple uncorrectable errors, none is ignored\n", At.Seg,
              At.Bus, At.Dev, At.Func);
        return EFI_SUCCESS;
    }
    if (!HasAer(*pPciDeviceState, __func__)) {
        return EFI_UNSUPPORTED;
    }
    UINT32 HeaderLog[TLP_HEADER_LOG_DWORDS];
    CopyHeaderLog(HeaderLog, pPciDeviceState->AerCapability + AER_HEADER_LOG);
    return VornElogSmmIsPcieVdmType1DmtfMessage(pPciDeviceState, HeaderLog, pIgnorePcieVdmType1DmtfMessage);
}

bool IsErrorOfDmtfMessage(const PCI_DEVICE_STATE& State, const CHAR8* Caller) {
    BOOLEAN Ignore = FALSE;
    const EFI_STATUS Status = VornElogSmmCheckPcieVdmType1DmtfMsg(&State, &Ignore);
    if (EFI_ERROR(Status)) {
        const PCI_SBDF At = SbdfOf(State.PciAddress);
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from VornElogSmmCheckPcieVdmType1DmtfMsg SBDF %04X:%02X:%02X.%1X\n", Status, At.Seg,
                At.Bus, At.Dev, At.Func);
        return false;
    }
    return Ignore != FALSE;
}

#include "Library/VornElogPolicyLib/Pcie/CaptureDeviceState.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/PciConfiguration.h"
#include "Library/VornElogBaseLib/Queue.h"
#include "Library/VornElogPolicyLib/Cxl/CxlDeviceState.h"
#include "Library/VornElogPolicyLib/Pcie/Classification.h"
#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/Pcie/HandleFlags.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

bool IsPciBridge(const UINT8* PciHeader) {
    return PciHeader[PCI_CLASS_BASE] == PciClass::BRIDGE &&
           PciHeader[PCI_CLASS_SUBCLASS] == PciClass::BRIDGE_PCI_TO_PCI &&
           PciHeader[PCI_CLASS_INTERFACE] <= PciClass::BRIDGE_PCI_TO_PCI_SUBTRACTIVE;
}

void SetCharacteristics(PCI_DEVICE_STATE* pState, const PCI_SBDF& Where, const CHAR8* Caller) {
    PCIE_CHARACTERISTICS& Is = pState->Pcie.Characteristics;
    const UINT8 DevicePortType = DevicePortTypeOf(*pState);
    switch (DevicePortType) {
        case PcieEndpoint:
        case PcieLegacyEndpoint:
            break;
        case PcieRootPort:
            Is.IsRootPort = TRUE;
            break;
        case PcieSwitchUpstreamPort:
            Is.IsSwitchUpstreamPort = TRUE;
            break;
        case PcieSwitchDownstreamPort:
            Is.IsSwitchDownstreamPort = TRUE;
            break;
        case PcieToPciBridge:
            pState->Pcie.IsPcieToPciBridge = TRUE;
            break;
        case PcieRootComplexIntegratedEndpoint:
            Is.IsRootComplexIntegratedEndpoint = TRUE;
            break;
        case PcieRootComplexEventCollector:
            Is.IsRootComplexEventCollector = TRUE;
            break;
        default:
            TraceAs(Caller, DEBUG_ERROR,
                    "%a: SBDF %04X:%02X:%02X.%1X PCIe Capability.DevicePortType 0x%02x not recognized\n", Where.Seg,
                    Where.Bus, Where.Dev, Where.Func, DevicePortType);
    }
    const UINT32 DeviceCapabilities = CapturedRegister32(pState->PcieCapability, PCIE_DEVICE_CAPABILITIES);
    Is.IsRoleBasedErrorReporting =
        (DeviceCapabilities & PcieDeviceCapabilities::RoleBasedErrorReporting) != 0 ? TRUE : FALSE;
}

// Copies an extended capability that the walk has found. The offset stays 0 where it cannot be copied.
void CaptureExtendedCapability(const PCI_SBDF& Where, const PCIE_EXTENDED_CAPABILITY_SEARCH& Found, UINT16 Length,
                               UINT16* pOffset, UINT8* Captured, const CHAR8* Caller) {
    const EFI_STATUS Status =
        Found.Offset == 0 ? EFI_UNSUPPORTED : ReadPciStructure(Where, Found.Offset, Length, Captured);
    if (!EFI_ERROR(Status)) {
        *pOffset = Found.Offset;
    }
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevelDetailed,
            "%a: SBDF %04X:%02X:%02X.%1X extended capability 0x%04x at 0x%03x %d bytes %r\n", Where.Seg, Where.Bus,
            Where.Dev, Where.Func, Found.ExtCapId, Found.Offset, Length, Status);
}

// AER of every function, DPC and SFI of ports that have something below them. The port type is known from the
// captured PCI Express capability, and one walk finds all three: a scan meets thousands of functions.
void CaptureExtendedCapabilities(PCI_DEVICE_STATE* pState, const PCI_SBDF& Where, const CHAR8* Caller) {
    PCIE_EXTENDED_CAPABILITY_SEARCH Searches[] = {
        {PcieExtendedCapabilityAer, 0}, {PcieExtendedCapabilityDpc, 0}, {PcieExtendedCapabilitySfi, 0}};
    const auto& [Aer, Dpc, Sfi] = Searches;
    const bool MayContain = pState->Pcie.Characteristics.IsRootPort != FALSE ||
                            pState->Pcie.Characteristics.IsSwitchDownstreamPort != FALSE;
    FindPcieExtendedCapabilities(Where, Searches, MayContain ? 3 : 1);

    CaptureExtendedCapability(Where, Aer, AerCopyLength(DevicePortTypeOf(*pState)), &pState->AerOffset,
                              pState->AerCapability, Caller);
    if (!MayContain) {
        return;
    }
    const UINT16 DpcLength = Dpc.Offset == 0 ? UINT16{0}
                                             : DpcCopyLength(PciSegmentRead16(PciFunctionAddress(
                                                   Where, static_cast<UINT16>(Dpc.Offset + DPC_CAPABILITY))));
    CaptureExtendedCapability(Where, Dpc, DpcLength, &pState->DpcOffset, pState->DpcCapability, Caller);
    CaptureExtendedCapability(Where, Sfi, SFI_CAPABILITY_SIZE, &pState->SfiOffset, pState->SfiCapability, Caller);
}

void CaptureCxl(PCI_DEVICE_STATE* pState, const PCI_SBDF& Where, const CHAR8* Caller) {
    const EFI_STATUS Status = VornElogGetCxlDeviceState(Where.Seg, Where.Bus, Where.Dev, Where.Func, pState);
    if (Status == EFI_UNSUPPORTED) {
        TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: SBDF %04X:%02X:%02X.%1X CXL not supported\n",
                Where.Seg, Where.Bus, Where.Dev, Where.Func);
    } else if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornElogGetCxlDeviceState for SBDF %04X:%02X:%02X.%1X\n",
                Status, Where.Seg, Where.Bus, Where.Dev, Where.Func);
    }
}

// Whether the SMI's later steps need the record.
bool IsWorthQueueing(const PCI_DEVICE_STATE& State) {
    const CXL_ERROR_STATUS& Cxl = State.Cxl.ErrorStatus;
    // Ports always: the records of what is below them link to them.
    const bool PcieWorth = State.IsPcie != FALSE &&
                           (IsRootOrDownstreamPort(State) || IsPcieErrorOrDpcEventHandled(State.Pcie.ErrorStatus));
    const bool CxlWorth =
        State.Cxl.IsCxl != FALSE && (IsCxlProtocolErrorHandled(Cxl) || Cxl.ComponentDetected != FALSE);
    return State.LegacyPci.Handle != FALSE || PcieWorth || CxlWorth;
}

}  // namespace

EFI_STATUS VornElogGetPciDeviceState(const IO_HUB_DATA* pIoHubData, const KYR_PCIE_PORT_MAP_ENTRY* pPortMapEntry,
                                     PCI_DEVICE_STATE* pPciDeviceState) {
    if (pIoHubData == nullptr || pPortMapEntry == nullptr || pPciDeviceState == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const PCI_SBDF Where = SbdfOf(pPciDeviceState->PciAddress);
    pPciDeviceState->PcieRootPortData.IoHubData = *pIoHubData;
    pPciDeviceState->PcieRootPortData.IoHubDataValid = TRUE;
    pPciDeviceState->PcieRootPortData.LogicalBridgePciAddress = pPortMapEntry->RpPciAddr;
    pPciDeviceState->PcieRootPortData.PhysicalBridgePciAddress = pPortMapEntry->PhysicalBridgePciAddr;

    EFI_STATUS Status = VornGetPciHeader(Where.Seg, Where.Bus, Where.Dev, Where.Func, pPciDeviceState->PciHeader);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    pPciDeviceState->IsPciBridgeDevice = IsPciBridge(pPciDeviceState->PciHeader) ? TRUE : FALSE;

    const UINT8 PcieOffset = PciCapabilityOffsetByHeader(Where, pPciDeviceState->PciHeader, PciCapabilityPciExpress);
    if (PcieOffset == 0) {
        Trace(
            mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X is a legacy PCI device (no PCIe capability structure present), exiting...\n",
            Where.Seg, Where.Bus, Where.Dev, Where.Func);
        return EFI_SUCCESS;
    }
    Status = ReadPciStructure(Where, PcieOffset, PCIE_CAPABILITY_SIZE, pPciDeviceState->PcieCapability);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    pPciDeviceState->PcieCapabilityOffset = PcieOffset;
    pPciDeviceState->IsPcie = TRUE;
    SetCharacteristics(pPciDeviceState, Where, __func__);
    CaptureExtendedCapabilities(pPciDeviceState, Where, __func__);
    if (RunsCxl2(*pPortMapEntry)) {
        CaptureCxl(pPciDeviceState, Where, __func__);
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmGetPciDeviceState(const IO_HUB_DATA* pIoHubData, const KYR_PCIE_PORT_MAP_ENTRY* pPortMapEntry,
                                        PCI_DEVICE_STATE* pPciDeviceState) {
    if (pIoHubData == nullptr || pPortMapEntry == nullptr || pPciDeviceState == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const PCI_SBDF Where = SbdfOf(pPciDeviceState->PciAddress);
    EFI_STATUS Status = VornElogGetPciDeviceState(pIoHubData, pPortMapEntry, pPciDeviceState);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogGetPciDeviceState for SBDF %04X:%02X:%02X.%1X, aborting...\n",
              Status, Where.Seg, Where.Bus, Where.Dev, Where.Func);
        return Status;
    }
    VornElogSmmIsPciErrorSignaled(pPciDeviceState);

    const PCIE_ERROR_STATUS& Errors = pPciDeviceState->Pcie.ErrorStatus;
    if (pPciDeviceState->IsPcie != FALSE && Errors.DetectedDpcEvent != FALSE && Errors.HandleDpcEvent != FALSE) {
        DpcTriggerIoHubData = *pIoHubData;
        DpcTriggerIoHubDataValid = TRUE;
        DpcTriggerPortMapEntry = *pPortMapEntry;
        DpcTriggerPortMapEntryValid = TRUE;
    }
    if (!IsWorthQueueing(*pPciDeviceState)) {
        return EFI_SUCCESS;
    }
    Status = QueueAdd(mPrivateDataVornElogPolicyLib.pQueuePciDeviceData, pPciDeviceState, sizeof(PCI_DEVICE_STATE));
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from QueueAdd (PCIe Device Data) for SBDF %04X:%02X:%02X.%1X\n", Status,
              Where.Seg, Where.Bus, Where.Dev, Where.Func);
    }
    return Status;
}

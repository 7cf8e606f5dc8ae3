#include "Library/VornElogPolicyLib/Pcie/ErrorScan.h"

#include "Include/BoundedContainers.h"
#include "Include/PlatformApeiData.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/PciePortMap.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/PciConfiguration.h"
#include "Library/VornElogBaseLib/Queue.h"
#include "Library/VornElogPolicyLib/Pcie/CaptureDeviceState.h"
#include "Library/VornElogPolicyLib/Pcie/Classification.h"
#include "Library/VornElogPolicyLib/Pcie/ClearStatus.h"
#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"
#include "Library/VornElogPolicyLib/Pcie/UnsupportedRequest.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

constexpr const CHAR8* SCAN = "VornPcieErrorScan";

UINT64 Level() {
    return mPrivateDataVornElogPolicyLib.SerDbgLevel;
}

// What all functions below one root port have in common.
struct SCAN_CONTEXT {
    const IO_HUB_DATA* pIoHubData;
    const KYR_PCIE_PORT_MAP_ENTRY* pPortMapEntry;
    PCI_DEVICE_STATE* pQueuedRootPort;  // NULL when it was not queued
};

// The record that was queued last, if it is the root port's, links to the record that the scan frees in the end: it
// is made to link to itself. Returns the root port's queued record, the first one if it was scanned before; NULL
// without one.
PCI_DEVICE_STATE* LinkQueuedRootPort(const PCI_DEVICE_STATE* pRootPort) {
    const QUEUE* pQueue = mPrivateDataVornElogPolicyLib.pQueuePciDeviceData;
    if (QueueHead(pQueue) != nullptr) {
        auto* pNewest = static_cast<PCI_DEVICE_STATE*>(pQueue->pTail->pData);
        if (pNewest->PcieRootPortData.pPciDeviceStateUpstreamRootPort == pRootPort) {
            pNewest->PcieRootPortData.pPciDeviceStateUpstreamRootPort = pNewest;
        }
    }
    const PCI_SBDF Where = SbdfOf(pRootPort->PciAddress);
    PCI_DEVICE_STATE* pFound = nullptr;
    const EFI_STATUS Status = VornElogRetrievePciDeviceState(Where.Seg, Where.Bus, Where.Dev, Where.Func, &pFound);
    if (EFI_ERROR(Status)) {
        TraceAs(SCAN, DEBUG_ERROR,
                "%a: ERROR %r from VornElogRetrievePciDeviceState for RP @ SBDF %04X:%02X:%02X.%1X\n", Status,
                Where.Seg, Where.Bus, Where.Dev, Where.Func);
        return nullptr;
    }
    return pFound;
}

// Captures and clears one function that is there. *pIsMultiFunction changes for function 0 only.
void ScanFunction(const SCAN_CONTEXT& Context, const PCI_SBDF& Where, bool* pIsMultiFunction) {
    PCI_DEVICE_STATE* pState = nullptr;
    EFI_STATUS Status = VornElogSmmAllocatePciDeviceStateMemory(&pState);
    if (EFI_ERROR(Status)) {
        TraceAs(SCAN, DEBUG_ERROR,
                "%a: ERROR %r allocating PCIe Device State memory for DS device @ SBDF %04X:%02X:%02X.%1X, "
                "skipping...\n",
                Status, Where.Seg, Where.Bus, Where.Dev, Where.Func);
        return;
    }
    pState->PciAddress = PackPciAddress(Where.Seg, Where.Bus, Where.Dev, Where.Func);
    pState->PcieRootPortData.pPciDeviceStateUpstreamRootPort = Context.pQueuedRootPort;
    Status = VornElogSmmGetPciDeviceState(Context.pIoHubData, Context.pPortMapEntry, pState);
    if (EFI_ERROR(Status)) {
        TraceAs(SCAN, DEBUG_ERROR,
                "%a: ERROR %r from VornElogSmmGetPciDeviceState for DS device @ SBDF %04X:%02X:%02X.%1X\n", Status,
                Where.Seg, Where.Bus, Where.Dev, Where.Func);
    } else {
        VornElogClearPcieDeviceStatus(pState, Level());
        VornElogClearLegacyPciDeviceStatus(pState, Level());
        if (Where.Func == 0) {
            *pIsMultiFunction = PciHeaderType::MultiFunction::Get(pState->PciHeader[PCI_HEADER_TYPE]) != 0;
        }
    }
    Status = VornElogSmmFreePciDeviceStateMemory(&pState);
    if (EFI_ERROR(Status)) {
        TraceAs(SCAN, DEBUG_ERROR,
                "%a: ERROR %r freeing PCIe Device State memory for DS device @ SBDF %04X:%02X:%02X.%1X, "
                "aborting...\n",
                Status, Where.Seg, Where.Bus, Where.Dev, Where.Func);
    }
}

void ScanDevice(const SCAN_CONTEXT& Context, UINT8 Seg, UINT8 Bus, UINT8 Dev) {
    bool IsMultiFunction = true;
    for (UINT8 Func = 0; Func < PCI_FUNCTIONS_PER_DEVICE && IsMultiFunction; Func++) {
        if (VornCheckDevicePresent(Seg, Bus, Dev, Func) != FALSE) {
            ScanFunction(Context, {Seg, Bus, Dev, Func}, &IsMultiFunction);
        } else if (Func == 0) {
            return;
        }
    }
}

// Every bus below the root port. Probing functions that are absent makes unsupported requests, which must not become
// new errors.
void ScanDownstream(const SCAN_CONTEXT& Context, const PCI_DEVICE_STATE& RootPort) {
    const UINT8 SecondaryBus = RootPort.PciHeader[PCI_SECONDARY_BUS_NUMBER];
    const UINT8 SubordinateBus = RootPort.PciHeader[PCI_SUBORDINATE_BUS_NUMBER];
    if (SecondaryBus == 0 || SubordinateBus == 0) {
        return;
    }
    const UINT8 Seg = SbdfOf(RootPort.PciAddress).Seg;
    BOOLEAN IsPcieDeviceControlUrReportingEnabled = FALSE;
    BOOLEAN IsPcieAerUrReportingUnmasked = FALSE;
    BOOLEAN IsPcieAerAdvisoryNonFatalReportingUnmasked = FALSE;
    EFI_STATUS Status = VornElogSuppressUnsupportedRequest(&RootPort, &IsPcieDeviceControlUrReportingEnabled,
                                                           &IsPcieAerUrReportingUnmasked,
                                                           &IsPcieAerAdvisoryNonFatalReportingUnmasked);
    if (EFI_ERROR(Status)) {
        TraceAs(SCAN, DEBUG_ERROR, "%a: ERROR %r from VornElogSuppressUnsupportedRequest\n", Status);
    }
    // Wider than a bus number, so that bus 0xFF ends the walk.
    for (UINT32 Bus = SecondaryBus; Bus <= SubordinateBus; Bus++) {
        for (UINT8 Dev = 0; Dev < PCI_DEVICES_PER_BUS; Dev++) {
            ScanDevice(Context, Seg, static_cast<UINT8>(Bus), Dev);
        }
    }
    Status =
        VornElogRestoreUnsupportedRequest(&RootPort, IsPcieDeviceControlUrReportingEnabled,
                                          IsPcieAerUrReportingUnmasked, IsPcieAerAdvisoryNonFatalReportingUnmasked);
    if (EFI_ERROR(Status)) {
        TraceAs(SCAN, DEBUG_ERROR, "%a: ERROR %r from VornElogRestoreUnsupportedRequest\n", Status);
    }
}

// The root error status goes last: it is what would raise the SMI again.
void ClearRootPort(const PCI_DEVICE_STATE& RootPort) {
    const PCI_SBDF Where = SbdfOf(RootPort.PciAddress);
    VornElogClearPcieDeviceStatus(&RootPort, Level());
    VornElogClearLegacyPciDeviceStatus(&RootPort, Level());
    TraceAs(SCAN, Level(),
            "%a: RP @ SBDF %04X:%02X:%02X.%1X Clearing PCIe root port AER Root Error Status register to prevent SMI "
            "re-entrance\n",
            Where.Seg, Where.Bus, Where.Dev, Where.Func);
    const EFI_STATUS Status = VornElogClearPcieAerRootPortErrorStatus(&RootPort, Level());
    if (EFI_ERROR(Status)) {
        TraceAs(SCAN, DEBUG_ERROR,
                "%a: ERROR %r while clearing PCIe root port AER Root Error Status register @ SBDF "
                "%04X:%02X:%02X.%1X (needs debugging to prevent SMI re-entrance)\n",
                Status, Where.Seg, Where.Bus, Where.Dev, Where.Func);
    }
}

}  // namespace

EFI_STATUS VornPcieErrorScan(const IO_HUB_DATA* pIoHubData, const KYR_PCIE_PORT_MAP_ENTRY* pPortMapEntry) {
    if (pIoHubData == nullptr || pPortMapEntry == nullptr) {
        Trace(DEBUG_ERROR, "%a: One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const PCI_SBDF Where = SbdfOf(pPortMapEntry->RpPciAddr);
    PCI_DEVICE_STATE* pRootPort = nullptr;
    EFI_STATUS Status = VornElogSmmAllocatePciDeviceStateMemory(&pRootPort);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r allocating PCIe Device State memory for RP @ SBDF %04X:%02X:%02X.%1X, aborting...\n",
              Status, Where.Seg, Where.Bus, Where.Dev, Where.Func);
        return Status;
    }
    pRootPort->PciAddress = PackPciAddress(Where.Seg, Where.Bus, Where.Dev, Where.Func);
    pRootPort->PcieRootPortData.pPciDeviceStateUpstreamRootPort = pRootPort;
    Status = VornElogSmmGetPciDeviceState(pIoHubData, pPortMapEntry, pRootPort);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogSmmGetPciDeviceState for RP @ SBDF %04X:%02X:%02X.%1X\n",
              Status, Where.Seg, Where.Bus, Where.Dev, Where.Func);
    }
    const SCAN_CONTEXT Context = {pIoHubData, pPortMapEntry, LinkQueuedRootPort(pRootPort)};

    if (pRootPort->Pcie.ErrorStatus.DetectedDpcEvent != FALSE ||
        pRootPort->Pcie.ErrorStatus.DetectedHotRemoval != FALSE) {
        // The link is down: what is below does not answer.
        Trace(Level(),
              "%a: RP @ SBDF %04X:%02X:%02X.%1X Skipping downstream bus scan due to DPC trigger event or PCIe hot "
              "remove\n",
              Where.Seg, Where.Bus, Where.Dev, Where.Func);
    } else {
        ScanDownstream(Context, *pRootPort);
    }
    ClearRootPort(*pRootPort);
    Status = VornElogSmmFreePciDeviceStateMemory(&pRootPort);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r freeing PCIe Device State memory for RP @ SBDF %04X:%02X:%02X.%1X\n", Status,
              Where.Seg, Where.Bus, Where.Dev, Where.Func);
    }
    return Status;
}

EFI_STATUS PcieErrorScanHelper(UINT8 IndexOfRbBusMap, const IO_HUB_DATA* pIoHubData, UINT32 RpPciAddr) {
    if (pIoHubData == nullptr || mRbBusMap == nullptr || mPlatformApeiData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (IndexOfRbBusMap >= mRbBusMap->RbCount) {
        Trace(DEBUG_ERROR, "%a: ERROR IndexOfRbBusMap %d >= RbCount %d, aborting...\n", IndexOfRbBusMap,
              mRbBusMap->RbCount);
        return EFI_INVALID_PARAMETER;
    }
    const KYR_PCIE_PORT_MAP* const pPortMap = GetPciePortMap();
    if (pPortMap == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR PciMapValid %d not ready yet, aborting...\n", mPlatformApeiData->PciMapValid);
        return EFI_NOT_FOUND;
    }
    const RB_BUS_ENTRY& RootComplex = RbBusEntries(mRbBusMap)[IndexOfRbBusMap];
    const bool IsEveryPort = RpPciAddr == SCAN_ALL_ROOT_PORTS;
    const UINT8 TargetBus = IsEveryPort ? RootComplex.RbBusBase : SbdfOf(RpPciAddr).Bus;
    for (UINT16 Index = 0; Index < pPortMap->PortCount; Index++) {
        const KYR_PCIE_PORT_MAP_ENTRY& Port = PciePortMapEntries(pPortMap)[Index];
        const PCI_SBDF Where = SbdfOf(Port.RpPciAddr);
        const bool IsTaken =
            IsEveryPort ? Where.Seg == RootComplex.RbSeg && Where.Bus == TargetBus : Port.RpPciAddr == RpPciAddr;
        if (!IsTaken) {
            continue;
        }
        const EFI_STATUS Status = VornPcieErrorScan(pIoHubData, &Port);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR,
                  "%a: ERROR %r from VornPcieErrorScan @ Seg 0x%02x Bus 0x%02x Port %d, skipping to next port...\n",
                  Status, RootComplex.RbSeg, TargetBus, Port.PortNumber);
        }
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmHandlePciErrors(UINT8 SocketId, UINT8 NbioId, UINT8 IohcId, UINT8 Segment, UINT8 BusBase) {
    Trace(Level(), "%a: Socket %d Nbio %d Iohc %d Seg 0x%02x Bus 0x%02x\n", SocketId, NbioId, IohcId, Segment,
          BusBase);
    for (const QUEUE_NODE* pNode = QueueHead(mPrivateDataVornElogPolicyLib.pQueuePciDeviceData); pNode != nullptr;
         pNode = pNode->pNext) {
        auto* pState = static_cast<PCI_DEVICE_STATE*>(pNode->pData);
        const auto& UpstreamData = pState->PcieRootPortData;
        // A record whose root port could not be queued still says which port it is.
        const PCI_SBDF RootPort = SbdfOf(UpstreamData.pPciDeviceStateUpstreamRootPort != nullptr
                                             ? UpstreamData.pPciDeviceStateUpstreamRootPort->PciAddress
                                             : UpstreamData.LogicalBridgePciAddress);
        if (RootPort.Seg == Segment && RootPort.Bus == BusBase) {
            VornElogSmmHandlePciDeviceError(pState);
        }
    }
    return EFI_SUCCESS;
}

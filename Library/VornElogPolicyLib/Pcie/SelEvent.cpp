#include "Library/VornElogPolicyLib/Pcie/SelEvent.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornCperCreateLib/CperSeverity.h"
#include "Library/VornElogBaseLib/PciConfiguration.h"
#include "Library/VornElogChipsetLib/SelPcie.h"
#include "Library/VornElogChipsetLib/SelRegisters.h"
#include "Library/VornElogPolicyLib/Pcie/UnsupportedRequest.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

EFI_STATUS VornElogSmmGetPcieDeviceDataAlreadyLogged(const PCI_DEVICE_STATE* pPciDeviceState,
                                                     PCIE_ALREADY_LOGGED* pAlreadyLogged,
                                                     PCIE_ALREADY_LOGGED_ENTRY** ppEntry) {
    if (pPciDeviceState == nullptr || pAlreadyLogged == nullptr || ppEntry == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    switch (DevicePortTypeOf(*pPciDeviceState)) {
        case PcieEndpoint:
        case PcieLegacyEndpoint:
            *ppEntry = &pAlreadyLogged->Endpoint;
            return EFI_SUCCESS;
        case PcieRootPort:
            *ppEntry = &pAlreadyLogged->RootPort;
            return EFI_SUCCESS;
        case PcieSwitchDownstreamPort:
            *ppEntry = &pAlreadyLogged->SwitchDownstreamPort;
            return EFI_SUCCESS;
        default:
            Trace(DEBUG_ERROR, "%a: ERROR PCIe device type not recognized\n");
            *ppEntry = nullptr;
            return EFI_NOT_FOUND;
    }
}

void LogVendorDeviceId(const PCI_DEVICE_STATE& PciDeviceState) {
    ElogLogRegisterInfo(PCI_VENDOR_ID, CapturedRegister32(PciDeviceState.PciHeader, PCI_VENDOR_ID));
}

void LogRootPortDataOnce(const PCI_DEVICE_STATE& PciDeviceState, PCIE_ALREADY_LOGGED* pAlreadyLogged) {
    const auto& RootPort = PciDeviceState.PcieRootPortData;
    if (pAlreadyLogged->RootPortData != FALSE || RootPort.IoHubDataValid == FALSE) {
        return;
    }
    VornElogLogPcieRootPortData(&RootPort.IoHubData, RootPort.LogicalBridgePciAddress,
                                RootPort.PhysicalBridgePciAddress);
    pAlreadyLogged->RootPortData = TRUE;
}

static bool AreGiven(const void* const (&Arguments)[8], const CHAR8* Caller) {
    for (const void* Argument : Arguments) {
        if (Argument == nullptr) {
            TraceAs(Caller, DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
            return false;
        }
    }
    return true;
}

// The event that the severities of everything handled at the function give. Classes that those do not know, such as
// an unsupported request alone, leave the record's own.
static void DeriveEvent(const CPER_RECORD& Cper, const PCI_DEVICE_STATE& State,
                        const PCI_SLOT_NUMBER_DATA& SlotNumberData, PCIE_SEL_DATA* pSelData, const CHAR8* Caller) {
    UINT16 HeaderSeverity = CperSeverityUnset;
    UINT16 DescriptorSeverity = CperSeverityUnset;
    const EFI_STATUS Status = VornCperGetHighestCperSeverityAllPcieOrCxlErrors(
        mPrivateDataVornElogPolicyLib.SerDbgLevelDetailed, &State, &HeaderSeverity, &DescriptorSeverity);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornCperGetHighestCperSeverityAllPcieOrCxlErrors\n", Status);
    }
    const UINT32 Severity = DescriptorSeverity == CperSeverityUnset ? Cper.Descriptor.Severity : DescriptorSeverity;
    pSelData->Sbdf = SbdfOf(State.PciAddress);
    ElogGetSelPcieEventSeverity(Severity, &pSelData->Severity);
    ElogGetPcieEventType(State.Cxl.IsCxl, &SlotNumberData, &pSelData->EventType);
}

static void LogEventOf(PCI_SBDF Sbdf, const PCIE_SEL_DATA& SelData, const PCI_SLOT_NUMBER_DATA& SlotNumberData) {
    ElogLogPcieOrCxlAnyEvent(Sbdf.Seg, Sbdf.Bus, Sbdf.Dev, Sbdf.Func, SelData.Severity, SelData.EventType,
                             &SlotNumberData);
}

// Of a function that was not captured: nothing when it does not answer. The port must not take the question for a new
// error, which would raise the SMI again for as long as nobody is there.
static void LogLiveVendorDeviceId(const PCI_DEVICE_STATE& RootPort, PCI_SBDF Sbdf) {
    BOOLEAN IsReportingEnabled = FALSE;
    BOOLEAN IsUnmasked = FALSE;
    BOOLEAN IsAdvisoryUnmasked = FALSE;
    VornElogSuppressUnsupportedRequest(&RootPort, &IsReportingEnabled, &IsUnmasked, &IsAdvisoryUnmasked);
    const UINT16 VendorId = PciSegmentRead16(PciFunctionAddress(Sbdf, PCI_VENDOR_ID));
    if (VendorId != PCI_VENDOR_ID_ABSENT) {
        const UINT16 DeviceId = PciSegmentRead16(PciFunctionAddress(Sbdf, PCI_DEVICE_ID));
        ElogLogRegisterInfo(PCI_VENDOR_ID, static_cast<UINT32>(DeviceId) << 16 | VendorId);
    }
    VornElogRestoreUnsupportedRequest(&RootPort, IsReportingEnabled, IsUnmasked, IsAdvisoryUnmasked);
}

// The device below a root port that has one bus below it; that is where a slot's card sits.
static bool GetDeviceBelow(const PCI_DEVICE_STATE& RootPort, PCI_SBDF* pSbdf) {
    const UINT8 Secondary = RootPort.PciHeader[PCI_SECONDARY_BUS_NUMBER];
    *pSbdf = {SbdfOf(RootPort.PciAddress).Seg, Secondary, 0, 0};
    // An event collector has no buses, and a port that was given none has nothing below it.
    return RootPort.Pcie.Characteristics.IsRootPort != FALSE && Secondary != 0 &&
           Secondary == RootPort.PciHeader[PCI_SUBORDINATE_BUS_NUMBER];
}

void VornElogSmmPostProcessErrorRecordPcieOrCxlRootPort(
    const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData,
    const PCI_DEVICE_STATE* pPciDeviceState, PCIE_SEL_DATA* pSelData, const PCI_SLOT_NUMBER_DATA* pSlotNumberData,
    EFI_STATUS* pSelStatus, PCIE_ALREADY_LOGGED* pAlreadyLogged, BOOLEAN* pIsPostProcessingRequired) {
    if (!AreGiven({pCper, pChipsetSupportData, pPciDeviceState, pSelData, pSlotNumberData, pSelStatus, pAlreadyLogged,
                   pIsPostProcessingRequired},
                  __func__)) {
        return;
    }
    DeriveEvent(*pCper, *pPciDeviceState, *pSlotNumberData, pSelData, __func__);
    // An event collector has no entry: each of its records is sent.
    PCIE_ALREADY_LOGGED_ENTRY NoEntry{};
    PCIE_ALREADY_LOGGED_ENTRY* pEntry = nullptr;
    if (EFI_ERROR(VornElogSmmGetPcieDeviceDataAlreadyLogged(pPciDeviceState, pAlreadyLogged, &pEntry))) {
        pEntry = &NoEntry;
    }
    PCI_SBDF Below;
    if (GetDeviceBelow(*pPciDeviceState, &Below)) {
        if (pEntry->PcieEvent == FALSE) {
            LogEventOf(Below, *pSelData, *pSlotNumberData);
        }
        if (pEntry->VendorDeviceId == FALSE) {
            LogLiveVendorDeviceId(*pPciDeviceState, Below);
            pEntry->VendorDeviceId = TRUE;
        }
    }
    if (pEntry->PcieEvent == FALSE) {
        LogEventOf(pSelData->Sbdf, *pSelData, *pSlotNumberData);
        pEntry->PcieEvent = TRUE;
        *pSelStatus = EFI_SUCCESS;
        *pIsPostProcessingRequired = TRUE;
    }
    LogRootPortDataOnce(*pPciDeviceState, pAlreadyLogged);
}

void VornElogSmmPostProcessErrorRecordPcieOrCxlDsDevice(
    const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData,
    const PCI_DEVICE_STATE* pPciDeviceState, PCIE_SEL_DATA* pSelData, const PCI_SLOT_NUMBER_DATA* pSlotNumberData,
    EFI_STATUS* pSelStatus, PCIE_ALREADY_LOGGED* pAlreadyLogged, BOOLEAN* pIsPostProcessingRequired) {
    if (!AreGiven({pCper, pChipsetSupportData, pPciDeviceState, pSelData, pSlotNumberData, pSelStatus, pAlreadyLogged,
                   pIsPostProcessingRequired},
                  __func__)) {
        return;
    }
    DeriveEvent(*pCper, *pPciDeviceState, *pSlotNumberData, pSelData, __func__);
    LogEventOf(pSelData->Sbdf, *pSelData, *pSlotNumberData);
    *pSelStatus = EFI_SUCCESS;
    *pIsPostProcessingRequired = TRUE;
    LogVendorDeviceId(*pPciDeviceState);
    LogRootPortDataOnce(*pPciDeviceState, pAlreadyLogged);
}

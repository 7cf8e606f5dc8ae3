// The event log records that name the function of a PCIe or CXL error.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"
#include "Include/PciDeviceState.h"

// The event of a record: which function reports it, and how events name it.
struct PCIE_SEL_DATA {
    PCI_SBDF Sbdf;
    UINT32 Severity;   // SelSeverity
    UINT32 EventType;  // SelDeviceClass
};

// What one post-processing run has already sent. An entry for each kind of port that events are sent of.
struct PCIE_ALREADY_LOGGED_ENTRY {
    UINT8 VendorDeviceId;
    UINT8 ChipsetEvent;  // of a containment event
    UINT8 PcieEvent;
    UINT8 Reserved3[2];
};
struct PCIE_ALREADY_LOGGED {
    UINT8 RootPortData;  // which root complex and root port
    PCIE_ALREADY_LOGGED_ENTRY RootPort;
    PCIE_ALREADY_LOGGED_ENTRY SwitchDownstreamPort;
    PCIE_ALREADY_LOGGED_ENTRY Endpoint;
};
KYR_RECORD(PCIE_ALREADY_LOGGED, 16);
KYR_FIELD(PCIE_ALREADY_LOGGED, RootPort, 1);
KYR_FIELD(PCIE_ALREADY_LOGGED, SwitchDownstreamPort, 6);
KYR_FIELD(PCIE_ALREADY_LOGGED, Endpoint, 11);
KYR_FIELD(PCIE_ALREADY_LOGGED_ENTRY, PcieEvent, 2);

// The entry for the function's port type. EFI_INVALID_PARAMETER: a NULL pointer; EFI_NOT_FOUND, with *ppEntry NULL:
// a port type without one.
EFI_STATUS VornElogSmmGetPcieDeviceDataAlreadyLogged(const PCI_DEVICE_STATE* pPciDeviceState,
                                                     PCIE_ALREADY_LOGGED* pAlreadyLogged,
                                                     PCIE_ALREADY_LOGGED_ENTRY** ppEntry);

// Sends vendor and device ID of a captured function as the configuration register at offset 0.
void LogVendorDeviceId(const PCI_DEVICE_STATE& PciDeviceState);

// Sends which root complex and root port the function lies under, once a run.
void LogRootPortDataOnce(const PCI_DEVICE_STATE& PciDeviceState, PCIE_ALREADY_LOGGED* pAlreadyLogged);

// Events of a root port or event collector, and of any other function. pSelData: filled with the event that the
// severities give. pSelStatus: EFI_SUCCESS once an event went out; left alone otherwise.
// pIsPostProcessingRequired: set when an event went out.
void VornElogSmmPostProcessErrorRecordPcieOrCxlRootPort(
    const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData,
    const PCI_DEVICE_STATE* pPciDeviceState, PCIE_SEL_DATA* pSelData, const PCI_SLOT_NUMBER_DATA* pSlotNumberData,
    EFI_STATUS* pSelStatus, PCIE_ALREADY_LOGGED* pAlreadyLogged, BOOLEAN* pIsPostProcessingRequired);
void VornElogSmmPostProcessErrorRecordPcieOrCxlDsDevice(
    const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData,
    const PCI_DEVICE_STATE* pPciDeviceState, PCIE_SEL_DATA* pSelData, const PCI_SLOT_NUMBER_DATA* pSlotNumberData,
    EFI_STATUS* pSelStatus, PCIE_ALREADY_LOGGED* pAlreadyLogged, BOOLEAN* pIsPostProcessingRequired);

// What the event log records of one error have in common.
#pragma once

#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"

// The event of a record: which function reports it, and how events name it.
struct PCIE_SEL_DATA {
    PCI_SBDF Sbdf;
    UINT32 Severity;   // SelSeverity
    UINT32 EventType;  // SelDeviceClass
};

// Sends vendor and device ID of a captured function as the configuration register at offset 0.
void LogVendorDeviceId(const PCI_DEVICE_STATE& PciDeviceState);

// Sends which root complex and root port the function lies under, once a run.
void LogRootPortDataOnce(const PCI_DEVICE_STATE& PciDeviceState, PCIE_ALREADY_LOGGED* pAlreadyLogged);

// Clearing of error status on live registers, where the flags of a captured function ask for it. Masks and
// severities are those of the capture. Level: debug level of the trace.
// EFI_INVALID_PARAMETER: a NULL pointer. EFI_SUCCESS also where there is nothing to clear.
#pragma once

#include "Include/PciDeviceState.h"

// Clears the PCIe status of a function: AER, lanes, link, device, PME, containment, and the CXL protocol status of a
// CXL function. A legacy PCI function is left alone.
EFI_STATUS VornElogClearPcieDeviceStatus(const PCI_DEVICE_STATE* pPciDeviceState, UINT64 DebugLevel);

// Clears Status and Secondary Status where LegacyPci.Clear asks for it. An unsupported request may have made the
// bridges above the function signal a system error: those are cleared too, and so are their queued records.
EFI_STATUS VornElogClearLegacyPciDeviceStatus(const PCI_DEVICE_STATE* pPciDeviceState, UINT64 DebugLevel);

// Releases the port's link from containment. EFI_UNSUPPORTED: the port has no DPC capability.
EFI_STATUS VornElogClearPcieDpc(const PCI_DEVICE_STATE* pPciDeviceState, UINT64 DebugLevel);

// Clears what stops the root port from raising its SMI again. EFI_INVALID_PARAMETER also for a function that is
// neither root port nor event collector; EFI_UNSUPPORTED: it has no AER capability.
EFI_STATUS VornElogClearPcieAerRootPortErrorStatus(const PCI_DEVICE_STATE* pPciDeviceStatePcieRootPort,
                                                   UINT64 DebugLevel);

// Clears the CXL protocol status; unlike AER's, masked bits stay. EFI_UNSUPPORTED: the function has no CXL RAS
// capability.
EFI_STATUS VornElogClearCxlProtocol(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                    const PCI_DEVICE_STATE* pPciDeviceState, UINT64 DebugLevel);

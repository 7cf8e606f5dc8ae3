// How the photograph of a PCI function is taken.
#pragma once

#include "Include/PciDeviceState.h"

// Fills a record whose PciAddress the caller has set: where the function hangs, its header and its capabilities.
// EFI_INVALID_PARAMETER: a NULL pointer. EFI_SUCCESS also for a function without the PCI Express capability and
// where AER, DPC, SFI or CXL registers are missing.
EFI_STATUS VornElogGetPciDeviceState(const IO_HUB_DATA* pIoHubData, const KYR_PCIE_PORT_MAP_ENTRY* pPortMapEntry,
                                     PCI_DEVICE_STATE* pPciDeviceState);

// Fills and classifies a record whose PciAddress and upstream root port the caller has set, keeps the port of a
// containment event and queues a copy: of ports that others link to always, of other functions when there is
// something to handle. The record stays the caller's.
// The status of the fill or of the queue.
EFI_STATUS VornElogSmmGetPciDeviceState(const IO_HUB_DATA* pIoHubData, const KYR_PCIE_PORT_MAP_ENTRY* pPortMapEntry,
                                        PCI_DEVICE_STATE* pPciDeviceState);

// The photographs of PCI functions: how one is taken, the queue that keeps those of an SMI, and what is looked up
// by them.
#pragma once

#include "Include/PciDeviceState.h"
#include "Platform/Base.h"

// The last port at which a containment event was found, until the event's handling consumes it.
extern BOOLEAN DpcTriggerIoHubDataValid;
extern IO_HUB_DATA DpcTriggerIoHubData;
extern BOOLEAN DpcTriggerPortMapEntryValid;
extern KYR_PCIE_PORT_MAP_ENTRY DpcTriggerPortMapEntry;

// Zeroes the four.
void ClearDpcTriggerSlot();

// Takes one zeroed record from the SMM pool; the caller frees it.
// EFI_INVALID_PARAMETER: ppPciDeviceState is NULL; the pool's status, with *ppPciDeviceState NULL.
EFI_STATUS VornElogSmmAllocatePciDeviceStateMemory(PCI_DEVICE_STATE** ppPciDeviceState);

// Gives the record back. The caller's pointer stays as it is.
// EFI_INVALID_PARAMETER: ppPciDeviceState or *ppPciDeviceState is NULL; the pool's status.
EFI_STATUS VornElogSmmFreePciDeviceStateMemory(PCI_DEVICE_STATE** ppPciDeviceState);

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

// Finds the oldest queued record of a function; it stays the queue's.
// EFI_INVALID_PARAMETER: ppPciDeviceState is NULL; EFI_NOT_FOUND: none, *ppPciDeviceState is not written.
EFI_STATUS VornElogRetrievePciDeviceState(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                          PCI_DEVICE_STATE** ppPciDeviceState);

// Empties the queue at the end of an SMI. The queue's status, which is traced.
EFI_STATUS VornElogSmmClearPciDeviceStatusQueue();

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

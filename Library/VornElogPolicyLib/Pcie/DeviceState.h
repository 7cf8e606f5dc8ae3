// The photographs of PCI functions: their memory, the queue that keeps those of an SMI, and the port of the last
// containment event.
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

// Finds the oldest queued record of a function; it stays the queue's.
// EFI_INVALID_PARAMETER: ppPciDeviceState is NULL; EFI_NOT_FOUND: none, *ppPciDeviceState is not written.
EFI_STATUS VornElogRetrievePciDeviceState(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                          PCI_DEVICE_STATE** ppPciDeviceState);

// Empties the queue at the end of an SMI. The queue's status, which is traced.
EFI_STATUS VornElogSmmClearPciDeviceStatusQueue();

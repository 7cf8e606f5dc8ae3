// The platform's PCI slots.
#pragma once

#include "Include/PciDeviceState.h"
#include "Platform/Base.h"

// Called when the PCI slot data protocol is installed; keeps its interface in the private data.
// EFI_SUCCESS, or the status of the locate: there are no slot numbers then.
EFI_STATUS RetrieveVornPciSlotDataSmmProtocol(const EFI_GUID* Protocol, void* Interface, EFI_HANDLE Handle);

// Which slot or drive bay the function sits in. The data is zeroed first.
// EFI_INVALID_PARAMETER: pSlotNumberData is NULL; EFI_NOT_READY: no slot data protocol; the protocol's status.
EFI_STATUS VornElogSmmGetPcieSlotData(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                      PCI_SLOT_NUMBER_DATA* pSlotNumberData);

// The same for records: zeros where there is none, which is traced in the name of Caller.
PCI_SLOT_NUMBER_DATA SlotDataOf(const PCI_SBDF& Where, const CHAR8* Caller = __builtin_FUNCTION());

// VornElogSmmGetPcieSlotData, and prints what was found.
EFI_STATUS VornElogSmmGetPciSlotData(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                     PCI_SLOT_NUMBER_DATA* pSlotNumberData);

// Prints slot data. EFI_INVALID_PARAMETER: pSlotNumberData is NULL.
EFI_STATUS VornElogDisplayPciSlotNumberData(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                            const PCI_SLOT_NUMBER_DATA* pSlotNumberData);

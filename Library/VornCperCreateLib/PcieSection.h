// The record of a PCI function with a PCI Express error section (UEFI 2.10, appendix N.2.7).
#pragma once

#include "Include/Cper.h"
#include "Include/PciDeviceState.h"

// Bytes of the section and of the record.
UINT64 VornCperGetPcieSectionLength();
UINT64 VornCperGetPcieRecordLength();

// The slot number field of PCIe and CXL sections; 0 where the slot is not known.
UINT16 VornCperGetSlotNumber(const PCI_SLOT_NUMBER_DATA& SlotNumberData);

// Fills a zeroed record of CperLength bytes from the function's captured state. The first class that the state marks
// for handling gives the severities and the FRU text; a legacy PCI function is fatal and has no text.
// Level: debug level of the trace. PreviousError: both severities become fatal, and the registers that a reset
// changes are left out.
// EFI_INVALID_PARAMETER: a pointer is NULL. EFI_UNSUPPORTED: a PCIe function that marks nothing for handling.
// EFI_BUFFER_TOO_SMALL: CperLength cannot hold the record. In these cases nothing is written. EFI_SUCCESS.
EFI_STATUS VornCperCreatePcie(UINT64 Level, UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                              const PCI_SLOT_NUMBER_DATA* pSlotNumberData, const PCI_DEVICE_STATE* pPciDeviceState,
                              BOOLEAN PreviousError, UINT32 CperLength, CPER_RECORD* pCper);

// Capture of a function's CXL registers.
#pragma once

#include "Include/PciDeviceState.h"

// Fills the CXL group of a record whose PciHeader and PCIe characteristics are filled.
// EFI_INVALID_PARAMETER for a NULL record; EFI_UNSUPPORTED when the function has no CXL component registers or no RAS
// capability, the CXL group stays empty then; the status of reading the serial number when that fails; EFI_SUCCESS.
EFI_STATUS VornElogGetCxlDeviceState(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, PCI_DEVICE_STATE* pPciDeviceState);

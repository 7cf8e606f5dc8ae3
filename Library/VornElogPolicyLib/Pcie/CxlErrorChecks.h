// Errors that a CXL function's RAS capability and its event logs show (CXL 3.0, sections 8.2.4.16 and 8.2.8.3).
#pragma once

#include "Include/PciDeviceState.h"

// The protocol checks read the error status from the RAS capability and take mask and severity from the record. They
// do nothing for a function without CXL 2.0 registers or whose RAS capability was not located.
// EFI_INVALID_PARAMETER: pPciDeviceState is NULL.

// An uncorrectable protocol error also shows as an internal error in the function's AER registers. Where one is
// found, that bit is taken out of the captured AER status, so that it is not reported twice.
EFI_STATUS VornElogSmmCheckCxlProtocolErrorFatal(PCI_DEVICE_STATE* pPciDeviceState);
EFI_STATUS VornElogSmmCheckCxlProtocolErrorNonFatal(PCI_DEVICE_STATE* pPciDeviceState);

EFI_STATUS VornElogSmmCheckCxlProtocolErrorCorrectable(PCI_DEVICE_STATE* pPciDeviceState);

// Sets the component flags from the captured event status: one severity for each event log that holds records.
EFI_STATUS VornElogSmmCheckCxlComponentErrorStatus(PCI_DEVICE_STATE* pPciDeviceState);

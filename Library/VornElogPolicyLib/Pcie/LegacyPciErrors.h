// Errors that the Status registers of a legacy PCI function show.
#pragma once

#include "Include/PciDeviceState.h"

// Sets the LegacyPci flags from the captured Status register and, of a bridge, Secondary Status register
// (PCI Local Bus 3.0, section 6.2.3). Parity errors of display devices are no errors.
// EFI_INVALID_PARAMETER: pPciDeviceState is NULL.
EFI_STATUS VornElogSmmCheckLegacyPciDeviceErrors(PCI_DEVICE_STATE* pPciDeviceState);

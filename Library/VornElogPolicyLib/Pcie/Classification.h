// What a captured function's error registers mean: for each class of errors whether the hardware shows it, whether
// its status must be cleared and whether it is genuine; and who handles what is.
#pragma once

#include "Include/PciDeviceState.h"

// Sets the Detected, Clear and Handle flags of a record that was just captured, whose flags are all clear. Status
// registers are read from the function; masks, severities, control registers and header logs from the record. Writes
// to the function only where it is a PCIe 1.0 device that answered a probe with an unsupported request, and while it
// sizes base address registers, which it restores.
// EFI_INVALID_PARAMETER: pPciDeviceState is NULL.
EFI_STATUS VornElogSmmIsPciErrorSignaled(PCI_DEVICE_STATE* pPciDeviceState);

// Hands a queued record to the handlers of what its Handle flags say; their failures are traced.
// EFI_INVALID_PARAMETER: pPciDeviceState is NULL.
EFI_STATUS VornElogSmmHandlePciDeviceError(PCI_DEVICE_STATE* pPciDeviceState);

// Switching the error reporting of a PCIe device off after a storm. Nothing switches it on again before the next
// boot.
#pragma once

#include "Include/PciDeviceState.h"

// Legacy PCI errors: nothing is done. RP PIO errors: those that are set are masked, made non-fatal and raise no
// system error. Fatal, non-fatal and correctable errors: their bits in Device Control and, of a root port or root
// complex event collector, Root Control are cleared, of every function of the device when all were counted together.
// Each register is read and written once. EFI_INVALID_PARAMETER: NULL. EFI_UNSUPPORTED: the state shows no legacy or
// PCIe storm, or a capability is missing; what was done before stays. EFI_SUCCESS.
EFI_STATUS VornElogSmmDisablePcieErrorGeneration(const PCI_DEVICE_STATE* pPciDeviceState);

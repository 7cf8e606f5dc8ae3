// Switching the error reporting of a CXL function off after a storm. Nothing switches it on again before the next
// boot.
#pragma once

#include "Include/PciDeviceState.h"

// Masks in the CXL RAS capability the errors that are set: the uncorrectable ones after a fatal or non-fatal storm,
// the correctable ones after a correctable storm. EFI_INVALID_PARAMETER: NULL. EFI_UNSUPPORTED: the state shows no
// CXL protocol storm, or no CXL RAS capability. EFI_SUCCESS.
EFI_STATUS VornElogSmmDisableCxlProtocolErrorGeneration(const PCI_DEVICE_STATE* pPciDeviceState);

// Switches the interrupt of one event log of a CXL memory device off, through its secondary mailbox.
// EventRecordSeverity: 0 informational, 1 warning, 2 failure, 3 fatal.
// EFI_INVALID_PARAMETER: NULL or a severity above 3. EFI_UNSUPPORTED: the state shows no storm of that severity, or
// no CXL memory device with a secondary mailbox. Else the mailbox commands' status.
EFI_STATUS VornElogSmmDisableCxlComponentErrorGeneration(const PCI_DEVICE_STATE* pPciDeviceState,
                                                         UINT32 EventRecordSeverity);

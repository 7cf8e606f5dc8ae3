// Component events of a CXL memory device.
#pragma once

#include "Include/PciDeviceState.h"

// Reads the event logs that DeviceEventStatus names, turns every event into a record for the policy engine and clears
// it in the device. A log whose commands fail is left for a later SMI.
void VornElogSmmHandleCxlComponentError(const PCI_DEVICE_STATE* pPciDeviceState);

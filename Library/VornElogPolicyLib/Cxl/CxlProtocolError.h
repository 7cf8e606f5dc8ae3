// Protocol errors of a CXL port or device.
#pragma once

#include "Include/PciDeviceState.h"

// Builds a CXL protocol error record from a captured function that has a protocol class to handle, and hands it to
// the policy engine.
void VornElogSmmHandleCxlProtocolError(const PCI_DEVICE_STATE* pPciDeviceState);

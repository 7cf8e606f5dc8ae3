// Whether the device below a port was pulled out.
#pragma once

#include "Include/PciDeviceState.h"

// Decides for root ports, event collectors and switch downstream ports and stores the answer in DetectedHotRemoval;
// other functions, and root ports with a switch below them, show no removal. Of a switch downstream port it also
// stores whether it belongs to the platform's NVMe switch, and that switch's operating mode. FALSE for NULL.
BOOLEAN VornElogSmmCheckPcieHotRemoval(PCI_DEVICE_STATE* pPciDeviceState);

// The rule itself, on the captured slot and link registers. FALSE for NULL.
BOOLEAN VornElogSmmCheckHotRemoval(const PCI_DEVICE_STATE* pPciDeviceState);

// The same rule, on the function's registers as they are now. FALSE for a function without the PCI Express
// capability.
BOOLEAN VornElogSmmCheckPcieHotRemovalRegisterBased(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func);

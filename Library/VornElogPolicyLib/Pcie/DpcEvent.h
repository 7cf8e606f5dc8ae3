// Downstream port containment (PCI Express Base 6.0, section 6.2.11): recognising an event, who recovers from it, and
// what is done at once.
#pragma once

#include "Include/PciDeviceState.h"

// Whether the OS has taken over containment for this port.
BOOLEAN IsDpcAwareOs(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func);

// Sets the DPC flags from the captured registers. A port whose trigger or whose ERR_COR signalling is off has no
// event. EFI_INVALID_PARAMETER: pPciDeviceState is NULL. EFI_UNSUPPORTED: no DPC capability.
EFI_STATUS VornElogSmmCheckPcieErrorDpc(PCI_DEVICE_STATE* pPciDeviceState);

// Handles the event of a captured port: releases the containment unless the OS drives the recovery, counts the event,
// tells the ACPI code and hands a record to the policy engine. Failures are traced, and what does not depend on them
// is done all the same.
void VornElogSmmHandlePcieDpcEvent(PCI_DEVICE_STATE* pPciDeviceState);

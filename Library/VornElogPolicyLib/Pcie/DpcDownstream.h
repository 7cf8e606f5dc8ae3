// What the devices below a contained port have to tell once they answer again, and the check that the OS asks for
// after a recovery.
#pragma once

#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"

// Logs and clears every function below the port whose AER shows an unmasked uncorrectable error: event, IDs and AER
// registers, once per run. Returns TRUE when an event went to the event log.
BOOLEAN VornElogSmmCheckAndLogPcieDpcDownstream(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                                BOOLEAN IsSoftwareDpcRequested, PCIE_ALREADY_LOGGED* pAlreadyLogged);

// Handler of the software SMI that the ACPI code raises after the OS told the outcome of a recovery (_OST): looks at
// every port with an outcome, logs what lies below it, and holds it in containment where it was not recovered.
// EFI_SUCCESS; the status of sending the events.
EFI_STATUS VornElogSmmHandlerPcieDpcCheckDownstream(EFI_HANDLE DispatchHandle, const void* Context, void* CommBuffer,
                                                    UINTN* CommBufferSize);

// The OS asks, through its _DSM, to have a root port prepared for containment that it manages itself.
#pragma once

#include "Platform/Services.h"

// Handler of the software SMI DPC_CFG_IIO_PCIE_ERRCOR_SWSMI. The port is the one that the memory shared with the ACPI
// code names, or the root port above it. EFI_NOT_FOUND: that memory, or the root port, is not there; else the status
// of the first step that fails.
EFI_STATUS VornSmmHandlerPcieDpcConfigIioSmiGeneration(EFI_HANDLE DispatchHandle, const void* Context,
                                                       void* CommBuffer, UINTN* CommBufferSize);

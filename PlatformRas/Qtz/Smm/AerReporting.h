// How a root port's errors reach the firmware: hot-plug surprise handed over to containment, and the routing of
// corrected errors.
#pragma once

#include "Platform/Base.h"

// Prepares a root port for containment that the OS manages: a port that is hot-plug capable loses its Hot-Plug
// Surprise capability, every port reports surprise down. RpPciAddr: PackedPciAddress. Enable must be TRUE: nothing
// takes the preparation back before the next reset.
// EFI_UNSUPPORTED: Enable is FALSE, or the function has no PCI Express capability. EFI_NOT_FOUND: no IO hub has the
// port.
EFI_STATUS EdrDsmDpcEnReqFromOs(UINT32 RpPciAddr, BOOLEAN Enable);

// Makes the internal and external corrected errors of a root port raise SMIs. PortIndex: the port's number in the
// platform's port map; RpPciAddr: PackedPciAddress.
// EFI_UNSUPPORTED: a processor family whose registers are not known. EFI_NOT_FOUND: no IO hub decodes the port's bus.
// EFI_INVALID_PARAMETER: the hub has no such port.
EFI_STATUS ReConfigAerReportingPath(UINT8 PortIndex, UINT32 RpPciAddr);

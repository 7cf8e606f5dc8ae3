// The platform's map of root ports, and the root complex that a port belongs to.
#pragma once

#include "Include/PciDeviceState.h"
#include "Include/Topology.h"

// The map; NULL until the platform has made it.
const KYR_PCIE_PORT_MAP* GetPciePortMap();

// The map's entry of a root port; NULL when there is none. RpPciAddr: PackedPciAddress.
const KYR_PCIE_PORT_MAP_ENTRY* FindPciePortMapEntry(UINT32 RpPciAddr);

// How a root complex of the bus map is named from here on.
IO_HUB_DATA IoHubDataOf(const RB_BUS_ENTRY& Entry);

// The root complex on whose root bus a root port lies. False, with nothing written, when the bus map has none.
bool FindIoHubOfRootPort(UINT32 RpPciAddr, IO_HUB_DATA* pIoHubData);

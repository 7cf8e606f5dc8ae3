// The platform's active root ports, and which of them a function hangs below.
#pragma once

#include "Include/Layout.h"
#include "Include/NbioRegisters.h"
#include "Include/Topology.h"

inline constexpr UINT16 MAX_ACTIVE_ROOT_PORTS = MAX_SOCKETS * MAX_IO_HUBS * IOHC_PORTS_TWO_CORES;

struct ACTIVE_PCIE_ROOT_PORT_MAP {
    UINT16 Count;
    UINT32 RpPciAddr[MAX_ACTIVE_ROOT_PORTS];  // PackedPciAddress, in the order of the port map
};
KYR_RECORD(ACTIVE_PCIE_ROOT_PORT_MAP, 4 + 4 * MAX_ACTIVE_ROOT_PORTS);

// The map, built from the platform's port map as soon as that is ready; empty before. Never NULL.
const ACTIVE_PCIE_ROOT_PORT_MAP* VornGetActivePcieRootPortMap();

// The root port above a function, or the function itself when it is an active root port. All three answers are 0xFF
// when there is none. The pointers must not be NULL.
void VornGetRootPortBDF(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT8* pRpBus, UINT8* pRpDev, UINT8* pRpFunc);

// Whether the bus lies in the root port's secondary-to-subordinate range, read from the port.
BOOLEAN VornCheckBusInRootPort(UINT8 Seg, UINT8 RpBus, UINT8 RpDev, UINT8 RpFunc, UINT8 Bus);

// Where the registers of a root port lie in the IO hubs: from its PCI address over the data fabric to hub, PCIe core
// and port. Addresses of registers: Include/NbioRegisters.h.
#pragma once

#include "Include/Topology.h"

// One IO hub as the data fabric and the bus map tell it.
struct NBIO_HUB {
    UINT8 Socket;
    UINT8 Iom;          // 0 to 7 within the socket
    UINT8 NbioRbIndex;  // 0 to 7: even IOHCs first, then the odd ones, each in the order of their NBIO
    UINT32 SegBus;      // for SMN accesses
};

// A port of a PCIe core.
struct NBIO_PORT_INFO {
    UINT8 PortIndex;        // within the IOHC
    UINT8 PortNumber;       // within the core
    UINT32 SegBus;          // for SMN accesses
    UINT32 HwInitLockAddr;  // SMN address of the HWINIT lock register
};

// The IO hub that decodes the bus of a function, by the data fabric's bus ranges.
// RpPciAddr: PackedPciAddress. EFI_INVALID_PARAMETER: pHub is NULL. EFI_NOT_FOUND: no IO hub decodes the bus, or the
// bus map does not have the hub.
EFI_STATUS FindNbioHubOfBus(UINT64 DebugLevel, UINT32 RpPciAddr, NBIO_HUB* pHub);

// Number of the PCIe core, within its NBIO, that a port of an IOHC belongs to. Iom 0 to 7; PortIndex below
// IohcPortCount(Iom).
UINT8 PcieCoreOfPort(UINT8 Iom, UINT8 PortIndex);

// Finds hub, core and port of a root port: the port of the IOHC whose bridge map names the root port's device and
// function. EFI_INVALID_PARAMETER: a NULL pointer. EFI_NOT_FOUND: no IO hub decodes the bus, or no port of it is
// that bridge. The outputs are written on success only.
EFI_STATUS ConvertRpPciAddrToNbioWrapperPort(UINT32 RpPciAddr, UINT8* pIom, UINT8* pPcieCoreNumInNbio,
                                             NBIO_PORT_INFO* pPortInfo);

// SMN address of a PCIe core's control register, and of its first port's error control register. Iom 0 to 7;
// PcieCoreNumInNbio 0, 1, 2, 3 or 5. 0 for anything else.
UINT32 GetPcieCtrlSmnAddr(UINT8 Iom, UINT8 PcieCoreNumInNbio);
UINT32 GetPcieErrCtrlSmnAddr(UINT8 Iom, UINT8 PcieCoreNumInNbio);

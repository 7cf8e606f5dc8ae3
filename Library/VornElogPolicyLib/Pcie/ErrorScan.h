// The scan of a root complex: every function below its root ports is photographed, classified and cleared.
#pragma once

#include "Include/PciDeviceState.h"
#include "Platform/Base.h"

inline constexpr UINT32 SCAN_ALL_ROOT_PORTS = 0xFFFFFFFF;

// Scans the root ports of a root complex, or one of them.
// IndexOfRbBusMap: its entry of mRbBusMap; RpPciAddr: SCAN_ALL_ROOT_PORTS or a packed address (PackedPciAddress).
// EFI_NOT_FOUND: the platform has no port map yet. EFI_SUCCESS: a port that fails is traced and the next one follows.
EFI_STATUS PcieErrorScanHelper(UINT8 IndexOfRbBusMap, const IO_HUB_DATA* pIoHubData, UINT32 RpPciAddr);

// Scans one root port and all that is below it; the functions below are cleared top to bottom, the root port last.
// EFI_INVALID_PARAMETER: a NULL pointer; the allocation's status when the root port's record cannot be had; else the
// status of the last step.
EFI_STATUS VornPcieErrorScan(const IO_HUB_DATA* pIoHubData, const KYR_PCIE_PORT_MAP_ENTRY* pPortMapEntry);

// Hands every queued record of one root complex, oldest first, to VornElogSmmHandlePciDeviceError; what becomes of
// one does not stop the others. EFI_SUCCESS.
EFI_STATUS VornElogSmmHandlePciErrors(UINT8 SocketId, UINT8 NbioId, UINT8 IohcId, UINT8 Segment, UINT8 BusBase);

// Where things are: IO hubs in the root-bridge bus map, IO links and IO stops in the data fabric, and the
// index that a bank's instance ID stands for. Lookups are linear from the front and take the first match;
// outputs change only on success.
#pragma once

#include "Include/Topology.h"
#include "Platform/Services.h"

// Fabric instance IDs of the IO stops, one for each physical IO hub: the first stands for IO hub (IOM) 0.
inline constexpr UINT8 FIRST_IOS_INSTANCE = 0x28;
inline constexpr UINT8 LAST_IOS_INSTANCE = FIRST_IOS_INSTANCE + MAX_IO_HUBS - 1;
inline constexpr UINT8 NO_IOS_INSTANCE = 0xFF;

// Finds the fabric register service. EFI_SUCCESS, or the status of the locate: fabric registers read all ones
// then.
EFI_STATUS FabricTopologyLibConstructor(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

// Reads a data-fabric register. Function below 8; Offset in bytes, below 0x2000 and a multiple of 4; Instance a
// fabric instance ID or FABRIC_INSTANCE_BROADCAST. An absent instance reads all ones.
UINT32 FabricRegisterAccRead(UINTN Socket, UINTN Die, UINTN Function, UINTN Offset, UINTN Instance);

// Base bus and PCI segment of IO hub IoS (0 to 8) of a socket; Reserved is ignored.
// EFI_INVALID_PARAMETER for a NULL pointer or IoS above 8; EFI_NOT_FOUND; EFI_SUCCESS.
EFI_STATUS AcquireIoHubSSecSegBusNum(const RB_BUS_MAP* RbBusMap, UINT8 Socket, UINT8 Reserved, UINT8 IoS, UINT8* Bus,
                                     UINT8* Segment);

// Index of the map entry of a socket's physical IO hub (0 to 7).
// EFI_INVALID_PARAMETER for a NULL pointer, Socket above 1 or PhysicalIom above 7; EFI_NOT_FOUND; EFI_SUCCESS.
EFI_STATUS GetIndexByIomFromRbBusMap(const RB_BUS_MAP* RbBusMap, UINT8 Socket, UINT8 PhysicalIom, UINT8* Index);

// Bus number of an IO link (0 or 1) of a data-fabric node (0 to 7), read from the fabric.
// EFI_INVALID_PARAMETER for a NULL pointer, an argument out of range or a node that is not there; EFI_SUCCESS.
EFI_STATUS AcquireNbioSecBusNum(UINT8 DfNode, UINT8 IoLink, UINT8* Bus);

// Fabric instance ID of the IO stop with that fabric ID, NO_IOS_INSTANCE when there is none. The first form serves
// root ports and traces the register at DebugLevel; the second serves CXL.
UINT8 GetIosInstanceIdFromFabricId(UINT64 DebugLevel, UINT32 FabricId);
UINT8 GetIosInstanceIdFromFabricId(UINT32 FabricId);

// Index that the bank's instance ID in McaIpid stands for: UMC channel, NBIO or PCIe core; 0xFF when unknown.
UINT8 RasMcaIpidToInstanceIndex(UINT64 McaIpid);

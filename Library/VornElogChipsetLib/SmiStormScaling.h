// How much longer the storm check remembers PCIe and CXL records: the boot firmware hands the number of the system's
// CXL endpoints over, once.
#pragma once

#include "Include/Layout.h"
#include "Platform/Services.h"

#pragma pack(push, 1)
struct SMI_STORM_SCALING_COMM_DATA {
    UINT8 Reserved0;
    UINT32 CxlEndpointDevCntSystemWide;
};
KYR_RECORD(SMI_STORM_SCALING_COMM_DATA, 5);
KYR_FIELD(SMI_STORM_SCALING_COMM_DATA, CxlEndpointDevCntSystemWide, 1);
#pragma pack(pop)

// SMI handler on gVornRasDxeSmiStormScalingDataHoistToSmram: keeps a copy of the count and unregisters itself.
// CommBuffer: SMI_STORM_SCALING_COMM_DATA, pCommBufferSize its bytes. EFI_INVALID_PARAMETER, and nothing kept, for a
// buffer that is NULL, too short or not wholly outside SMRAM; the pool's status when no copy could be made (the
// handler stays registered then); else the status of the unregistration.
EFI_STATUS VornGetSmiStormThresholdScalingData(EFI_HANDLE DispatchHandle, const void* Context, void* CommBuffer,
                                               UINTN* pCommBufferSize);

// Registers and takes back the handler; the latter does nothing when it does not stand. Caller: whose trace it is.
// The status of that.
EFI_STATUS RegisterSmiStormScalingHandler(const CHAR8* Caller = __builtin_FUNCTION());
EFI_STATUS UnregisterSmiStormScalingHandler(const CHAR8* Caller = __builtin_FUNCTION());

// The number of CXL endpoints; 0 before it was handed over.
UINT32 CxlEndpointDevCntSystemWide();

// Module globals that more than one floor reads. They are set once while the driver starts.
#pragma once

#include "Include/PlatformApeiData.h"
#include "Include/Topology.h"
#include "Platform/Protocol/RasService.h"
#include "Platform/Services.h"

extern EFI_SMM_SYSTEM_TABLE2* gSmst;  // never NULL: a table that refuses everything until the real one is found
extern EFI_BOOT_SERVICES* gBS;

extern KYR_PLATFORM_APEI_DATA* mPlatformApeiData;
extern RB_BUS_MAP* mRbBusMap;  // taken from the platform APEI data; read-only to the driver
extern KYR_RAS_SERVICE_SMM_PROTOCOL* mKyrRasServiceSmmProtocol;
extern KYR_RAS_POLICY* mpKyrRasPolicy;  // RAS initialisation data with the CPU map

// The PSP mailbox reserved for SMM; both NULL where the platform has none.
extern UINT8* mPspMboxSmmBuffer;
extern UINT8* mPspMboxSmmFlagAddr;

#include "Library/RasLib/Globals.h"

#include "Platform/State.h"

KYR_STATE KYR_PLATFORM_APEI_DATA* mPlatformApeiData = nullptr;
KYR_STATE RB_BUS_MAP* mRbBusMap = nullptr;
KYR_STATE KYR_RAS_SERVICE_SMM_PROTOCOL* mKyrRasServiceSmmProtocol = nullptr;
KYR_STATE KYR_RAS_POLICY* mpKyrRasPolicy = nullptr;

KYR_STATE UINT8* mPspMboxSmmBuffer = nullptr;
KYR_STATE UINT8* mPspMboxSmmFlagAddr = nullptr;

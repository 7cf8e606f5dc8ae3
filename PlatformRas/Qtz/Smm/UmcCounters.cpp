#include "PlatformRas/Qtz/Smm/UmcCounters.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS VornGetUmcCeccErrorCounterDelta(UINT64, const KYR_CHIPSET_SUPPORT_DATA*, UmcCeccPfaThresholdData*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

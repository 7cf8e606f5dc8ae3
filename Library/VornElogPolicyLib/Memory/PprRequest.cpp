#include "Library/VornElogPolicyLib/Memory/PprRequest.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS VornElogSmmRequestPpr(KYR_CHIPSET_SUPPORT_DATA*, UINT16) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

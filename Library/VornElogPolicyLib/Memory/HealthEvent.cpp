#include "Library/VornElogPolicyLib/Memory/HealthEvent.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS VornElogSmmProcessMemoryHealthEventHostEcc(const KYR_CHIPSET_SUPPORT_DATA*, UINT8) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

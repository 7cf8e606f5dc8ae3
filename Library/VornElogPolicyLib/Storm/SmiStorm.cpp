#include "Library/VornElogPolicyLib/Storm/SmiStorm.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS VornElogSmmCheckSmiStorm(const CPER_RECORD*, const KYR_CHIPSET_SUPPORT_DATA*, BOOLEAN*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

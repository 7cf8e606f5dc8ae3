#include "Library/VornElogPolicyLib/Memory/MemoryRecord.h"

#include "Library/RasLib/StandIn.h"

void VornElogSmmProcessErrorRecordMemory(const CPER_RECORD*, KYR_CHIPSET_SUPPORT_DATA*) {
    TraceStandIn();
}

EFI_STATUS VornElogSmmGetMemErrorLocation(const CPER_RECORD*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

void VornElogSmmPostProcessErrorRecordCorrectedMemory(CPER_RECORD*, KYR_CHIPSET_SUPPORT_DATA*, BOOLEAN*) {
    TraceStandIn();
}

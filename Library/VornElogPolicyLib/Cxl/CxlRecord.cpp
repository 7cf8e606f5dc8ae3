#include "Library/VornElogPolicyLib/Cxl/CxlRecord.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS VornElogSmmProcessErrorRecordCxlComponent(const CPER_RECORD*, KYR_CHIPSET_SUPPORT_DATA*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

EFI_STATUS VornElogSmmProcessErrorRecordCxlProtocol(const CPER_RECORD*, KYR_CHIPSET_SUPPORT_DATA*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

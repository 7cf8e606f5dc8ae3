#include "Library/VornElogPolicyLib/Pcie/PcieRecord.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS VornElogSmmProcessErrorRecordPcie(const CPER_RECORD*, KYR_CHIPSET_SUPPORT_DATA*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

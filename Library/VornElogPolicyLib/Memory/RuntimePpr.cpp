#include "Library/VornElogPolicyLib/Memory/RuntimePpr.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS RuntimePprInit() {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

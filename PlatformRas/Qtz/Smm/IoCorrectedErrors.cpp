#include "PlatformRas/Qtz/Smm/IoCorrectedErrors.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS VornConfigureSmiForIoCorrectedErrors() {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

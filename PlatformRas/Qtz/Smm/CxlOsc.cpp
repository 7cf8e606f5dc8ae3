#include "PlatformRas/Qtz/Smm/CxlOsc.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS KyrCxlOscCallback(EFI_HANDLE, const FCH_SMM_SW_REGISTER_CONTEXT*, void*, UINTN*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

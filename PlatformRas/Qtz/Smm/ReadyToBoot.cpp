#include "PlatformRas/Qtz/Smm/ReadyToBoot.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS VornRasSmmReadyToBootCallback(const EFI_GUID*, void*, EFI_HANDLE) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

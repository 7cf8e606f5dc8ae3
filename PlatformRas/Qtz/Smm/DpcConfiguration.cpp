#include "PlatformRas/Qtz/Smm/DpcConfiguration.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS VornSmmHandlerPcieDpcConfigIioSmiGeneration(EFI_HANDLE, const void*, void*, UINTN*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

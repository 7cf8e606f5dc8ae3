#include "PlatformRas/Qtz/Smm/PcieErrorSmi.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS KyrPcieLegacyRasSmiCallback(EFI_HANDLE, const FCH_SMM_APU_RAS_REGISTER_CONTEXT*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

#include "Library/VornElogPolicyLib/Pcie/DpcEvent.h"

#include "Library/RasLib/StandIn.h"
#include "Library/VornElogPolicyLib/Pcie/DpcDownstream.h"

BOOLEAN IsDpcAwareOs(UINT8, UINT8, UINT8, UINT8) {
    TraceStandIn();
    return FALSE;
}

EFI_STATUS VornElogSmmHandlerPcieDpcCheckDownstream(EFI_HANDLE, const void*, void*, UINTN*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

#include "Library/VornCperCreateLib/CperCreateLib.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS VornCperCreateLibConstructor(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    TraceStandIn();
    return EFI_SUCCESS;
}

EFI_STATUS VornCperCreateLibDestructor(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    TraceStandIn();
    return EFI_SUCCESS;
}

#include "Library/RasLib/SmiHandler.h"

#include "Library/RasLib/Globals.h"
#include "Library/RasLib/Trace.h"

EFI_STATUS RegisterSmiHandler(EFI_SMM_HANDLER_ENTRY_POINT2 Handler, const EFI_GUID& Guid,
                              EFI_HANDLE* DispatchHandle) {
    const EFI_STATUS Status = gSmst->SmiHandlerRegister(Handler, &Guid, DispatchHandle);
    if (EFI_ERROR(Status)) {
        *DispatchHandle = nullptr;
    }
    return Status;
}

EFI_STATUS UnregisterSmiHandler(EFI_HANDLE* DispatchHandle, const EFI_GUID& Guid, const CHAR8* Caller) {
    const EFI_STATUS Status = gSmst->SmiHandlerUnRegister(*DispatchHandle);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from gSmst->SmiHandlerUnRegister for %g\n", Status, &Guid);
    } else {
        *DispatchHandle = nullptr;
    }
    return Status;
}

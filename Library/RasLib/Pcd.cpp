#include "Library/RasLib/Pcd.h"

#include "Library/RasLib/Globals.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/SiliconServices.h"
#include "Platform/State.h"

KYR_STATE static const KYR_PCD_PROTOCOL* mPcd = nullptr;

EFI_STATUS PcdLibConstructor(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    void* Interface = nullptr;
    const EFI_STATUS Status = gSmst->SmmLocateProtocol(&gKyrPcdSmmProtocolGuid, nullptr, &Interface);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gKyrPcdSmmProtocolGuid, aborting...\n", Status);
        return Status;
    }
    mPcd = static_cast<const KYR_PCD_PROTOCOL*>(Interface);
    return EFI_SUCCESS;
}

UINT8 LibPcdGet8(UINTN TokenNumber) {
    return mPcd == nullptr ? UINT8{0} : mPcd->Get8(TokenNumber);
}

BOOLEAN LibPcdGetBool(UINTN TokenNumber) {
    return mPcd == nullptr ? FALSE : mPcd->GetBool(TokenNumber);
}

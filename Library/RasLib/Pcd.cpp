#include "Library/RasLib/Pcd.h"

#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/SiliconServices.h"
#include "Platform/State.h"

KYR_STATE static const KYR_PCD_PROTOCOL* mPcd = nullptr;

EFI_STATUS PcdLibConstructor(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    const EFI_STATUS Status = LocateSmmProtocol(gKyrPcdSmmProtocolGuid, &mPcd);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gKyrPcdSmmProtocolGuid, aborting...\n", Status);
    }
    return Status;
}

UINT8 LibPcdGet8(UINTN TokenNumber) {
    return mPcd == nullptr ? UINT8{0} : mPcd->Get8(TokenNumber);
}

BOOLEAN LibPcdGetBool(UINTN TokenNumber) {
    return mPcd == nullptr ? FALSE : mPcd->GetBool(TokenNumber);
}

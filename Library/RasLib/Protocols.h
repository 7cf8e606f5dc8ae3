// Services of other firmware, by GUID.
#pragma once

#include "Library/RasLib/Globals.h"

// Finds a protocol in the SMM services. *Interface is NULL after a failure, whatever the services left there; an
// interface that is NULL counts as none. The services' status, or EFI_NOT_FOUND.
template <class Protocol>
[[nodiscard]] EFI_STATUS LocateSmmProtocol(const EFI_GUID& Guid, Protocol** Interface) {
    void* Found = nullptr;
    const EFI_STATUS Status = gSmst->SmmLocateProtocol(&Guid, nullptr, &Found);
    *Interface = EFI_ERROR(Status) ? nullptr : static_cast<Protocol*>(Found);
    return !EFI_ERROR(Status) && Found == nullptr ? EFI_NOT_FOUND : Status;
}

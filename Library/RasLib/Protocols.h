// Services of other firmware, by GUID. *Interface is NULL after a failure, whatever the services left there; an
// interface that is NULL counts as none: EFI_NOT_FOUND. Else the services' status.
#pragma once

#include "Library/RasLib/Globals.h"

// The interface as its type, or NULL and a failure.
template <class Protocol>
[[nodiscard]] EFI_STATUS TakeInterface(EFI_STATUS Status, void* Found, Protocol** Interface) {
    *Interface = EFI_ERROR(Status) ? nullptr : static_cast<Protocol*>(Found);
    return !EFI_ERROR(Status) && Found == nullptr ? EFI_NOT_FOUND : Status;
}

// Finds a protocol in the SMM services.
template <class Protocol>
[[nodiscard]] EFI_STATUS LocateSmmProtocol(const EFI_GUID& Guid, Protocol** Interface) {
    void* Found = nullptr;
    const EFI_STATUS Status = gSmst->SmmLocateProtocol(&Guid, nullptr, &Found);
    return TakeInterface(Status, Found, Interface);
}

// Finds a protocol in the boot services, which are there while the driver starts. EFI_NOT_FOUND without them.
template <class Protocol>
[[nodiscard]] EFI_STATUS LocateBootProtocol(const EFI_GUID& Guid, Protocol** Interface) {
    void* Found = nullptr;
    const EFI_STATUS Status = gBS == nullptr ? EFI_NOT_FOUND : gBS->LocateProtocol(&Guid, nullptr, &Found);
    return TakeInterface(Status, Found, Interface);
}

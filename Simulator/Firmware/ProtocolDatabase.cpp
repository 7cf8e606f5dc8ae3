#include "Simulator/Firmware/ProtocolDatabase.h"

#include <algorithm>

#include "Include/Cper.h"
#include "Simulator/Firmware/Names.h"

namespace Simulator {

namespace {

// Handles are numbers: they mean nothing but themselves and do not differ between runs.
void* AsHandle(std::uint64_t Number) {
    return reinterpret_cast<void*>(Number);
}

}  // namespace

EFI_STATUS ProtocolDatabase::Install(EFI_HANDLE* Handle, const EFI_GUID& Protocol, void* Interface) {
    if (*Handle == nullptr) {
        *Handle = AsHandle(NextNumber++);
    }
    Protocols.push_back({Protocol, Interface, *Handle, OwnerIsDriver});
    const std::vector<Notification> Told = Notifications;
    for (const Notification& One : Told) {
        if (IsGuidEqual(One.Protocol, Protocol)) {
            One.Function(&Protocol, Interface, *Handle);
        }
    }
    return EFI_SUCCESS;
}

EFI_STATUS ProtocolDatabase::Uninstall(const EFI_GUID& Protocol, void* Interface) {
    const auto Removed = std::erase_if(Protocols, [&](const Installed& One) {
        return One.Interface == Interface && IsGuidEqual(One.Protocol, Protocol);
    });
    return Removed == 0 ? EFI_NOT_FOUND : EFI_SUCCESS;
}

EFI_STATUS ProtocolDatabase::Locate(const EFI_GUID& Protocol, void** Interface) const {
    for (const Installed& One : Protocols) {
        if (IsGuidEqual(One.Protocol, Protocol)) {
            *Interface = One.Interface;
            return EFI_SUCCESS;
        }
    }
    *Interface = nullptr;
    return EFI_NOT_FOUND;
}

EFI_STATUS ProtocolDatabase::OnHandle(EFI_HANDLE Handle, const EFI_GUID& Protocol, void** Interface) const {
    for (const Installed& One : Protocols) {
        if (One.Handle == Handle && IsGuidEqual(One.Protocol, Protocol)) {
            *Interface = One.Interface;
            return EFI_SUCCESS;
        }
    }
    *Interface = nullptr;
    return EFI_UNSUPPORTED;
}

std::vector<EFI_HANDLE> ProtocolDatabase::HandlesOf(const EFI_GUID& Protocol) const {
    std::vector<EFI_HANDLE> Handles;
    for (const Installed& One : Protocols) {
        if (IsGuidEqual(One.Protocol, Protocol)) {
            Handles.push_back(One.Handle);
        }
    }
    return Handles;
}

EFI_STATUS ProtocolDatabase::RegisterNotify(const EFI_GUID& Protocol, EFI_SMM_NOTIFY_FN Function,
                                            void** Registration) {
    Notifications.push_back({Protocol, Function, NextNumber});
    *Registration = AsHandle(NextNumber++);
    return EFI_SUCCESS;
}

EFI_STATUS ProtocolDatabase::UnregisterNotify(const EFI_GUID& Protocol, void* Registration) {
    const auto Removed = std::erase_if(Notifications, [&](const Notification& One) {
        return AsHandle(One.Number) == Registration && IsGuidEqual(One.Protocol, Protocol);
    });
    return Removed == 0 ? EFI_NOT_FOUND : EFI_SUCCESS;
}

std::vector<std::string> ProtocolDatabase::AbandonImage() {
    std::vector<std::string> Left;
    for (const Notification& One : Notifications) {
        Left.push_back("notification on " + GuidName(One.Protocol));
    }
    Notifications.clear();
    for (const Installed& One : Protocols) {
        if (One.OfDriver) {
            Left.push_back("protocol " + GuidName(One.Protocol));
        }
    }
    std::erase_if(Protocols, [](const Installed& One) { return One.OfDriver; });
    return Left;
}

}  // namespace Simulator

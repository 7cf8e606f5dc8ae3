// Protocols by GUID, with notifications of their installation.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Platform/Services.h"

namespace Simulator {

class ProtocolDatabase {
 public:
    // Interface may be NULL: such a protocol only says that something happened. Handle NULL in, a new handle out.
    // Notifications run before this returns.
    EFI_STATUS Install(EFI_HANDLE* Handle, const EFI_GUID& Protocol, void* Interface);
    // EFI_NOT_FOUND when that interface is not installed.
    EFI_STATUS Uninstall(const EFI_GUID& Protocol, void* Interface);
    // EFI_NOT_FOUND, with *Interface NULL, when there is no instance.
    EFI_STATUS Locate(const EFI_GUID& Protocol, void** Interface) const;

    // EFI_UNSUPPORTED when the handle has no such protocol.
    EFI_STATUS OnHandle(EFI_HANDLE Handle, const EFI_GUID& Protocol, void** Interface) const;
    // Handles that have the protocol, in the order of their installation.
    std::vector<EFI_HANDLE> HandlesOf(const EFI_GUID& Protocol) const;

    // Only installations that come later are told.
    EFI_STATUS RegisterNotify(const EFI_GUID& Protocol, EFI_SMM_NOTIFY_FN Function, void** Registration);
    EFI_STATUS UnregisterNotify(const EFI_GUID& Protocol, void* Registration);

    // What an unloaded image left behind, as text; its notifications are not called any more.
    std::vector<std::string> AbandonImage();
    // What belongs to the driver is told from what the firmware installs itself.
    void SetOwner(bool Driver) {
        OwnerIsDriver = Driver;
    }

 private:
    struct Installed {
        EFI_GUID Protocol;
        void* Interface;
        EFI_HANDLE Handle;
        bool OfDriver;
    };
    struct Notification {
        EFI_GUID Protocol;
        EFI_SMM_NOTIFY_FN Function;
        std::uint64_t Number;
    };
    std::vector<Installed> Protocols;
    std::vector<Notification> Notifications;
    std::uint64_t NextNumber = 1;
    bool OwnerIsDriver = false;
};

}  // namespace Simulator

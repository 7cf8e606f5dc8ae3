// Boot services and the SMM system table.
#pragma once

#include "Platform/Services.h"

namespace Simulator {

// The tables that a driver image gets. Their functions act on the firmware that is current.
struct SystemTables {
    // Processors: one save state each.
    SystemTables(UINTN* SaveStateSizes, void** SaveStates, UINTN Processors);
    SystemTables(const SystemTables&) = delete;
    SystemTables& operator=(const SystemTables&) = delete;

    EFI_BOOT_SERVICES BootServices{};
    EFI_SYSTEM_TABLE System{};
    EFI_SMM_SYSTEM_TABLE2 Smm{};
};

}  // namespace Simulator

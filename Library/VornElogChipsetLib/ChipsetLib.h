// Life of the chipset library.
#pragma once

#include "Platform/Services.h"

// Debug levels of the chipset library, taken from the base library.
struct VORN_ELOG_CHIPSET_PRIVATE_DATA {
    UINT64 SerDbgLevelConstructor;
    UINT64 SerDbgLevel;
    UINT64 SerDbgLevelDetailed;
};
extern VORN_ELOG_CHIPSET_PRIVATE_DATA mPrivateDataVornElogChipsetLib;

// Takes the debug levels and registers the handler of the storm scaling data; a refusal is traced and ignored. The
// map of active root ports (ActiveRootPorts.h) is made when the platform has its port map. Runs after the base
// library's constructor. Always EFI_SUCCESS. The policy engine's destructor takes the registration back.
EFI_STATUS VornElogChipsetLibConstructor(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

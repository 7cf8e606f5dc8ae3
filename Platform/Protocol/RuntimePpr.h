// Both sides of runtime post-package repair that meet outside the driver: what the driver offers to the PSP's SMI
// dispatcher, and who wants to hear of the results.
#pragma once

#include "Platform/Base.h"

struct RUNTIME_PPR_CHECK_ENTRY;

// Installed by the driver while runtime repair is enabled.
struct KYR_RUNTIME_PPR_SERVICE_SMM_PROTOCOL {
    // The PSP is done with the repairs that it was given. *RepairStatus: 0, or why they failed.
    EFI_STATUS (*PspRuntimePprCompletion)(const UINT32* RepairStatus);
};

// Any number of instances. Slots are platform constants.
struct KYR_JRV_RAS_OEM_SMM_PROTOCOL {
    // RepairStatus: 0, or why the PSP's repairs failed; then no entry was verified. CheckTable and Results hold
    // EntryCount entries; a result is a RUNTIME_PPR_RESULT.
    EFI_STATUS(*RuntimePprResult)
    (UINT32 RepairStatus, const RUNTIME_PPR_CHECK_ENTRY* CheckTable, const UINT8* Results, UINT32 EntryCount);
};

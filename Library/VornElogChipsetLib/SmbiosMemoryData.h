// The SMBIOS structures of the memory: the hand-over from the boot firmware, once each, and the lookup by DIMM.
#pragma once

#include "Include/SmbiosMemoryData.h"
#include "Platform/Services.h"

// SMI handlers on gVornSmbiosType16HandleToSmramGuid and gVornSmbiosType17HandleToSmramGuid. CommBuffer holds a whole
// ELOG_SMBIOS_SMM_COMM_DATA_PAYLOAD of the type, pCommBufferSize its bytes. A handler that has taken its data
// unregisters itself: it is handed over exactly once. EFI_INVALID_PARAMETER, and nothing copied, for a buffer that is
// NULL, too short or not wholly outside SMRAM; else the status of the unregistration.
EFI_STATUS VornHoistSmbiosType16DataToSmram(EFI_HANDLE DispatchHandle, const void* Context, void* CommBuffer,
                                            UINTN* pCommBufferSize);
EFI_STATUS VornHoistSmbiosType17DataToSmram(EFI_HANDLE DispatchHandle, const void* Context, void* CommBuffer,
                                            UINTN* pCommBufferSize);

// Registers the two handlers, type 16 first. Caller: whose trace it is. The status of the second registration; a
// failure of the first is only traced.
EFI_STATUS RegisterSmbiosHoistHandlers(const CHAR8* Caller = __builtin_FUNCTION());

// Takes the registrations back that still stand. The statuses of that, folded; EFI_SUCCESS without any.
EFI_STATUS UnregisterSmbiosHoistHandlers(const CHAR8* Caller = __builtin_FUNCTION());

// The SMBIOS records of the DIMM's physical memory array (type 16) and of the DIMM (type 17), found by the DIMM's
// label; *pSmbiosMemoryDeviceDataValid says whether they were found. EFI_NOT_READY before both types were handed
// over; EFI_INVALID_PARAMETER for NULL; EFI_NOT_FOUND; EFI_SUCCESS.
EFI_STATUS VornGetSmbiosMemoryDeviceData(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm,
                                         BOOLEAN* pSmbiosMemoryDeviceDataValid,
                                         ELOG_SMBIOS_TYPE16_RECORD** ppElogSmbiosType16Record,
                                         ELOG_SMBIOS_TYPE17_RECORD** ppElogSmbiosType17Record);

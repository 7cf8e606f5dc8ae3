// Which error SMIs the driver takes over, and their registration.
#pragma once

#include "Include/PlatformApeiData.h"
#include "Platform/Services.h"

// Root-complex handlers registered; the last of them to run in an SMI knows itself by this count.
extern UINT64 NumPcieRbCallbacksRegistered;

// Registers what the platform APEI data asks for. A failure is traced and the next registration tried; the
// status is that of the last registration that ran, success when none did.
EFI_STATUS RasSmmRegistrationCenter();

// Machine checks redirected to a software SMI: programs the SMI trigger IO cycle and registers the handler.
EFI_STATUS RasSmmRegisterMceSwSmi();

// One handler per root complex of the bus map, in index order; the first refused one ends it. EFI_NOT_FOUND without
// a bus map.
EFI_STATUS RasSmmRegisterPcieLegacyRasSmi();

// The CXL software SMI; at ready-to-boot, through the callback. EFI_NOT_FOUND without CXL policy data.
EFI_STATUS RasSmmRegisterCxlRasSmi();
EFI_STATUS RegisterCxlRasSmiCallback(const EFI_GUID* Protocol, void* Interface, EFI_HANDLE Handle);

// Hands a copy of the platform's thresholds per bank type to the RAS service, which owns it from then on.
// EFI_OUT_OF_RESOURCES when the copy cannot be allocated; the service's own status does not count.
EFI_STATUS PassOemMcaThresholdMapTableToTALVO(const OEM_MCA_THRESHOLD_MAP_TABLE* OemMcaThresholdMapTable);

// The platform's NVMe PCIe switch: how a port of it is recognised, and how the switch runs.
#pragma once

#include "Include/PciDeviceState.h"

inline constexpr UINT16 PCI_VENDOR_ID_BROADCOM = 0x1000;

// Whether the function is the upstream port of such a switch, and the switch's operating mode (NVME_SWITCH_MODE_;
// unknown for any other function and where it cannot be read).
// EFI_INVALID_PARAMETER: a NULL pointer; EFI_SUCCESS for every function that is something else; the status of
// VornGetNvmePcieSwitchOperatingMode for one that is.
EFI_STATUS VornCheckNvmePcieSwitchUpstreamPort(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                               BOOLEAN* pIsVornBrandedNvmeSwitch, UINT32* pNvmeSwitchOperatingMode);

// The same for a downstream port, which must be hot-plug capable as well.
EFI_STATUS VornCheckNvmePcieSwitchDownstreamPort(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                                 BOOLEAN* pIsVornBrandedNvmeSwitch, UINT32* pNvmeSwitchOperatingMode);

// Reads the operating mode from the switch ID registers.
// EFI_INVALID_PARAMETER: pMode is NULL; EFI_NOT_FOUND: not such a switch; EFI_UNSUPPORTED: a mode without a name.
// After a failure the mode is NVME_SWITCH_MODE_UNKNOWN.
EFI_STATUS VornGetNvmePcieSwitchOperatingMode(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT32* pMode);

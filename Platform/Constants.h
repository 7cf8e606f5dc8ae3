// Register addresses and identifiers of the platform that the driver is built for. Platform constants: a
// firmware team puts its own values in.
#pragma once

#include "Platform/Base.h"

// PCI vendor ID of the processor's own functions; a data-fabric device that reports another one is not ours.
inline constexpr UINT16 PROCESSOR_PCI_VENDOR_ID = 0x1E2D;

// PCI subsystem vendor ID that the platform vendor gives its own boards: its NVMe switch is recognised by it.
inline constexpr UINT16 VORN_PCI_SUBSYSTEM_VENDOR_ID = 0x1F3A;

// ECAM base when the processor's MMIO configuration base register reads 0.
inline constexpr UINT64 DEFAULT_PCI_EXPRESS_BASE_ADDRESS = 0x60000000;

// FCH SMI block, memory-mapped at fixed addresses.
inline constexpr UINT64 FCH_SMI_SOFTWARE_SCI_EN = 0xFED80218;
inline constexpr UINT64 FCH_SMI_SOFTWARE_SCI_DATA = 0xFED8021C;

// SMN index/data pair in device 0, function 0 of a root complex's base bus.
inline constexpr UINT32 SMN_INDEX_REGISTER = 0xB8;
inline constexpr UINT32 SMN_DATA_REGISTER = 0xBC;

// PCD tokens.
inline constexpr UINTN PCD_TOKEN_PSP_EINJ_SUPPORT = 0x37D;
inline constexpr UINTN PCD_TOKEN_JRV_RAS_EINJ_MODE = 0x2BD;

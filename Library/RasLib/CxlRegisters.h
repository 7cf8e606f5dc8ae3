// Where the registers of a CXL function lie (CXL 3.0, sections 8.1 and 8.2). What a device says of itself is never
// trusted further than its own BAR and its own configuration space reach. PciAddress: packed, register 0.
#pragma once

#include "Include/CxlRegisters.h"

// Part of a memory BAR. Size: bytes from Base to the end of the BAR.
struct CXL_REGISTER_BLOCK {
    UINT64 Base;
    UINT64 Size;
};

// Offset of the CXL DVSEC with that ID; 0 when the function has none.
UINT16 RasFindCxlDvsecCapability(UINT32 PciAddress, UINT16 DvsecId);

// Number of register blocks that the Register Locator DVSEC at that offset lists, at most what fits into
// configuration space; 0 when its length is too short for any.
UINT32 RasGetRegisterBlockNumber(UINT32 PciAddress, UINT16 RegisterLocatorOffset);

// Memory address of the function's first register block with that CXL_REGISTER_BLOCK_ID; 0 when it has none, or none
// inside a memory BAR of its own.
UINT64 RasGetRciepRegisterBlockAddress(UINT32 PciAddress, UINT8 BlockIdentifier);

// The same with the room that the block has. False, with *Block zeroed, where the address would be 0.
bool FindCxlRegisterBlock(UINT32 PciAddress, UINT8 BlockIdentifier, CXL_REGISTER_BLOCK* Block);

// Component register base of a restricted downstream port, from the memory BAR in its root complex register block;
// 0 when the address is NULL, the block does not answer or the BAR is an IO BAR.
UINT64 RasGetDpComponentRegisterAddress(UINT64 RcrbAddress);

// Root complex register block of the upstream port of a restricted device: it follows the one of the downstream port
// above the device, which the platform lists in the CXL policy data. 0 when the device's root bus is not listed there
// or no CXL device answers.
UINT64 RasGetUpRcrbAddrOfRciep(UINT32 PciAddress);

// Offset of a capability (CXL_CAPABILITY_ID) within the CXL.cache/CXL.mem register block, from the capability array
// at the block's start; 0 when there is none. CacheMemBase: memory address of the block's 4 KiB.
UINT32 RasGetCxlCapabilityPointer(UINT64 CacheMemBase, UINT16 CxlCapId);

// Offset of a capability (CXL_DEVICE_CAPABILITY_ID) from the memory device registers; 0 when there is none. Looks at
// no more headers than lie in the first 4 KiB. *pLength: its length in bytes as the device tells it, 0 without one;
// pLength may be NULL.
UINT32 RasGetCxlDeviceCapabilityPointer(UINT64 MemoryDeviceBase, UINT16 DeviceCapId, UINT32* pLength);

// Whether an unmasked uncorrectable or correctable error is pending in the RAS capability; registers that read all
// ones hold none.
BOOLEAN CxlRasCapErrCheck(UINT64 CacheMemBase, UINT32 RasCapOffset);

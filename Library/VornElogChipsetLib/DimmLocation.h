// Where a DIMM sits on the board, and what the platform knows about it. Socket, UmcChannel and Dimm (on the
// channel) name the DIMM.
#pragma once

#include "Include/MemorySlots.h"

struct ELOG_SMBIOS_TYPE16_RECORD;
struct ELOG_SMBIOS_TYPE17_RECORD;

// The location byte of memory events, in the low byte: socket in bits 7:6, slot number of the label less one in bits
// 5:0. 0 when the platform's map does not hold the DIMM.
UINT32 ElogGetDimmLocation(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm);

// The platform's record of the DIMM's slot and its index among the slots.
EFI_STATUS VornElogGetDimmSlotInfoPointer(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm,
                                          VORN_MEMORY_SLOT_INFO** ppVornMemorySlotInfo, UINT8* pDimmIndex);

// The DIMM's silkscreen label in ASCII. The caller frees *ppAsciiString with SmmFreePool.
EFI_STATUS VornGetDimmLocationString(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, CHAR8** ppAsciiString);

// The FRU text of a memory record, at most BufferSize bytes with its NUL.
EFI_STATUS VornGetDimmFruInfo(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, UINTN BufferSize, CHAR8* pDimmFruString);

// The SMBIOS records (types 16 and 17) of the DIMM's array and of the DIMM.
EFI_STATUS VornGetSmbiosMemoryDeviceData(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm,
                                         BOOLEAN* pSmbiosMemoryDeviceDataValid,
                                         ELOG_SMBIOS_TYPE16_RECORD** ppElogSmbiosType16Record,
                                         ELOG_SMBIOS_TYPE17_RECORD** ppElogSmbiosType17Record);

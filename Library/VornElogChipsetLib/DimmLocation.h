// Where a DIMM sits on the board, and what the platform knows about it. Socket, UmcChannel and Dimm (on the
// channel) name the DIMM.
#pragma once

#include "Include/MemorySlots.h"

struct VORN_MEMORY_ARRAY;

// Characters of a label that the driver takes; the rest is cut.
inline constexpr UINTN DIMM_LABEL_MAX = 20;

// Whether the machine can have a DIMM there; traced, in the name of Caller, where it cannot.
bool VornElogSmmIsDimmPlace(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, const CHAR8* Caller = __builtin_FUNCTION());

// The location byte of memory events, in the low byte: socket in bits 7:6, slot number of the label less one in bits
// 5:0. 0 when the platform's map does not hold the DIMM.
UINT32 ElogGetDimmLocation(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm);

// The platform's record of the DIMM's slot and its index among the slots, NULL and 255 when it has none.
// EFI_INVALID_PARAMETER for NULL pointers or a DIMM that no board has; EFI_NOT_FOUND; EFI_SUCCESS.
EFI_STATUS VornElogGetDimmSlotInfoPointer(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm,
                                          VORN_MEMORY_SLOT_INFO** ppVornMemorySlotInfo, UINT8* pDimmIndex);

// Copies the platform's DIMM map, whose labels stay the platform's. A map without slots, or none at all (NULL), makes
// no table. Level: debug level that the entries are listed under; Caller: whose trace it is. EFI_OUT_OF_RESOURCES, or
// EFI_SUCCESS.
EFI_STATUS BuildDimmMappingTable(const VORN_MEMORY_ARRAY* pMemoryArray, UINT64 Level,
                                 const CHAR8* Caller = __builtin_FUNCTION());

// Gives the table back to the pool; the status of that, EFI_SUCCESS without a table.
EFI_STATUS FreeDimmMappingTable();

// Copies the DIMM's silkscreen label of the mapping table, in ASCII and cut to DIMM_LABEL_MAX characters.
// Caller: whose trace it is. EFI_NOT_FOUND when the table does not hold the DIMM or its slot has no label;
// EFI_SUCCESS.
EFI_STATUS CopyDimmLabel(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, CHAR8 (&Label)[DIMM_LABEL_MAX + 1],
                         const CHAR8* Caller = __builtin_FUNCTION());

// The same label in a block of its own, which the caller frees with SmmFreePool; NULL after a failure.
// EFI_INVALID_PARAMETER for NULL; EFI_NOT_FOUND; EFI_OUT_OF_RESOURCES; EFI_SUCCESS.
EFI_STATUS VornGetDimmLocationString(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, CHAR8** ppAsciiString);

// The FRU text of the DIMM's records in BufferSize bytes with its NUL: "DIMM_" and the label, of which what does not
// fit is cut. EFI_INVALID_PARAMETER for NULL; EFI_BUFFER_TOO_SMALL when not even the label's first character fits;
// the label's status; EFI_SUCCESS.
EFI_STATUS VornGetDimmFruInfo(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, UINTN BufferSize, CHAR8* pDimmFruString);

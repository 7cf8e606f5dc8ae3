#include "Library/VornElogChipsetLib/DimmLocation.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Text.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/SelTransport.h"
#include "Platform/Guids.h"
#include "Platform/State.h"

namespace {

constexpr UINT32 SLOT_NUMBER_MASK = 63;
constexpr UINT8 NO_DIMM_INDEX = 255;
constexpr CHAR8 FRU_TEXT_PREFIX[] = "DIMM_";

// The driver's own copy of the platform's DIMM map.
struct DIMM_MAPPING_TABLE {
    UINT16 NumDimmSlot;
    DIMM_MAP_ENTRY* Entries;
};
KYR_STATE DIMM_MAPPING_TABLE mDimmMappingTable = {};

// The memory interface and its array, from the first slot lookup on.
struct MEMORY_SLOTS {
    const VORN_MEMORY_INTERFACE_SMM_PROTOCOL* Interface;
    const VORN_MEMORY_ARRAY* Array;
};
KYR_STATE MEMORY_SLOTS mMemorySlots = {};

const DIMM_MAP_ENTRY* FindDimm(const DIMM_MAP_ENTRY* Map, UINT16 NumDimmSlot, UINT16 Socket, UINT16 UmcChannel,
                               UINT16 Dimm) {
    if (Map == nullptr) {
        return nullptr;
    }
    for (UINT16 Slot = 0; Slot < NumDimmSlot; Slot++) {
        const DIMM_MAP_ENTRY& Entry = Map[Slot];
        if (Entry.Socket == Socket && Entry.UmcChannel == UmcChannel && Entry.Dimm == Dimm) {
            return &Entry;
        }
    }
    return nullptr;
}

// Value of a hexadecimal digit; any other character counts 0.
UINT32 DigitValue(CHAR16 Character) {
    if (Character >= u'0' && Character <= u'9') {
        return static_cast<UINT32>(Character - u'0');
    }
    if (Character >= u'a' && Character <= u'f') {
        return static_cast<UINT32>(Character - u'a' + 10);
    }
    if (Character >= u'A' && Character <= u'F') {
        return static_cast<UINT32>(Character - u'A' + 10);
    }
    return 0;
}

// The number behind a label's bank letter: A1 is 1, B12 is 12. Digits after the second are ignored.
UINT32 SlotNumberOf(const CHAR16* Label) {
    if (Label[0] == 0 || Label[1] == 0) {
        return 0;
    }
    const UINT32 First = DigitValue(Label[1]);
    return Label[2] == 0 ? First : First * 10 + DigitValue(Label[2]);
}

}  // namespace

bool VornElogSmmIsDimmPlace(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, const CHAR8* Caller) {
    if (Socket >= MAX_SOCKETS) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR Socket %d >= Max %d, aborting...\n", Socket, MAX_SOCKETS);
        return false;
    }
    if (UmcChannel >= MAX_UMC_CHANNELS) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR UmcChannel %d >= Max %d, aborting...\n", UmcChannel,
                MAX_UMC_CHANNELS);
        return false;
    }
    if (Dimm >= MAX_DIMMS_PER_CHANNEL) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR Dimm %d >= Max %d, aborting...\n", Dimm, MAX_DIMMS_PER_CHANNEL);
        return false;
    }
    return true;
}

UINT32 ElogGetDimmLocation(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm) {
    const VORN_ELOG_IPMI_PRIVATE_DATA& Data = mPrivateDataVornElogIpmi;
    const DIMM_MAP_ENTRY* const Entry = FindDimm(Data.pDimmMap, Data.NumDimmSlot, Socket, UmcChannel, Dimm);
    if (Entry == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR Socket %d UmcChannel %d Dimm %d not in DIMM map\n", Socket, UmcChannel, Dimm);
        return 0;
    }
    const UINT32 SlotNumber = Entry->Label == nullptr ? 0 : SlotNumberOf(Entry->Label);
    // A slot without a number wraps below the socket's first location; that is meant.
    const UINT32 Location = (UINT32{Socket} << 6 | (SlotNumber & SLOT_NUMBER_MASK)) - 1;
    Trace(Data.SerDbgLevel, "%a: Socket %d UmcChannel %d Dimm %d => location %d\n", Socket, UmcChannel, Dimm,
          Location);
    return Location;
}

namespace {

// The memory interface's array, asked for until it is known.
EFI_STATUS FindMemoryArray(const CHAR8* Caller = __builtin_FUNCTION()) {
    if (mMemorySlots.Array != nullptr) {
        return EFI_SUCCESS;
    }
    EFI_STATUS Status = LocateSmmProtocol(gVornMemoryInterfaceMemorySmmProtocolGuid, &mMemorySlots.Interface);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r locating protocol gVornMemoryInterfaceMemorySmmProtocolGuid %g, aborting...\n", Status,
                &gVornMemoryInterfaceMemorySmmProtocolGuid);
        return Status;
    }
    VORN_MEMORY_ARRAY* Array = nullptr;
    Status = mMemorySlots.Interface->GetMemoryArrayPtr(&Array);
    if (!EFI_ERROR(Status) && Array == nullptr) {
        Status = EFI_NOT_FOUND;
    }
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from GetMemoryArrayPtr, aborting...\n", Status);
        return Status;
    }
    mMemorySlots.Array = Array;
    return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS VornElogGetDimmSlotInfoPointer(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm,
                                          VORN_MEMORY_SLOT_INFO** ppVornMemorySlotInfo, UINT8* pDimmIndex) {
    if (ppVornMemorySlotInfo == nullptr || pDimmIndex == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR ppVornMemorySlotInfo == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (!VornElogSmmIsDimmPlace(Socket, UmcChannel, Dimm)) {
        return EFI_INVALID_PARAMETER;
    }
    *ppVornMemorySlotInfo = nullptr;
    *pDimmIndex = NO_DIMM_INDEX;
    EFI_STATUS Status = FindMemoryArray();
    if (EFI_ERROR(Status)) {
        return Status;
    }
    const UINT16 NumDimmSlot = mMemorySlots.Array->NumDimmSlot;
    if (NumDimmSlot == 0 || NumDimmSlot > MAX_DIMM_SLOTS) {
        Trace(DEBUG_ERROR, "%a: ERROR pVornMemoryArrayInfo->nSlots is zero or > Max 0x%04x (%d)\n", MAX_DIMM_SLOTS,
              MAX_DIMM_SLOTS);
        return EFI_NOT_FOUND;
    }
    for (UINT8 DimmIndex = 0; DimmIndex < NumDimmSlot; DimmIndex++) {
        VORN_MEMORY_SLOT_INFO* SlotInfo = nullptr;
        Status = mMemorySlots.Interface->GetSlotInfoPtr(DimmIndex, &SlotInfo);
        if (EFI_ERROR(Status) || SlotInfo == nullptr) {
            Trace(DEBUG_ERROR, "%a: ERROR %r from GetSlotInfoPtr for DimmIndex %d\n", Status, DimmIndex);
            continue;
        }
        if (SlotInfo->Socket == Socket && SlotInfo->UmcChannel == UmcChannel && SlotInfo->Dimm == Dimm) {
            *ppVornMemorySlotInfo = SlotInfo;
            *pDimmIndex = DimmIndex;
            return EFI_SUCCESS;
        }
    }
    Status = EFI_NOT_FOUND;
    Trace(DEBUG_ERROR,
          "%a: ERROR %r matching DIMM @ Skt %d Ch %2d Dimm %d, check caller boundary conditions, exiting...\n",
          Status, Socket, UmcChannel, Dimm);
    return Status;
}

EFI_STATUS BuildDimmMappingTable(const VORN_MEMORY_ARRAY* pMemoryArray, UINT64 Level, const CHAR8* Caller) {
    if (pMemoryArray == nullptr || pMemoryArray->NumDimmSlot == 0 || pMemoryArray->DimmMap == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR the memory interface has no DIMM map\n");
        return EFI_SUCCESS;
    }
    const UINT16 NumDimmSlot = pMemoryArray->NumDimmSlot;
    const UINTN Length = NumDimmSlot * sizeof(DIMM_MAP_ENTRY);
    DIMM_MAP_ENTRY* Entries = nullptr;
    const EFI_STATUS Status = AllocateRuntimeData(Length, &Entries);
    if (EFI_ERROR(Status)) {
        TraceAs(
            Caller, DEBUG_ERROR,
            "%a: ERROR %r allocating EfiRuntimeServicesData memory of length 0x%016lx (%d) bytes for DIMM mapping "
            "table, aborting...\n",
            Status, Length, Length);
        return EFI_OUT_OF_RESOURCES;
    }
    CopyMem(Entries, pMemoryArray->DimmMap, Length);
    mDimmMappingTable = {NumDimmSlot, Entries};
    for (UINT16 Slot = 0; Slot < NumDimmSlot; Slot++) {
        const DIMM_MAP_ENTRY& Entry = Entries[Slot];
        TraceAs(Caller, Level,
                "%a: DIMM mapping table entry %2d => Socket %d UmcChannel %2d Dimm %d => DIMM label %s\n", Slot,
                Entry.Socket, Entry.UmcChannel, Entry.Dimm, Entry.Label);
    }
    return EFI_SUCCESS;
}

EFI_STATUS FreeDimmMappingTable() {
    if (mDimmMappingTable.Entries == nullptr) {
        return EFI_SUCCESS;
    }
    const EFI_STATUS Status = FreeRuntimeData(mDimmMappingTable.Entries);
    mDimmMappingTable = {};
    return Status;
}

EFI_STATUS CopyDimmLabel(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, CHAR8 (&Label)[DIMM_LABEL_MAX + 1],
                         const CHAR8* Caller) {
    const DIMM_MAP_ENTRY* const Entry =
        FindDimm(mDimmMappingTable.Entries, mDimmMappingTable.NumDimmSlot, Socket, UmcChannel, Dimm);
    if (Entry == nullptr || Entry->Label == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR Socket %d UmcChannel %d Dimm %d has no label, aborting...\n", Socket,
                UmcChannel, Dimm);
        return EFI_NOT_FOUND;
    }
    const UINTN Length = TextLength(Entry->Label, DIMM_LABEL_MAX);
    for (UINTN At = 0; At < Length; At++) {
        Label[At] = Entry->Label[At] < 0x80 ? static_cast<CHAR8>(Entry->Label[At]) : '?';
    }
    Label[Length] = 0;
    return EFI_SUCCESS;
}

EFI_STATUS VornGetDimmLocationString(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, CHAR8** ppAsciiString) {
    if (ppAsciiString == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR ppAsciiString == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *ppAsciiString = nullptr;
    CHAR8 Label[DIMM_LABEL_MAX + 1];
    EFI_STATUS Status = CopyDimmLabel(Socket, UmcChannel, Dimm, Label);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    const UINTN Size = TextLength(Label, DIMM_LABEL_MAX) + 1;
    Status = AllocateRuntimeData(Size, ppAsciiString);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r allocating %d bytes for the DIMM label, aborting...\n", Status, Size);
        return EFI_OUT_OF_RESOURCES;
    }
    return CopyText(*ppAsciiString, Size, Label);
}

namespace {

EFI_STATUS ComposeFruText(CHAR8* pDimmFruString, UINTN BufferSize, const CHAR8* Label,
                          const CHAR8* Caller = __builtin_FUNCTION()) {
    EFI_STATUS Status = CopyText(pDimmFruString, BufferSize, FRU_TEXT_PREFIX);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r copying DIMM FRU string prefix\n", Status);
        return Status;
    }
    Status = AppendTextCut(pDimmFruString, BufferSize, Label);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r copying DIMM FRU string DIMM number\n", Status);
    }
    return Status;
}

}  // namespace

EFI_STATUS VornGetDimmFruInfo(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, UINTN BufferSize, CHAR8* pDimmFruString) {
    if (pDimmFruString == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pDimmFruString == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    CHAR8* pAsciiDimmLocationString = nullptr;
    EFI_STATUS Status = VornGetDimmLocationString(Socket, UmcChannel, Dimm, &pAsciiDimmLocationString);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    if (pAsciiDimmLocationString == nullptr) {
        Trace(DEBUG_ERROR,
              "%a: ERROR pAsciiDimmLocationString == NULL on return from VornGetDimmLocationString, aborting...\n");
        return EFI_NOT_FOUND;
    }
    Status = ComposeFruText(pDimmFruString, BufferSize, pAsciiDimmLocationString);
    const EFI_STATUS FreeStatus = FreeRuntimeData(pAsciiDimmLocationString);
    if (EFI_ERROR(FreeStatus)) {
        // The text is whole all the same.
        Trace(DEBUG_ERROR, "%a: ERROR %r from SmmFreePool for pAsciiDimmLocationString\n", FreeStatus);
    }
    return Status;
}

#include "Library/VornElogChipsetLib/DimmLocation.h"

#include "Library/RasLib/StandIn.h"
#include "Library/VornElogChipsetLib/SelTransport.h"

namespace {

constexpr UINT32 SLOT_NUMBER_MASK = 63;

const DIMM_MAP_ENTRY* FindDimm(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm) {
    const VORN_ELOG_IPMI_PRIVATE_DATA& Data = mPrivateDataVornElogIpmi;
    if (Data.pDimmMap == nullptr) {
        return nullptr;
    }
    for (UINT16 Slot = 0; Slot < Data.NumDimmSlot; Slot++) {
        const DIMM_MAP_ENTRY& Entry = Data.pDimmMap[Slot];
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

UINT32 ElogGetDimmLocation(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm) {
    const DIMM_MAP_ENTRY* const Entry = FindDimm(Socket, UmcChannel, Dimm);
    if (Entry == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR Socket %d UmcChannel %d Dimm %d not in DIMM map\n", Socket, UmcChannel, Dimm);
        return 0;
    }
    const UINT32 SlotNumber = Entry->Label == nullptr ? 0 : SlotNumberOf(Entry->Label);
    // A slot without a number wraps below the socket's first location; that is meant.
    const UINT32 Location = (UINT32{Socket} << 6 | (SlotNumber & SLOT_NUMBER_MASK)) - 1;
    Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: Socket %d UmcChannel %d Dimm %d => location %d\n", Socket,
          UmcChannel, Dimm, Location);
    return Location;
}

EFI_STATUS VornElogGetDimmSlotInfoPointer(UINT8, UINT8, UINT8, VORN_MEMORY_SLOT_INFO**, UINT8*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

EFI_STATUS VornGetDimmLocationString(UINT8, UINT8, UINT8, CHAR8**) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

EFI_STATUS VornGetDimmFruInfo(UINT8, UINT8, UINT8, UINTN, CHAR8*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

EFI_STATUS VornGetSmbiosMemoryDeviceData(UINT8, UINT8, UINT8, BOOLEAN*, ELOG_SMBIOS_TYPE16_RECORD**,
                                         ELOG_SMBIOS_TYPE17_RECORD**) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

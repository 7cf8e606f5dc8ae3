#include "Library/RasLib/PspMailbox.h"

#include "Library/RasLib/FabricTopology.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/Smn.h"

namespace {

constexpr UINT32 PSP_BASE_ADDR_LO = 0x13B102E0;
constexpr UINT32 PSP_BASE_ADDR_MASK = 0xFFF00000;
constexpr UINT64 PSP_BIOS_MBOX_OFFSET = 0x10970;

}  // namespace

BOOLEAN GetPspBiosMboxRegAddr(UINT8 Socket, UINT64* Address) {
    UINT8 Bus = 0;
    UINT8 Segment = 0;
    if (EFI_ERROR(AcquireIoHubSSecSegBusNum(mRbBusMap, Socket, 0, 0, &Bus, &Segment))) {
        return FALSE;
    }
    UINT32 Base = 0;
    RasSmnRead(SmnSegBus(Segment, Bus), PSP_BASE_ADDR_LO, &Base);
    Base &= PSP_BASE_ADDR_MASK;
    if (Base == 0) {
        return FALSE;
    }
    *Address = Base + PSP_BIOS_MBOX_OFFSET;
    return TRUE;
}

#include "Library/RasLib/Smn.h"

#include "Library/RasLib/PciSegment.h"
#include "Platform/Constants.h"

namespace {

UINT64 RootComplexRegister(UINT32 SegBus, UINT32 Register) {
    return PciSegmentAddress(static_cast<UINT16>(SegBus / 256), static_cast<UINT8>(SegBus % 256), 0, 0,
                             static_cast<UINT16>(Register));
}

}  // namespace

void RasSmnRead(UINT32 SegBus, UINT32 Address, UINT32* Value) {
    PciSegmentWrite32(RootComplexRegister(SegBus, SMN_INDEX_REGISTER), Address);
    *Value = PciSegmentRead32(RootComplexRegister(SegBus, SMN_DATA_REGISTER));
}

void RasSmnWrite(UINT32 SegBus, UINT32 Address, const UINT32* Value) {
    PciSegmentWrite32(RootComplexRegister(SegBus, SMN_INDEX_REGISTER), Address);
    PciSegmentWrite32(RootComplexRegister(SegBus, SMN_DATA_REGISTER), *Value);
}

void RasSmnRW(UINT32 SegBus, UINT32 Address, UINT32 AndMask, UINT32 OrMask) {
    UINT32 Value = 0;
    RasSmnRead(SegBus, Address, &Value);
    Value = (Value & AndMask) | OrMask;
    RasSmnWrite(SegBus, Address, &Value);
}

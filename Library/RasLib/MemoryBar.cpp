#include "Library/RasLib/MemoryBar.h"

#include "Include/PciRegisters.h"
#include "Library/RasLib/PciSegment.h"

namespace {

constexpr UINT32 ALL_ONES = 0xFFFFFFFF;

// Base address registers of a function's header; none for a header of another type or an absent function.
UINT8 BaseAddressCount(UINT64 Function) {
    switch (PciHeaderType::Layout::Get(PciSegmentRead8(Function + PCI_HEADER_TYPE))) {
        case PciHeaderType::Type0:
            return PCI_TYPE0_BASE_ADDRESSES;
        case PciHeaderType::Type1:
            return PCI_TYPE1_BASE_ADDRESSES;
        default:
            return 0;
    }
}

// What the register reads after all ones were written; its value is put back.
UINT32 SizeRegister(UINT64 Register, UINT32 Value) {
    PciSegmentWrite32(Register, ALL_ONES);
    const UINT32 Sized = PciSegmentRead32(Register);
    PciSegmentWrite32(Register, Value);
    return Sized;
}

}  // namespace

bool GetMemoryBar(UINT64 Function, UINT8 Index, MEMORY_BAR* Bar) {
    *Bar = {};
    const UINT8 Count = BaseAddressCount(Function);
    if (Index >= Count) {
        return false;
    }
    const UINT64 Register = Function + PCI_BASE_ADDRESS_0 + Index * sizeof(UINT32);
    const UINT32 Low = PciSegmentRead32(Register);
    const bool Is64 = PciBar::Type::Get(Low) == PciBar::Type64;
    if (PciBar::SpaceIsIo::Get(Low) || (Is64 && Index + 1 >= Count)) {
        return false;
    }
    const UINT32 High = Is64 ? PciSegmentRead32(Register + sizeof(UINT32)) : 0;
    const UINT64 Base = static_cast<UINT64>(High) << 32 | (Low & ~PciBar::MemoryAttributes);

    const UINT32 SizedLow = SizeRegister(Register, Low) & ~PciBar::MemoryAttributes;
    const UINT32 SizedHigh = Is64 ? SizeRegister(Register + sizeof(UINT32), High) : 0;
    const UINT64 Writable = static_cast<UINT64>(SizedHigh) << 32 | SizedLow;
    const UINT64 Size = Writable & (~Writable + 1);  // the lowest bit that can be set
    if (Base == 0 || Size == 0) {
        return false;
    }
    *Bar = {Base, Size, static_cast<BOOLEAN>(Is64 ? TRUE : FALSE)};
    return true;
}

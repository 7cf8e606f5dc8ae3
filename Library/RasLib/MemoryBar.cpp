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

bool SizeMemoryBar(UINT64 Function, UINT8 Index, UINT8 Count, SIZED_MEMORY_BAR* Bar) {
    *Bar = {};
    const UINT64 Register = Function + PCI_BASE_ADDRESS_0 + Index * sizeof(UINT32);
    const UINT32 Low = PciSegmentRead32(Register);
    const bool Is64 = PciBar::Type::Get(Low) == PciBar::Type64;
    if (PciBar::SpaceIsIo::Get(Low) || (Is64 && Index + 1 >= Count)) {
        return false;
    }
    const UINT32 High = Is64 ? PciSegmentRead32(Register + sizeof(UINT32)) : 0;
    const UINT32 SizedLow = SizeRegister(Register, Low) & ~PciBar::MemoryAttributes;
    UINT32 SizedHigh = 0;
    if (Is64) {
        SizedHigh = SizeRegister(Register + sizeof(UINT32), High);
    } else if (SizedLow != 0) {
        SizedHigh = ALL_ONES;  // it decodes addresses below 4 GiB only
    }
    *Bar = {static_cast<UINT64>(High) << 32 | (Low & ~PciBar::MemoryAttributes),
            static_cast<UINT64>(SizedHigh) << 32 | SizedLow, Is64};
    return true;
}

bool GetMemoryBar(UINT64 Function, UINT8 Index, MEMORY_BAR* Bar) {
    *Bar = {};
    const UINT8 Count = BaseAddressCount(Function);
    SIZED_MEMORY_BAR Sized;
    if (Index >= Count || !SizeMemoryBar(Function, Index, Count, &Sized)) {
        return false;
    }
    const UINT64 Size = Sized.SizeMask & (~Sized.SizeMask + 1);  // the lowest bit that can be set
    if (Sized.Base == 0 || Size == 0) {
        return false;
    }
    *Bar = {Sized.Base, Size, static_cast<BOOLEAN>(Sized.Is64 ? TRUE : FALSE)};
    return true;
}

#include "Library/RasLib/PciSegment.h"

#include "Include/McaRegisters.h"
#include "Library/RasLib/Assert.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Constants.h"
#include "Platform/Hardware.h"
#include "Platform/State.h"

namespace {

KYR_STATE PCI_SEGMENT_INFO mPciSegmentInfo[MAX_PCI_SEGMENTS] = {};
KYR_STATE UINT64 mPciSegmentCount = 0;

using AddressSegment = Field<UINT64, 47, 32>;
using AddressInSegment = Field<UINT64, 27, 0>;
constexpr UINT64 BUSES_PER_SEGMENT_MAX = 256;
constexpr UINT64 ECAM_BYTES_PER_BUS = 0x100000;

// Memory address of a configuration register; 0 for a segment without an ECAM region.
UINT64 EcamAddress(UINT64 Address) {
    UINT64 Count = 0;
    const PCI_SEGMENT_INFO* Segments = GetPciSegmentInfo(&Count);
    for (UINT64 At = 0; At < Count; At++) {
        if (Segments[At].SegmentNumber == AddressSegment::Get(Address)) {
            // The bus is not reduced by StartBusNumber: the region's base stands for bus 0.
            return Segments[At].BaseAddress + AddressInSegment::Get(Address);
        }
    }
    return 0;
}

// One access of a buffer read.
template <class Word>
void ReadInto(UINT8*& Buffer, UINT64& Address, UINTN& Left, Word (*Read)(UINT64)) {
    const Word Value = Read(Address);
    CopyMem(Buffer, &Value, sizeof(Word));
    Buffer += sizeof(Word);
    Address += sizeof(Word);
    Left -= sizeof(Word);
}

}  // namespace

UINT64 DescribePciSegments(UINT64 Register, PCI_SEGMENT_INFO* Segments) {
    const UINT64 TotalBuses = UINT64{1} << MmioCfgBaseAddr::BusRange::Get(Register);
    UINT64 SegmentCount = (TotalBuses + BUSES_PER_SEGMENT_MAX - 1) / BUSES_PER_SEGMENT_MAX;
    if (SegmentCount > MAX_PCI_SEGMENTS) {
        TraceAs("PciSegmentInfoLibGetSegmentData", DEBUG_ERROR,
                "%a: Segment Count %d > Max Segments %d, Adjusting downward to max\n", SegmentCount,
                MAX_PCI_SEGMENTS);
        SegmentCount = MAX_PCI_SEGMENTS;
    }
    const UINT64 BusesPerSegment = TotalBuses / SegmentCount;
    UINT64 Base = MmioCfgBaseAddr::BaseAddress::Get(Register) << MmioCfgBaseAddr::BaseAddress::Shift;
    if (Base == 0) {
        Base = DEFAULT_PCI_EXPRESS_BASE_ADDRESS;
    }
    for (UINT64 At = 0; At < SegmentCount; At++) {
        Segments[At] = {static_cast<UINT16>(At), Base, 0, static_cast<UINT8>(BusesPerSegment - 1)};
        Base += BusesPerSegment * ECAM_BYTES_PER_BUS;
    }
    return SegmentCount;
}

EFI_STATUS PciSegmentInfoLibGetSegmentData() {
    const UINT64 Register = AsmReadMsr64(MSR_MMIO_CFG_BASE_ADDR);
    Trace(DEBUG_VERBOSE, "%a: MMIO configuration base 0x%lx BusRange %d Enable %d\n",
          MmioCfgBaseAddr::BaseAddress::Get(Register), MmioCfgBaseAddr::BusRange::Get(Register),
          MmioCfgBaseAddr::Enable::Get(Register));
    mPciSegmentCount = DescribePciSegments(Register, mPciSegmentInfo);
    return EFI_SUCCESS;
}

EFI_STATUS PciSegmentInfoLibConstructor() {
    ZeroMem(mPciSegmentInfo, sizeof(mPciSegmentInfo));
    const EFI_STATUS Status = PciSegmentInfoLibGetSegmentData();
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r retrieving PCI segment information\n", Status);
    }
    return EFI_SUCCESS;
}

const PCI_SEGMENT_INFO* GetPciSegmentInfo(UINT64* Count) {
    if (Count == nullptr) {
        return nullptr;
    }
    if (mPciSegmentCount == 0) {
        const EFI_STATUS Status = PciSegmentInfoLibGetSegmentData();
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r retrieving PCI segment information\n", Status);
        }
    }
    *Count = mPciSegmentCount;
    return mPciSegmentCount == 0 ? nullptr : mPciSegmentInfo;
}

UINT8 PciSegmentRead8(UINT64 Address) {
    const UINT64 Memory = EcamAddress(Address);
    return Memory == 0 ? UINT8{0xFF} : MmioRead8(Memory);
}

UINT16 PciSegmentRead16(UINT64 Address) {
    const UINT64 Memory = EcamAddress(Address);
    return Memory == 0 ? UINT16{0xFFFF} : MmioRead16(Memory);
}

UINT32 PciSegmentRead32(UINT64 Address) {
    const UINT64 Memory = EcamAddress(Address);
    return Memory == 0 ? UINT32{0xFFFFFFFF} : MmioRead32(Memory);
}

void PciSegmentWrite8(UINT64 Address, UINT8 Value) {
    const UINT64 Memory = EcamAddress(Address);
    if (Memory != 0) {
        MmioWrite8(Memory, Value);
    }
}

void PciSegmentWrite16(UINT64 Address, UINT16 Value) {
    const UINT64 Memory = EcamAddress(Address);
    if (Memory != 0) {
        MmioWrite16(Memory, Value);
    }
}

void PciSegmentWrite32(UINT64 Address, UINT32 Value) {
    const UINT64 Memory = EcamAddress(Address);
    if (Memory != 0) {
        MmioWrite32(Memory, Value);
    }
}

UINTN PciSegmentReadBuffer(UINT64 Address, UINTN Size, void* Buffer) {
    const UINTN Room = PCI_CONFIGURATION_SPACE_SIZE - (Address & (PCI_CONFIGURATION_SPACE_SIZE - 1));
    ASSERT(Size <= Room);
    if (Size > Room) {
        return 0;
    }
    auto* Next = static_cast<UINT8*>(Buffer);
    UINTN Left = Size;
    if (Left >= 1 && (Address & 1) != 0) {
        ReadInto(Next, Address, Left, PciSegmentRead8);
    }
    if (Left >= 2 && (Address & 2) != 0) {
        ReadInto(Next, Address, Left, PciSegmentRead16);
    }
    while (Left >= 4) {
        ReadInto(Next, Address, Left, PciSegmentRead32);
    }
    if (Left >= 2) {
        ReadInto(Next, Address, Left, PciSegmentRead16);
    }
    if (Left >= 1) {
        ReadInto(Next, Address, Left, PciSegmentRead8);
    }
    return Size;
}

// PCI configuration space by segment, through ECAM (PCI Express Base 6.0, section 7.2.2).
#pragma once

#include "Include/Topology.h"

inline constexpr UINT32 PCI_CONFIGURATION_SPACE_SIZE = 0x1000;  // bytes of each function

// Segment address: segment in bits 47:32, bus 27:20, device 19:15, function 14:12, register 11:0.
constexpr UINT64 PciSegmentAddress(UINT16 Segment, UINT8 Bus, UINT8 Device, UINT8 Function, UINT16 Register) {
    return static_cast<UINT64>(Segment) << 32 | static_cast<UINT64>(Bus) << 20 |
           static_cast<UINT64>(Device & 0x1F) << 15 | static_cast<UINT64>(Function & 0x7) << 12 | (Register & 0xFFF);
}

// Widens the packed form (segment in bits 31:28, the rest as above).
constexpr UINT64 PciSegmentAddressOfPacked(UINT32 PciAddress) {
    return static_cast<UINT64>(PciAddress >> 28) << 32 | (PciAddress & 0x0FFFFFFF);
}

// Reads and writes at a segment address, naturally aligned. An absent function, or a segment that has no ECAM
// region, reads all ones; writes to it are lost.
UINT8 PciSegmentRead8(UINT64 Address);
UINT16 PciSegmentRead16(UINT64 Address);
UINT32 PciSegmentRead32(UINT64 Address);
void PciSegmentWrite8(UINT64 Address, UINT8 Value);
void PciSegmentWrite16(UINT64 Address, UINT16 Value);
void PciSegmentWrite32(UINT64 Address, UINT32 Value);

// Reads Size bytes from a segment address on with aligned accesses, as wide as they can be. The range must not
// cross a 4 KiB boundary. Returns the bytes read.
UINTN PciSegmentReadBuffer(UINT64 Address, UINTN Size, void* Buffer);

inline constexpr UINTN MAX_PCI_SEGMENTS = 128;

// The segments that a value of the processor's MMIO configuration base register describes, at most
// MAX_PCI_SEGMENTS of them; returns how many.
UINT64 DescribePciSegments(UINT64 Register, PCI_SEGMENT_INFO* Segments);

// Clears and fills the segment table. EFI_SUCCESS; a failure to fill it is only reported.
EFI_STATUS PciSegmentInfoLibConstructor();

// Fills the segment table from the processor's MMIO configuration base register. EFI_SUCCESS.
EFI_STATUS PciSegmentInfoLibGetSegmentData();

// The segment table and its number of entries; filled on first use. NULL when Count is NULL or no segment is
// known.
const PCI_SEGMENT_INFO* GetPciSegmentInfo(UINT64* Count);

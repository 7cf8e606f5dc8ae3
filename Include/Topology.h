// The topology maps that the driver is given: logical processors and PCIe root complexes.
#pragma once

#include "Include/Layout.h"

inline constexpr UINT8 MAX_SOCKETS = 2;
inline constexpr UINT8 MAX_IO_HUBS = 8;  // of a socket

// One logical processor. As the head of RasMcaErrorInfo the record stands alone; in RasCpuMap it is the front
// of a CPU_MAP_ENTRY.
struct CPU_INFO {
    UINT64 ProcessorNumber;  // SMM processor index; 0 is the bootstrap processor
    UINT32 LocalApicId;
    UINT8 SocketId;
    UINT8 CcxId;  // core complex within the die
    UINT8 DieId;
    UINT8 CoreId;    // core within the complex
    UINT8 ThreadId;  // hardware thread within the core
    UINT8 Reserved17[3];
    UINT32 CpuIdLeaf1Eax;
    UINT32 CpuIdLeaf1Ebx;
    UINT32 CpuIdLeaf1Ecx;
    UINT32 CpuIdLeaf1Edx;
    UINT32 Reserved36;
};
KYR_RECORD(CPU_INFO, 40);
KYR_FIELD(CPU_INFO, LocalApicId, 8);
KYR_FIELD(CPU_INFO, SocketId, 12);
KYR_FIELD(CPU_INFO, CcxId, 13);
KYR_FIELD(CPU_INFO, DieId, 14);
KYR_FIELD(CPU_INFO, CoreId, 15);
KYR_FIELD(CPU_INFO, ThreadId, 16);
KYR_FIELD(CPU_INFO, CpuIdLeaf1Eax, 20);
KYR_FIELD(CPU_INFO, CpuIdLeaf1Edx, 32);

struct CPU_MAP_ENTRY {
    CPU_INFO CpuInfo;
    UINT8 Producer[8];  // the map's producer's own
};
KYR_RECORD(CPU_MAP_ENTRY, 48);

// RAS initialisation data of the silicon maker.
struct KYR_RAS_POLICY {
    UINT64 TotalNumberOfProcessors;
    CPU_MAP_ENTRY* RasCpuMap;
};
KYR_RECORD(KYR_RAS_POLICY, 16);

struct RB_BUS_ENTRY {
    UINT8 Socket;
    UINT8 RbIndex;  // root bridge within the socket: the physical IO hub (IOM) number
    UINT8 Producer2[3];
    UINT8 RbBusBase;  // device 0 function 0 of this bus holds the SMN index/data pair
    UINT8 Producer6;
    UINT8 Nbio;
    UINT8 Iohc;  // within the NBIO
    UINT8 RbSeg;
    UINT8 Die;
    UINT8 Producer11[2];
};
KYR_RECORD(RB_BUS_ENTRY, 13);
KYR_FIELD(RB_BUS_ENTRY, RbIndex, 1);
KYR_FIELD(RB_BUS_ENTRY, RbBusBase, 5);
KYR_FIELD(RB_BUS_ENTRY, Nbio, 7);
KYR_FIELD(RB_BUS_ENTRY, Iohc, 8);
KYR_FIELD(RB_BUS_ENTRY, RbSeg, 9);
KYR_FIELD(RB_BUS_ENTRY, Die, 10);

// RbCount entries follow the count.
struct RB_BUS_MAP {
    UINT64 RbCount;
};
KYR_RECORD(RB_BUS_MAP, 8);

inline const RB_BUS_ENTRY* RbBusEntries(const RB_BUS_MAP* Map) {
    return reinterpret_cast<const RB_BUS_ENTRY*>(Map + 1);
}

struct PCI_SEGMENT_INFO {
    UINT16 SegmentNumber;
    UINT64 BaseAddress;  // of the segment's ECAM region
    UINT8 StartBusNumber;
    UINT8 EndBusNumber;
};
KYR_RECORD(PCI_SEGMENT_INFO, 24);
KYR_FIELD(PCI_SEGMENT_INFO, BaseAddress, 8);
KYR_FIELD(PCI_SEGMENT_INFO, StartBusNumber, 16);
KYR_FIELD(PCI_SEGMENT_INFO, EndBusNumber, 17);

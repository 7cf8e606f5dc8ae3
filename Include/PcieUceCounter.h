// How many uncorrectable errors a contained PCIe port has had.
#pragma once

#include "Include/LinkedList.h"

inline constexpr UINT32 PCIE_UCE_COUNTER_SIGNATURE = 0x43454355;  // "UCEC"

// Made at the port's first event, kept for ever. Meant: the segment is not part of the key, ports that differ in
// nothing else share a counter.
struct PCIE_UCE_COUNTER_NODE {
    UINT32 Signature;
    LIST_ENTRY Link;
    UINT8 Bus;
    UINT8 Device;
    UINT8 Function;
    UINT32 UceCount;
};
KYR_RECORD(PCIE_UCE_COUNTER_NODE, 32);
KYR_FIELD(PCIE_UCE_COUNTER_NODE, Link, 8);
KYR_FIELD(PCIE_UCE_COUNTER_NODE, Bus, 24);
KYR_FIELD(PCIE_UCE_COUNTER_NODE, UceCount, 28);

// The node whose Link is Entry.
inline PCIE_UCE_COUNTER_NODE* PcieUceCounter(LIST_ENTRY* Entry) {
    return reinterpret_cast<PCIE_UCE_COUNTER_NODE*>(reinterpret_cast<UINT8*>(Entry) -
                                                    offsetof(PCIE_UCE_COUNTER_NODE, Link));
}

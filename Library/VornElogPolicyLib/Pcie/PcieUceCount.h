// How often a port may be contained before it has to be silent.
#pragma once

#include "Platform/Base.h"

enum PCIE_UCE_LIMIT_STATUS : UINT8 { PcieUceUnderLimit = 0, PcieUceAtLimit = 1, PcieUceOverLimit = 2 };

// Counts an uncorrectable error of a port. The segment does not count: PCIE_UCE_COUNTER_NODE.
// EFI_NOT_FOUND: there is no list of counters; the pool's status when the first error of a port cannot be kept.
EFI_STATUS IncrementPcieUceCount(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func);

// Where the port's count stands towards PcieUceLimit; under it for a port without errors. ClearCount: set it to 0
// first.
PCIE_UCE_LIMIT_STATUS GetPcieUceLimitStatus(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, BOOLEAN ClearCount);

// Silences a port that is at its limit or over it, for good: Device Control reports no errors any more, Root Control
// of a root port or event collector makes no system errors of received messages. PcieCapabilityOffset: of the port.
void CheckForUceLimit(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, BOOLEAN IsRootPort,
                      BOOLEAN IsRootComplexEventCollector, UINT8 PcieCapabilityOffset);

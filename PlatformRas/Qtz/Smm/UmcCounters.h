// Corrected-error counters of the memory controllers: each counts up from a start value.
#pragma once

#include "Include/ChipsetSupportData.h"

// EccErrCntDelta when the counters went backwards.
inline constexpr UINT16 UMC_DELTA_INVALID = 0xBEEF;

// Programs the start value of every active DIMM's counters and sets the shadow counters after it.
// EFI_SUCCESS, or every failure's status ORed; the counters of the other DIMMs are programmed all the same.
EFI_STATUS VornConfigureUmcEccErrCntRegisters();

// How many corrected errors the counters of the error's chip select took since they were last read. Saturated
// counters are started again.
// Level: debug level. pThresholdData is zeroed first and filled on success.
// EFI_INVALID_PARAMETER: a NULL pointer or a chip select that no channel has; EFI_NOT_FOUND: the socket's IO hub is
// unknown or the DIMM is not active; EFI_UNSUPPORTED: the channel does not count, or does not answer.
EFI_STATUS VornGetUmcCeccErrorCounterDelta(UINT64 Level, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                           UmcCeccPfaThresholdData* pThresholdData);

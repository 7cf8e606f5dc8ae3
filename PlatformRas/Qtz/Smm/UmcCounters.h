// Corrected-error counters of the memory controllers. Each counts up from a start value; the driver keeps what it
// read last in shadow counters. A counter is named by socket, UMC channel of the socket, sub-channel, chip select and
// rank multiplier, all from 0.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/PolicyPrivateData.h"
#include "Include/UmcRegisters.h"

// A shadow counter whose hardware counter could not be programmed; it keeps this value for ever.
inline constexpr UINT16 UMC_COUNTER_INVALID = 0xDEAD;
// EccErrCntDelta when the counters went backwards.
inline constexpr UINT16 UMC_DELTA_INVALID = 0xBEEF;

// Programs the start value of every active DIMM's counters and the shadow counters after it.
// EFI_SUCCESS, or every failure's status ORed; the counters of the other DIMMs are programmed all the same.
EFI_STATUS VornConfigureUmcEccErrCntRegisters();

// How many corrected errors the counters of the error's chip select took since they were last read. Saturated
// counters are started again.
// Level: debug level. EFI_INVALID_PARAMETER: a NULL pointer or a chip select that no channel has; EFI_NOT_FOUND: the
// socket's IO hub is unknown or the DIMM is not active; EFI_UNSUPPORTED: the channel does not count.
// pThresholdData is zeroed first and filled on success.
EFI_STATUS VornGetUmcCeccErrorCounterDelta(UINT64 Level, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                           UmcCeccPfaThresholdData* pThresholdData);

// Shadow counters. An index out of range is traced and nothing done; Get returns UMC_COUNTER_INVALID then.
void VornSetPrivateDataUmcCeccErrorCounter(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 SubChannel,
                                           UINT8 ChipSelect, UINT8 RankMul, UINT16 Value);
void VornSetPrivateDataUmcCeccErrorCounterPerChipSelect(UINT64 Level, UINT8 Socket, UINT8 UmcChannel,
                                                        UINT8 ChipSelect, UINT16 Value);
void VornSetPrivateDataUmcCeccErrorCounterPerDimm(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm,
                                                  UINT16 Value);
UINT16 VornGetPrivateDataUmcCeccErrorCounter(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 SubChannel,
                                             UINT8 ChipSelect, UINT8 RankMul);

// What the chip select's last valid shadow counter stands above StartValue; 0 when none is valid. Not a sum, which is
// meant.
void VornGetPrivateDataUmcCeccErrorCounterPerChipSelect(UINT64 Level, UINT8 Socket, UINT8 UmcChannel,
                                                        UINT8 ChipSelect, UINT16 StartValue, UINT16* pErrorCount);

void VornDisplayPrivateDataUmcCeccErrorCounter(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 SubChannel,
                                               UINT8 ChipSelect, UINT8 RankMul);
void VornDisplayPrivateDataUmcCeccErrorCounterPerChipSelect(UINT64 Level, UINT8 Socket, UINT8 UmcChannel,
                                                            UINT8 ChipSelect);
void VornDisplayPrivateDataUmcCeccErrorCounterAll(UINT64 Level);

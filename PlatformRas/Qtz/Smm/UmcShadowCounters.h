// What the driver read last from each corrected-error counter of the memory controllers. A counter is named by
// socket, UMC channel of the socket, sub-channel, chip select and rank multiplier, all from 0; one that no machine
// has is traced and nothing done.
#pragma once

#include "Platform/Base.h"

// A shadow counter whose hardware counter could not be programmed; it keeps this value for ever.
inline constexpr UINT16 UMC_COUNTER_INVALID = 0xDEAD;

// Whether the machine can have the chip select; traced, in the name of Caller, where it cannot.
bool IsUmcChipSelect(UINT8 Socket, UINT8 UmcChannel, UINT8 ChipSelect, const CHAR8* Caller = __builtin_FUNCTION());

// Store Value in one shadow counter, in all of a chip select, in all of a DIMM's two chip selects. Invalid ones stay.
void VornSetPrivateDataUmcCeccErrorCounter(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 SubChannel,
                                           UINT8 ChipSelect, UINT8 RankMul, UINT16 Value);
void VornSetPrivateDataUmcCeccErrorCounterPerChipSelect(UINT64 Level, UINT8 Socket, UINT8 UmcChannel,
                                                        UINT8 ChipSelect, UINT16 Value);
void VornSetPrivateDataUmcCeccErrorCounterPerDimm(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm,
                                                  UINT16 Value);

// One shadow counter; UMC_COUNTER_INVALID for one that no machine has.
UINT16 VornGetPrivateDataUmcCeccErrorCounter(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 SubChannel,
                                             UINT8 ChipSelect, UINT8 RankMul);

// How far the chip select's last valid shadow counter stands above StartValue; 0 when none is valid. Of the last one
// alone, not of all, which is meant.
void VornGetPrivateDataUmcCeccErrorCounterPerChipSelect(UINT64 Level, UINT8 Socket, UINT8 UmcChannel,
                                                        UINT8 ChipSelect, UINT16 StartValue, UINT16* pErrorCount);

// Print one shadow counter, those of a chip select, all.
void VornDisplayPrivateDataUmcCeccErrorCounter(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 SubChannel,
                                               UINT8 ChipSelect, UINT8 RankMul);
void VornDisplayPrivateDataUmcCeccErrorCounterPerChipSelect(UINT64 Level, UINT8 Socket, UINT8 UmcChannel,
                                                            UINT8 ChipSelect);
void VornDisplayPrivateDataUmcCeccErrorCounterAll(UINT64 Level);

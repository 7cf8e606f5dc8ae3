#include "PlatformRas/Qtz/Smm/UmcShadowCounters.h"

#include "Include/MemorySlots.h"
#include "Include/UmcRegisters.h"
#include "Library/RasLib/Trace.h"
#include "Platform/State.h"

namespace {

KYR_STATE UINT16
    mUmcCeccErrorCount[MAX_SOCKETS][MAX_UMC_CHANNELS][UMC_SUB_CHANNELS][UMC_CHIP_SELECTS][UMC_RANK_MULTIPLIERS] = {};

constexpr UINT64 SILENT = 0;  // the level of no trace

constexpr UINT8 CHIP_SELECTS_PER_DIMM = UMC_CHIP_SELECTS / MAX_DIMMS_PER_CHANNEL;

// NULL for a counter that no machine has.
UINT16* ShadowCounter(UINT8 Socket, UINT8 UmcChannel, UINT8 SubChannel, UINT8 ChipSelect, UINT8 RankMul,
                      const CHAR8* Caller = __builtin_FUNCTION()) {
    if (!IsUmcChipSelect(Socket, UmcChannel, ChipSelect, Caller)) {
        return nullptr;
    }
    if (SubChannel >= UMC_SUB_CHANNELS || RankMul >= UMC_RANK_MULTIPLIERS) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR SubCh %d >= Max %d or RankMul %d >= Max %d, aborting...\n",
                SubChannel, UMC_SUB_CHANNELS, RankMul, UMC_RANK_MULTIPLIERS);
        return nullptr;
    }
    return &mUmcCeccErrorCount[Socket][UmcChannel][SubChannel][ChipSelect][RankMul];
}

}  // namespace

bool IsUmcChipSelect(UINT8 Socket, UINT8 UmcChannel, UINT8 ChipSelect, const CHAR8* Caller) {
    if (Socket >= MAX_SOCKETS || UmcChannel >= MAX_UMC_CHANNELS || ChipSelect >= UMC_CHIP_SELECTS) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR PspSocket %d >= Max %d, PspChannel %d >= Max %d or ChipSelect %d >= Max %d, "
                "aborting...\n",
                Socket, MAX_SOCKETS, UmcChannel, MAX_UMC_CHANNELS, ChipSelect, UMC_CHIP_SELECTS);
        return false;
    }
    return true;
}

void VornSetPrivateDataUmcCeccErrorCounter(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 SubChannel,
                                           UINT8 ChipSelect, UINT8 RankMul, UINT16 Value) {
    UINT16* const pCounter = ShadowCounter(Socket, UmcChannel, SubChannel, ChipSelect, RankMul);
    if (pCounter == nullptr) {
        return;
    }
    if (*pCounter == UMC_COUNTER_INVALID) {
        Trace(DEBUG_ERROR,
              "%a: ERROR mUmcCeccErrorCount[PspSocket %d][PspChannel %2d][SubCh %d][ChipSelect %d][RankMul %d] = "
              "0x%04x (invalid), aborting...\n",
              Socket, UmcChannel, SubChannel, ChipSelect, RankMul, *pCounter);
        return;
    }
    if (*pCounter != Value) {
        Trace(Level,
              "%a: mUmcCeccErrorCount[PspSocket %d][PspChannel %2d][SubCh %d][ChipSelect %d][RankMul %d] = 0x%04x\n",
              Socket, UmcChannel, SubChannel, ChipSelect, RankMul, Value);
    }
    *pCounter = Value;
}

void VornSetPrivateDataUmcCeccErrorCounterPerChipSelect(UINT64 Level, UINT8 Socket, UINT8 UmcChannel,
                                                        UINT8 ChipSelect, UINT16 Value) {
    Trace(Level, "%a: PspSocket %d PspChannel %2d ChipSelect %d = 0x%04x\n", Socket, UmcChannel, ChipSelect, Value);
    for (UINT8 SubChannel = 0; SubChannel < UMC_SUB_CHANNELS; SubChannel++) {
        for (UINT8 RankMul = 0; RankMul < UMC_RANK_MULTIPLIERS; RankMul++) {
            VornSetPrivateDataUmcCeccErrorCounter(SILENT, Socket, UmcChannel, SubChannel, ChipSelect, RankMul, Value);
        }
    }
}

void VornSetPrivateDataUmcCeccErrorCounterPerDimm(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm,
                                                  UINT16 Value) {
    if (Dimm >= MAX_DIMMS_PER_CHANNEL) {
        Trace(DEBUG_ERROR, "%a: ERROR Dimm %d >= Max %d, aborting...\n", Dimm, MAX_DIMMS_PER_CHANNEL);
        return;
    }
    for (UINT8 Rank = 0; Rank < CHIP_SELECTS_PER_DIMM; Rank++) {
        VornSetPrivateDataUmcCeccErrorCounterPerChipSelect(
            Level, Socket, UmcChannel, static_cast<UINT8>(CHIP_SELECTS_PER_DIMM * Dimm + Rank), Value);
    }
}

UINT16 VornGetPrivateDataUmcCeccErrorCounter(UINT64, UINT8 Socket, UINT8 UmcChannel, UINT8 SubChannel,
                                             UINT8 ChipSelect, UINT8 RankMul) {
    const UINT16* const pCounter = ShadowCounter(Socket, UmcChannel, SubChannel, ChipSelect, RankMul);
    return pCounter == nullptr ? UMC_COUNTER_INVALID : *pCounter;
}

void VornGetPrivateDataUmcCeccErrorCounterPerChipSelect(UINT64 Level, UINT8 Socket, UINT8 UmcChannel,
                                                        UINT8 ChipSelect, UINT16 StartValue, UINT16* pErrorCount) {
    *pErrorCount = 0;
    for (UINT8 SubChannel = 0; SubChannel < UMC_SUB_CHANNELS; SubChannel++) {
        for (UINT8 RankMul = 0; RankMul < UMC_RANK_MULTIPLIERS; RankMul++) {
            const UINT16 Counter =
                VornGetPrivateDataUmcCeccErrorCounter(Level, Socket, UmcChannel, SubChannel, ChipSelect, RankMul);
            if (Counter != UMC_COUNTER_INVALID) {
                *pErrorCount = static_cast<UINT16>(Counter - StartValue);
            }
        }
    }
    Trace(Level, "%a: PspSocket %d PspChannel %2d ChipSelect %d => 0x%04x\n", Socket, UmcChannel, ChipSelect,
          *pErrorCount);
}

void VornDisplayPrivateDataUmcCeccErrorCounter(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 SubChannel,
                                               UINT8 ChipSelect, UINT8 RankMul) {
    const UINT16* const pCounter = ShadowCounter(Socket, UmcChannel, SubChannel, ChipSelect, RankMul);
    if (pCounter != nullptr) {
        Trace(Level,
              "%a: mUmcCeccErrorCount[PspSocket %d][PspChannel %2d][SubCh %d][ChipSelect %d][RankMul %d] = 0x%04x\n",
              Socket, UmcChannel, SubChannel, ChipSelect, RankMul, *pCounter);
    }
}

void VornDisplayPrivateDataUmcCeccErrorCounterPerChipSelect(UINT64 Level, UINT8 Socket, UINT8 UmcChannel,
                                                            UINT8 ChipSelect) {
    if (!IsUmcChipSelect(Socket, UmcChannel, ChipSelect)) {
        return;
    }
    for (UINT8 SubChannel = 0; SubChannel < UMC_SUB_CHANNELS; SubChannel++) {
        const UINT16(&Counters)[UMC_RANK_MULTIPLIERS] =
            mUmcCeccErrorCount[Socket][UmcChannel][SubChannel][ChipSelect];
        Trace(Level,
              "%a: PspSocket %d PspChannel %2d SubCh %d ChipSelect %d => 0x%04x 0x%04x 0x%04x 0x%04x 0x%04x 0x%04x "
              "0x%04x 0x%04x\n",
              Socket, UmcChannel, SubChannel, ChipSelect, Counters[0], Counters[1], Counters[2], Counters[3],
              Counters[4], Counters[5], Counters[6], Counters[7]);
    }
}

void VornDisplayPrivateDataUmcCeccErrorCounterAll(UINT64 Level) {
    for (UINT8 Socket = 0; Socket < MAX_SOCKETS; Socket++) {
        for (UINT8 UmcChannel = 0; UmcChannel < MAX_UMC_CHANNELS; UmcChannel++) {
            for (UINT8 ChipSelect = 0; ChipSelect < UMC_CHIP_SELECTS; ChipSelect++) {
                VornDisplayPrivateDataUmcCeccErrorCounterPerChipSelect(Level, Socket, UmcChannel, ChipSelect);
            }
        }
    }
}

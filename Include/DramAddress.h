// A DRAM address as the RAS service's translation takes it.
#pragma once

#include "Include/Layout.h"

struct DRAM_ADDRESS {
    UINT8 ChipSelect;
    UINT8 Bank;
    UINT8 Reserved2[2];
    UINT32 Row;
    UINT16 Column;
    UINT8 RankMultiplier;
    UINT8 SubChannel;
    UINT8 Reserved12[24];
};
KYR_RECORD(DRAM_ADDRESS, 36);
KYR_FIELD(DRAM_ADDRESS, Bank, 1);
KYR_FIELD(DRAM_ADDRESS, Row, 4);
KYR_FIELD(DRAM_ADDRESS, Column, 8);
KYR_FIELD(DRAM_ADDRESS, RankMultiplier, 10);
KYR_FIELD(DRAM_ADDRESS, SubChannel, 11);

// One DRAM row in a DIMM's history of rows with corrected errors.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/LinkedList.h"

inline constexpr UINT32 UNIQUE_ROW_INSTANCE_SIGNATURE = 0xDEADDEAD;
inline constexpr UINTN UNIQUE_ROW_CPER_SIZE = 408;

// The key stands in front: a search touches one cache line or two of each node and leaves the copies alone.
struct UNIQUE_ROW_INSTANCE_NODE {
    UINT32 Signature;
    LIST_ENTRY Link;
    UINT8 ChipSelect;  // physical rank on the channel
    UINT8 RankMul;
    UINT32 DeviceStart;  // first and last DRAM device that the error symbol maps to
    UINT32 DeviceEnd;
    UINT8 Bank;
    UINT32 Row;
    UINT32 NumberCecc;                            // corrected errors counted against the row
    UINT8 Cper[UNIQUE_ROW_CPER_SIZE];             // front of the latest error's record
    KYR_CHIPSET_SUPPORT_DATA ChipsetSupportData;  // of the latest error
};
KYR_RECORD(UNIQUE_ROW_INSTANCE_NODE, 10824);
KYR_FIELD(UNIQUE_ROW_INSTANCE_NODE, Link, 8);
KYR_FIELD(UNIQUE_ROW_INSTANCE_NODE, ChipSelect, 24);
KYR_FIELD(UNIQUE_ROW_INSTANCE_NODE, RankMul, 25);
KYR_FIELD(UNIQUE_ROW_INSTANCE_NODE, DeviceStart, 28);
KYR_FIELD(UNIQUE_ROW_INSTANCE_NODE, DeviceEnd, 32);
KYR_FIELD(UNIQUE_ROW_INSTANCE_NODE, Bank, 36);
KYR_FIELD(UNIQUE_ROW_INSTANCE_NODE, Row, 40);
KYR_FIELD(UNIQUE_ROW_INSTANCE_NODE, NumberCecc, 44);
KYR_FIELD(UNIQUE_ROW_INSTANCE_NODE, Cper, 48);
KYR_FIELD(UNIQUE_ROW_INSTANCE_NODE, ChipsetSupportData, 456);

// The node whose Link is Entry.
inline UNIQUE_ROW_INSTANCE_NODE* RowInstance(LIST_ENTRY* Entry) {
    return reinterpret_cast<UNIQUE_ROW_INSTANCE_NODE*>(reinterpret_cast<UINT8*>(Entry) -
                                                       offsetof(UNIQUE_ROW_INSTANCE_NODE, Link));
}

// The platform's view of its DIMM slots.
#pragma once

#include "Include/Field.h"
#include "Include/Topology.h"

inline constexpr UINT8 MAX_UMC_CHANNELS = 12;  // of a socket
inline constexpr UINT8 MAX_DIMMS_PER_CHANNEL = 2;
inline constexpr UINT16 MAX_DIMM_SLOTS = MAX_SOCKETS * MAX_UMC_CHANNELS * MAX_DIMMS_PER_CHANNEL;

struct DIMM_MAP_ENTRY {
    UINT8 Socket;
    UINT8 UmcChannel;
    UINT8 Producer2;
    UINT8 Dimm;  // on the channel
    UINT8 Producer4[4];
    const CHAR16* Label;  // silkscreen label, NULL when the slot has none; owned by the memory interface
};
KYR_RECORD(DIMM_MAP_ENTRY, 16);
KYR_FIELD(DIMM_MAP_ENTRY, UmcChannel, 1);
KYR_FIELD(DIMM_MAP_ENTRY, Dimm, 3);
KYR_FIELD(DIMM_MAP_ENTRY, Label, 8);

// What kind of threshold a slot's DIMM has.
namespace SwThresholdInfo {
using ThresholdType = Field<UINT8, 0>;
using ThresholdMultiplier = Field<UINT8, 3, 1>;
static_assert(FieldsDisjoint<ThresholdType, ThresholdMultiplier>());
}  // namespace SwThresholdInfo

// One slot. The places of socket, channel and DIMM are given; the others are platform constants.
struct VORN_MEMORY_SLOT_INFO {
    UINT8 Populated;
    UINT8 Enabled;
    UINT8 Socket;
    UINT8 UmcChannel;
    UINT8 Producer4;
    UINT8 Dimm;
    UINT8 ThresholdInfo;  // SwThresholdInfo
    UINT8 Producer7;
    UINT32 ThresholdCount;  // corrected errors that foretell a failure
};
KYR_RECORD(VORN_MEMORY_SLOT_INFO, 12);
KYR_FIELD(VORN_MEMORY_SLOT_INFO, Socket, 2);
KYR_FIELD(VORN_MEMORY_SLOT_INFO, UmcChannel, 3);
KYR_FIELD(VORN_MEMORY_SLOT_INFO, Dimm, 5);

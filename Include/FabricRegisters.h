// Registers of the data fabric that say which IO stop decodes a bus, as every socket's fabric holds them. Platform
// constants: a firmware team puts its own values in.
//
// There is a range for each IO stop of each socket (range = socket * 8 + IO stop, but the driver only looks what a
// range holds). A range is two 32-bit registers of fabric function 0, read from socket 0 as a broadcast
// (FABRIC_INSTANCE_BROADCAST): base at 0xE00 + 8 * range, limit at 0xE04 + 8 * range. A range that does not decode
// has Enable 0; a register that is not there reads all ones, whose segment no function has.
#pragma once

#include "Include/Field.h"

inline constexpr UINTN FABRIC_BUS_RANGES = 16;
inline constexpr UINTN FABRIC_BUS_RANGE_FUNCTION = 0;

constexpr UINTN FabricBusRangeBaseRegister(UINTN Range) {
    return 0xE00 + 8 * Range;
}
constexpr UINTN FabricBusRangeLimitRegister(UINTN Range) {
    return 0xE04 + 8 * Range;
}

namespace FabricBusRangeBase {
using FirstBus = Field<UINT32, 23, 16>;
using Segment = Field<UINT32, 15, 8>;
using Enable = Field<UINT32, 0>;
static_assert(FieldsDisjoint<FirstBus, Segment, Enable>());
}  // namespace FabricBusRangeBase

// LastBus belongs to the range. DestinationFabricId is the IO stop's fabric ID as socket 0 numbers it (its register
// 0x50, bits 15:8): the sockets are built alike, DestinationSocket tells them apart.
namespace FabricBusRangeLimit {
using LastBus = Field<UINT32, 23, 16>;
using DestinationSocket = Field<UINT32, 9, 8>;
using DestinationFabricId = Field<UINT32, 7, 0>;
static_assert(FieldsDisjoint<LastBus, DestinationSocket, DestinationFabricId>());
}  // namespace FabricBusRangeLimit

// What this world assumes of the board. A firmware team puts its own values in.
#pragma once

#include "Platform/Base.h"

// Debug levels that print: a mask of DEBUG_ levels.
inline constexpr UINT64 PRINTED_DEBUG_LEVELS = DEBUG_ERROR;

// IO base of the 16550-compatible serial port that the boot firmware has set up.
inline constexpr UINT16 SERIAL_PORT = 0x3F8;

// Status polls for room in the serial port's transmitter before a line is cut: a port that is not there, or that
// hangs, must not hold the processors in SMM.
inline constexpr UINT32 SERIAL_POLL_LIMIT = 100000;

// Whether a failed assertion stops at a breakpoint.
inline constexpr bool STOP_AT_FAILED_ASSERTION = false;

// Frequency that is assumed where none can be found out: above every processor's, so that no stall is too short.
inline constexpr UINT64 FALLBACK_TSC_FREQUENCY_HZ = 6'000'000'000;

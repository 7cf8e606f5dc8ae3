// Events of memory errors. Socket, UmcChannel and Dimm (on the channel) name the DIMM; a DIMM that the platform's
// map does not hold is sent as location 0.
#pragma once

#include "Platform/Base.h"

inline constexpr UINT8 SENSOR_MEMORY_THRESHOLD = 19;
inline constexpr UINT8 SENSOR_MEMORY_ECC = 20;
inline constexpr UINT8 SENSOR_MEMORY_POISON = 21;

// Sends one memory event. SensorNumber: SENSOR_MEMORY_.
void ElogLogMemoryEvent(UINT8 SensorNumber, UINT8 Data1, UINT8 Data2, UINT8 Data3);

// A DIMM's corrected errors passed a limit. Threshold: 1 critical, 2 or 7 half (repair), 4 an eighth; any other is
// traced and nothing sent.
void ElogLogMemoryThresholdError(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm, UINT8 Threshold);

// A corrected ECC error.
void ElogLogMemoryCorrectedEccError(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm);

// An uncorrected ECC error was found and its data marked as poison.
void ElogLogMemoryUncorrectedEccErrorPoisonDetection(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm);

// Poisoned data was used.
void ElogLogMemoryUncorrectedEccErrorPoisonConsumption(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm);

// Event part of an IPMI system event log record (IPMI 2.0, section 32.1).
#pragma once

#include "Include/Layout.h"

struct ELOG_SEL_DATA {
    UINT8 SensorType;
    UINT8 SensorNumber;
    UINT8 EventDirType;  // bit 7 direction, 0 = assertion; bits 6:0 event/reading type
    UINT8 EventData1;
    UINT8 EventData2;
    UINT8 EventData3;
};
KYR_RECORD(ELOG_SEL_DATA, 6);

// Sensor types (IPMI 2.0, table 42-3; 0xC0 and above are the OEM's).
inline constexpr UINT8 SEL_SENSOR_TYPE_PROCESSOR = 0x07;
inline constexpr UINT8 SEL_SENSOR_TYPE_CRITICAL_INTERRUPT = 0x13;
inline constexpr UINT8 SEL_SENSOR_TYPE_OEM_DATA = 0xC1;
inline constexpr UINT8 SEL_SENSOR_TYPE_OEM_MEMORY = 0xD4;
inline constexpr UINT8 SEL_SENSOR_TYPE_OEM_MEMORY_ECC = 0xD5;
inline constexpr UINT8 SEL_SENSOR_TYPE_OEM_MEMORY_POISON = 0xD6;
inline constexpr UINT8 SEL_SENSOR_TYPE_OEM_CHIPSET = 0xDD;
inline constexpr UINT8 SEL_SENSOR_TYPE_OEM_PCIE = 0xDE;
inline constexpr UINT8 SEL_SENSOR_TYPE_OEM_CXL = 0xDF;

// Event/reading types of asserted events (IPMI 2.0, table 42-1; 0x70 to 0x7F are the OEM's).
inline constexpr UINT8 SEL_EVENT_TYPE_SEVERITY = 0x07;
inline constexpr UINT8 SEL_EVENT_TYPE_SENSOR_SPECIFIC = 0x6F;
inline constexpr UINT8 SEL_EVENT_TYPE_OEM_ERROR_INFO = 0x72;
inline constexpr UINT8 SEL_EVENT_TYPE_OEM_ERROR = 0x74;
inline constexpr UINT8 SEL_EVENT_TYPE_OEM_DATA = 0x7E;

// Byte Index of a value, 0 the lowest.
constexpr UINT8 SelByte(UINT64 Value, unsigned Index) {
    return static_cast<UINT8>(Value >> (8 * Index));
}

// How a conventional PCI event names device and function.
constexpr UINT8 SelDeviceFunction(UINT8 Dev, UINT8 Func) {
    return static_cast<UINT8>(Dev << 3 | Func);
}

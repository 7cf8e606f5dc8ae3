#include "Simulator/Firmware/SelMessage.h"

#include <fmt/format.h>

namespace Simulator {

namespace {

constexpr int ANY = -1;

// Bodies that are told by sensor type, sensor number, event type and first data byte alone.
struct FixedMessage {
    UINT8 SensorType;
    UINT8 SensorNumber;
    UINT8 EventDirType;
    int EventData1;
    const char* Id;
};

constexpr FixedMessage FIXED[] = {
    {SEL_SENSOR_TYPE_PROCESSOR, 0x0D, SEL_EVENT_TYPE_SEVERITY, 0xA6, "CPU0704"},
    {SEL_SENSOR_TYPE_CRITICAL_INTERRUPT, 0x05, SEL_EVENT_TYPE_SENSOR_SPECIFIC, 0xA5, "PCI1310"},
    {SEL_SENSOR_TYPE_CRITICAL_INTERRUPT, 0x04, SEL_EVENT_TYPE_SENSOR_SPECIFIC, 0xA4, "PCI1308"},
    {SEL_SENSOR_TYPE_OEM_DATA, 0x28, SEL_EVENT_TYPE_OEM_DATA, ANY, "CPU9000"},
};

// By device class (slot, SBDF, drive or module), then by severity.
constexpr const char* PCIE_IDS[3][4] = {
    {"PCI3043", "CPU9000", "PCI3036", "PCI3039"},
    {"PCI3031", "CPU9000", "PCI3037", "PCI3040"},
    {"PCI3032", "CPU9000", "PCI3038", "PCI3041"},
};
constexpr const char* CXL_IDS[3][4] = {
    {"Cxl1000", "Cxl1010", "Cxl1020", "Cxl1030"},
    {"CXL1002", "CXL1012", "CXL1022", "CXL1032"},
    {"Cxl1001", "Cxl1011", "Cxl1021", "Cxl1031"},
};
constexpr const char* CHIPSET_IDS[] = {"CPU9000", "CPU9000", "PCI3042"};

std::string OfErrorInfo(UINT8 Flags) {
    for (unsigned Bit = 0; Bit < 3; Bit++) {
        if ((Flags >> Bit & 1) != 0) {
            return fmt::format("PST{:04}", 89 + Bit);
        }
    }
    return {};
}

std::string OfDevice(const char* const (&Ids)[3][4], UINT8 EventData1) {
    const unsigned Class = EventData1 >> 2 & 3;
    return Class < 3 ? Ids[Class][EventData1 & 3] : "";
}

std::string OfMemory(const ELOG_SEL_DATA& Body) {
    return fmt::format("MEM{}1{:02}", Body.SensorNumber - 14, Body.EventData1 & 0xF);
}

}  // namespace

std::string SelMessageId(const ELOG_SEL_DATA& Body) {
    for (const FixedMessage& One : FIXED) {
        if (One.SensorType == Body.SensorType && One.SensorNumber == Body.SensorNumber &&
            One.EventDirType == Body.EventDirType && (One.EventData1 == ANY || One.EventData1 == Body.EventData1)) {
            return One.Id;
        }
    }
    switch (Body.SensorType) {
        case SEL_SENSOR_TYPE_OEM_DATA:
            return Body.EventDirType == SEL_EVENT_TYPE_OEM_ERROR_INFO ? OfErrorInfo(Body.EventData2) : "";
        case SEL_SENSOR_TYPE_OEM_MEMORY:
        case SEL_SENSOR_TYPE_OEM_MEMORY_ECC:
        case SEL_SENSOR_TYPE_OEM_MEMORY_POISON:
            return OfMemory(Body);
        case SEL_SENSOR_TYPE_OEM_PCIE:
            return OfDevice(PCIE_IDS, Body.EventData1);
        case SEL_SENSOR_TYPE_OEM_CXL:
            return OfDevice(CXL_IDS, Body.EventData1);
        case SEL_SENSOR_TYPE_OEM_CHIPSET: {
            const unsigned Severity = Body.EventData1 & 0xF;
            return Severity < 3 ? CHIPSET_IDS[Severity] : "";
        }
        default:
            return {};
    }
}

}  // namespace Simulator

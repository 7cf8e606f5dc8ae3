// The data that the platform's other modules hand to the driver: APEI data, topology maps, DIMM slots.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Include/MemorySlots.h"
#include "Include/PlatformApeiData.h"
#include "Platform/Protocol/SiliconServices.h"
#include "Platform/Protocol/VendorServices.h"
#include "Simulator/Configuration.h"
#include "Simulator/Machine/Machine.h"

namespace Simulator {

class PlatformData {
 public:
    // Throws std::invalid_argument for an APEI field that does not exist or a value that it cannot hold.
    PlatformData(const Configuration& Settings, const Machine& Hardware);
    PlatformData(const PlatformData&) = delete;
    PlatformData& operator=(const PlatformData&) = delete;

    KYR_PLATFORM_APEI_DATA Apei{};
    KYR_RAS_POLICY RasPolicy{};
    VORN_MEMORY_ARRAY MemoryArray{};
    std::vector<VORN_MEMORY_SLOT_INFO> SlotInfo;  // in the order of the slot array
    PSP_MBOX_SMM_BUFFER_ADDRESS_PROTOCOL PspMailbox{};
    KYR_SMM_MEMORY_MAP_PROTOCOL MemoryMap{};

 private:
    void SetApeiFields(const Configuration& Settings);
    void BuildProcessorMap(const Machine& Hardware);
    void BuildBusMap(const Machine& Hardware);
    void BuildThresholdMap(const Configuration& Settings);
    void BuildSlots(const Configuration& Settings);
    void BuildMemoryMap();

    CXL_POLICY_DATA CxlPolicy{};
    std::vector<CPU_MAP_ENTRY> ProcessorMap;
    std::vector<UINT64> BusMap;  // RB_BUS_MAP and its entries
    std::vector<UINT8> RasAcpiData;
    OEM_MCA_THRESHOLD_MAP_TABLE ThresholdTable{};
    std::vector<McaThresholdTableEntry> ThresholdEntries;
    std::vector<DIMM_MAP_ENTRY> DimmMap;
    std::vector<std::u16string> Labels;
    std::vector<KYR_MEMORY_REGION> Smram;
    std::vector<KYR_MEMORY_REGION> CommunicationRegions;
};

// Names of the APEI fields that a configuration can set.
std::vector<std::string> ApeiFieldNames();

}  // namespace Simulator

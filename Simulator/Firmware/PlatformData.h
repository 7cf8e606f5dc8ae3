// The data that the platform's other modules hand to the driver: APEI data, topology maps, DIMM slots.
#pragma once

#include <cstdint>
#include <memory_resource>
#include <new>
#include <string>
#include <vector>

#include "Include/MemorySlots.h"
#include "Include/PlatformApeiData.h"
#include "Platform/Protocol/SiliconServices.h"
#include "Platform/Protocol/VendorServices.h"
#include "Simulator/Configuration.h"
#include "Simulator/Firmware/DataArena.h"
#include "Simulator/Machine/Machine.h"

namespace Simulator {

// Every record lies in the arena, so that the driver may trace where it found them.
class PlatformData {
 public:
    // Throws std::invalid_argument for an APEI field that does not exist or a value that it cannot hold.
    PlatformData(const Configuration& Settings, const Machine& Hardware);
    PlatformData(const PlatformData&) = delete;
    PlatformData& operator=(const PlatformData&) = delete;

 private:
    DataArena Arena;
    template <class Record>
    Record& Place() {
        return *new (Arena.allocate(sizeof(Record), alignof(Record))) Record{};
    }

 public:
    KYR_PLATFORM_APEI_DATA& Apei;
    KYR_RAS_POLICY& RasPolicy;
    VORN_MEMORY_ARRAY& MemoryArray;
    std::pmr::vector<VORN_MEMORY_SLOT_INFO> SlotInfo{&Arena};  // in the order of the slot array
    PSP_MBOX_SMM_BUFFER_ADDRESS_PROTOCOL& PspMailbox;
    KYR_SMM_MEMORY_MAP_PROTOCOL& MemoryMap;

 private:
    void SetApeiFields(const Configuration& Settings);
    void BuildProcessorMap(const Machine& Hardware);
    void BuildBusMap(const Machine& Hardware);
    void ListRestrictedPorts(const Machine& Hardware);
    void BuildPortMap(const Configuration& Settings, const Machine& Hardware);
    void BuildThresholdMap(const Configuration& Settings);
    void BuildSlots(const Configuration& Settings);
    void BuildMemoryMap();

    CXL_POLICY_DATA& CxlPolicy;
    std::pmr::vector<CPU_MAP_ENTRY> ProcessorMap{&Arena};
    std::pmr::vector<UINT64> BusMap{&Arena};  // RB_BUS_MAP and its entries
    std::pmr::vector<CXL_RCRB_ENTRY> RestrictedPorts{&Arena};
    std::pmr::vector<UINT8> PortMap{&Arena};  // KYR_PCIE_PORT_MAP and its entries
    std::pmr::vector<UINT8> RasAcpiData{&Arena};
    OEM_MCA_THRESHOLD_MAP_TABLE& ThresholdTable;
    std::pmr::vector<McaThresholdTableEntry> ThresholdEntries{&Arena};
    std::pmr::vector<DIMM_MAP_ENTRY> DimmMap{&Arena};
    std::pmr::vector<std::pmr::u16string> Labels{&Arena};
    UINT8& PspMailboxFlag;
    std::pmr::vector<UINT8> PspMailboxBuffer{&Arena};
    std::pmr::vector<KYR_MEMORY_REGION> Smram{&Arena};
    std::pmr::vector<KYR_MEMORY_REGION> CommunicationRegions{&Arena};
};

// Names of the APEI fields that a configuration can set.
std::vector<std::string> ApeiFieldNames();

}  // namespace Simulator

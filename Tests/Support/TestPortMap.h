// A port map that a test lays out, instead of the platform's.
#pragma once

#include <cstring>
#include <vector>

#include "Include/PciDeviceState.h"
#include "Library/RasLib/Globals.h"

struct TestPort {
    UINT32 RpPciAddr;
    UINT8 PortNumber = 0;
    UINT8 CxlCapable = 0;
    UINT8 CxlMode = 0;
    UINT32 PhysicalBridgePciAddr = 0;
};

// The driver must have started; the map is its for as long as this lives.
class TestPortMap {
 public:
    void Set(const std::vector<TestPort>& Ports) {
        Bytes.assign(sizeof(KYR_PCIE_PORT_MAP) + Ports.size() * sizeof(KYR_PCIE_PORT_MAP_ENTRY), 0);
        auto* Map = reinterpret_cast<KYR_PCIE_PORT_MAP*>(Bytes.data());
        Map->PortCount = static_cast<UINT16>(Ports.size());
        UINT8* Next = Bytes.data() + sizeof(KYR_PCIE_PORT_MAP);
        for (const TestPort& Port : Ports) {
            KYR_PCIE_PORT_MAP_ENTRY Entry{};
            Entry.RpPciAddr = Port.RpPciAddr;
            Entry.PortNumber = Port.PortNumber;
            Entry.CxlCapable = Port.CxlCapable;
            Entry.CxlMode = Port.CxlMode;
            Entry.PhysicalBridgePciAddr = Port.PhysicalBridgePciAddr;
            std::memcpy(Next, &Entry, sizeof(Entry));
            Next += sizeof(Entry);
        }
        mPlatformApeiData->KyrPciePortMap = Map;
        mPlatformApeiData->PciMapValid = 1;
    }

 private:
    std::vector<UINT8> Bytes;
};

// What a machine and its firmware are before they start. The defaults are the default machine.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Platform/Base.h"

namespace Simulator {

// A service member or primitive that misbehaves: calls number Skip+1 .. Skip+Times return Status.
struct Failure {
    EFI_STATUS Status = EFI_DEVICE_ERROR;
    std::uint64_t Times = UINT64_MAX;
    std::uint64_t Skip = 0;
};

struct OemThresholdEntry {
    std::uint16_t HardwareId = 0;
    std::uint16_t McaType = 0;
    std::uint16_t Misc0 = 0;
    std::uint16_t Misc1 = 0;
};

struct Configuration {
    unsigned Sockets = 2;
    unsigned CoresPerSocket = 4;
    unsigned ThreadsPerCore = 2;
    unsigned BanksPerProcessor = 32;  // at most 64
    unsigned ChannelsPerSocket = 12;
    unsigned DimmsPerChannel = 2;
    unsigned RootComplexesPerSocket = 4;
    unsigned PciSegments = 1;  // 2: the second socket's root complexes lie in segment 1
    std::string Clock = "2026-11-24 12:00:00";
    bool ClockUpdateStuck = false;              // update-in-progress never clears
    bool ClockBatteryDead = false;              // valid RAM and time clear
    std::map<std::string, std::uint64_t> Apei;  // fields of the platform APEI data, by name, over the defaults
    std::map<std::string, std::string> Attributes;
    std::map<std::uint64_t, std::uint64_t> Pcd;  // token to value
    unsigned ManufacturingMode = 0;
    bool ApeiOsLoaded = true;
    bool ApeiOsAcknowledges = true;  // a loaded OS lets go of the records that it has read
    std::optional<std::vector<OemThresholdEntry>> OemThresholdMap;
    std::set<std::string> Missing;           // protocols that are not installed, by GUID name (gFoo...Guid)
    std::map<std::string, Failure> Failing;  // service members, by name
    std::set<unsigned> SilentProcessors;     // never answer when a procedure is sent to them
    std::uint64_t FailAllocation = 0;        // the n-th pool allocation fails, counted from boot; 0: none
    bool CheckPool = true;                   // guard bytes and fill patterns; off for benchmarks
    std::uint64_t TraceLevels = 0x80000000 | 0x1 | 0x40 | 0x400000;
};

}  // namespace Simulator

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
#include "Simulator/Machine/PcieSettings.h"

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

// What is different about one DIMM slot.
struct DimmSlotSetting {
    unsigned Socket = 0;
    unsigned Channel = 0;
    unsigned Dimm = 0;  // on the channel
    bool Populated = true;
    bool Enabled = true;  // a disabled DIMM is there, but no address leads to it
    std::optional<unsigned> Threshold;
    std::optional<unsigned> Ranks;
    std::optional<unsigned> RowBits;
    std::optional<std::string> Label;
};

// Memory behind the controllers' channels. Channels and DIMMs on them are counted in Configuration.
struct DramSettings {
    unsigned DimmThreshold = 100;  // corrected errors that foretell a DIMM's failure
    unsigned RanksPerDimm = 2;     // 1 or 2
    unsigned RowBits = 16;         // 10 to 18
    unsigned RankMulBits = 0;      // 2^n ranks in a stack behind one chip select, n up to 3
    unsigned DeviceWidth = 4;      // DQ lines of a DRAM device: 4 or 8
    bool PatrolScrubber = false;   // on at boot
    std::uint64_t ScrubRate = 64;  // bytes that the patrol scrubber walks in a microsecond; 0: it stands still
    std::vector<DimmSlotSetting> Slots;
};

// An operating system that really runs, in a guest whose physical memory is a file, reads the records.
struct SharedErrorSettings {
    std::string Memory;                 // the file
    std::uint64_t PhysicalAddress = 0;  // of the error source in it
    double PatienceSeconds = 60;        // real time that the guest is given to acknowledge a block
};

struct Configuration {
    unsigned Sockets = 2;
    unsigned CoresPerSocket = 4;
    unsigned ThreadsPerCore = 2;
    unsigned BanksPerProcessor = 32;            // at most 64
    std::uint32_t CpuidSignature = 0x00B00F10;  // CPUID leaf 1 EAX
    unsigned ChannelsPerSocket = 12;
    unsigned DimmsPerChannel = 2;
    DramSettings Dram;
    unsigned OemRasInstances = 1;  // who wants to hear of runtime repairs; at most 4
    unsigned RootComplexesPerSocket = 4;
    unsigned PciSegments = 1;  // 1, 2 or 4; with more than one the second socket's root complexes lie in segment 1
    PcieSettings Pcie;
    std::string Clock = "2026-11-24 12:00:00";
    bool ClockUpdateStuck = false;              // update-in-progress never clears
    bool ClockBatteryDead = false;              // valid RAM and time clear
    std::map<std::string, std::uint64_t> Apei;  // fields of the platform APEI data, by name, over the defaults
    std::map<std::string, std::string> Attributes;
    std::map<std::uint64_t, std::uint64_t> Pcd;  // token to value
    unsigned ManufacturingMode = 0;
    bool ApeiOsLoaded = true;
    bool ApeiOsAcknowledges = true;  // a loaded OS lets go of the records that it has read
    std::optional<SharedErrorSettings> SharedErrors;
    std::optional<std::vector<OemThresholdEntry>> OemThresholdMap;
    std::set<std::string> Missing;           // protocols that are not installed, by GUID name (gFoo...Guid)
    std::map<std::string, Failure> Failing;  // service members, by name
    std::set<unsigned> SilentProcessors;     // never answer when a procedure is sent to them
    std::uint64_t FailAllocation = 0;        // the n-th pool allocation fails, counted from boot; 0: none
    bool CheckPool = true;                   // guard bytes and fill patterns; off for benchmarks
    std::uint64_t TraceLevels = 0x80000000 | 0x1 | 0x40 | 0x400000;
};

}  // namespace Simulator

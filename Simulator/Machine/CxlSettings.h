// What the CXL side of a function is made of, as it is described before it is built.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace Simulator {

// A doubleword that reads as given, whatever the register is.
struct CxlRegisterPatch {
    std::uint64_t Offset = 0;  // in the block, a multiple of 4
    std::uint32_t Value = 0;
};

// An entry of the register locator.
struct CxlLocatorEntry {
    unsigned Bar = 0;
    unsigned Block = 0;  // identifier
    std::uint64_t Offset = 0;
};

struct CxlSetting {
    bool IsMemoryDevice = false;  // device registers with mailboxes and event logs; ports and accelerators have none
    bool IsRestricted = false;    // a CXL 1.1 device, with root complex register blocks for its link
    bool HasRas = true;
    bool HasSecondaryMailbox = true;
    unsigned PayloadExponent = 11;          // payload of 2^n bytes, 8 to 20
    std::uint64_t CommandTime = 100;        // microseconds that a mailbox command takes
    std::uint64_t BackgroundTime = 0;       // microseconds that a background operation takes
    unsigned EventLogCapacity = 256;        // records of each log
    unsigned EventInterrupts = 2;           // how event logs signal at boot: 0 not, 1 to the OS, 2 to the firmware
    std::optional<unsigned> LocatorLength;  // bytes that the register locator tells of itself
    std::optional<std::vector<CxlLocatorEntry>> Locator;
    std::vector<CxlRegisterPatch> ComponentPatches;
    std::vector<CxlRegisterPatch> DevicePatches;
};

}  // namespace Simulator

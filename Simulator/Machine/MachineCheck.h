// An error as it happens in hardware.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Simulator {

// Registers of one bank as an error leaves them; what is not given is made by the hardware's rules.
struct MachineCheck {
    unsigned Processor = 0;
    unsigned Bank = 0;
    std::uint64_t Status = 0;
    std::optional<std::uint64_t> Addr, Misc0, Misc1, Config, Ipid, Synd, Synd1, Synd2, DeStat, DeAddr;
    std::optional<std::uint64_t> Ip;  // instruction pointer; makes MCG_STATUS say that it is valid
    std::string FruText;
};

}  // namespace Simulator

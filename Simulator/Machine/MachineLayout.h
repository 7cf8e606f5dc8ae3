// Addresses of the simulated machine that its firmware's data must agree with.
#pragma once

#include <cstdint>

#include "Simulator/Machine/RootComplexes.h"

namespace Simulator {

inline constexpr std::uint64_t ECAM_BASE = 0x80000000;

inline constexpr std::uint32_t SMN_PSP_BASE_ADDR_LO = 0x13B102E0;
inline constexpr std::uint64_t PSP_MAILBOX_OFFSET = 0x10970;  // of the BIOS mailbox, from the PSP's base
inline constexpr std::uint64_t PSP_MAILBOX_SIZE = 0x20;

constexpr std::uint64_t PspMmioBase(unsigned Socket) {
    return 0xFD000000 + Socket * 0x100000;
}

// Fabric ID of the IO stop behind which the root complex lies.
inline constexpr unsigned FIRST_FABRIC_ID = 0x20;
constexpr unsigned FabricIdOf(const RootComplex& Complex) {
    return FIRST_FABRIC_ID + Complex.Socket * 0x20 + Complex.Index;
}

}  // namespace Simulator

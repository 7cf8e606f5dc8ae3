// Where the simulated CXL functions have their register blocks.
#pragma once

#include <bit>
#include <cstdint>

#include "Simulator/Machine/CxlMemoryDevice.h"

namespace Simulator {

inline constexpr unsigned CXL_REGISTER_BAR = 0;

// Component registers first, those of a memory device behind them.
inline std::uint64_t CxlBarSize(const CxlSetting& Setting) {
    return std::bit_ceil(CXL_COMPONENT_REGISTERS_SIZE +
                         (Setting.IsMemoryDevice ? CxlMemoryDevice::SizeFor(Setting) : 0));
}

}  // namespace Simulator

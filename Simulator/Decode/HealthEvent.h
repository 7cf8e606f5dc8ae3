// Memory health events of the BMC, in words.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace Simulator {

// One line; for bytes that are no such event, it says that.
std::string DescribeHealthEvent(std::span<const std::uint8_t> Bytes);

}  // namespace Simulator

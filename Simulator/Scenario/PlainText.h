// Numbers, bytes, and durations as people write them in scenarios and journals.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace Simulator {

// Each of these is empty for a text that does not follow its form.

// Decimal without leading zeros, or 0x and hexadecimal digits; at most 64 bits.
std::optional<std::uint64_t> ParseNumber(std::string_view Text);
// Two hexadecimal digits a byte, one space between: "07 3C 6F". An empty text is no bytes at all.
std::optional<std::vector<std::uint8_t>> ParseBytes(std::string_view Text);
// Microseconds of "1h", "9m59s", "10s", "5ms", "20us" and the like.
std::optional<std::uint64_t> ParseDuration(std::string_view Text);

}  // namespace Simulator

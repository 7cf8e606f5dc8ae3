// The CMOS clock behind its index and data ports.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace Simulator {

class RealTimeClock {
 public:
    // Start is "YYYY-MM-DD HH:MM:SS"; throws std::invalid_argument for anything else. UpdateStuck: the
    // update-in-progress bit never clears. BatteryDead: the valid-RAM-and-time bit is clear.
    RealTimeClock(const std::string& Start, bool UpdateStuck, bool BatteryDead);

    // Now is virtual microseconds since power-on. False for a port that is not the clock's.
    bool Read(std::uint16_t Port, std::uint64_t Now, std::uint8_t& Value) const;
    bool Write(std::uint16_t Port, std::uint8_t Value);

    // Seconds since 1970-01-01 that the clock shows.
    std::uint64_t SecondsSinceEpoch(std::uint64_t Now) const;

 private:
    std::uint8_t ReadRegister(std::uint8_t Index, std::uint64_t Now) const;

    std::uint64_t StartSeconds = 0;
    bool UpdateStuck;
    bool BatteryDead;
    std::uint8_t IndexPort = 0;  // as last written, NMI-disable bit and all
    std::array<std::uint8_t, 128> Memory{};
};

}  // namespace Simulator

#include "Simulator/Machine/RealTimeClock.h"

#include <cstdio>
#include <ctime>
#include <stdexcept>

namespace Simulator {

namespace {

constexpr std::uint16_t INDEX_PORT = 0x70;
constexpr std::uint16_t DATA_PORT = 0x71;
constexpr std::uint16_t INDEX_SHADOW_PORT = 0x74;  // reads back what was written to the index port

constexpr std::uint64_t SECOND = 1'000'000;
// The update bit rises 244 microseconds before the update, which takes another 1984.
constexpr std::uint64_t UPDATE_WINDOW = 244 + 1984;

enum ClockRegister : std::uint8_t {
    Seconds = 0x00,
    Minutes = 0x02,
    Hours = 0x04,
    DayOfWeek = 0x06,
    DayOfMonth = 0x07,
    Month = 0x08,
    Year = 0x09,
    RegisterA = 0x0A,
    RegisterB = 0x0B,
    RegisterC = 0x0C,
    RegisterD = 0x0D,
    Century = 0x32,
};

std::uint8_t Bcd(int Value) {
    return static_cast<std::uint8_t>(Value / 10 << 4 | Value % 10);
}

}  // namespace

RealTimeClock::RealTimeClock(const std::string& Start, bool Stuck, bool Dead)
    : UpdateStuck(Stuck), BatteryDead(Dead) {
    std::tm Time{};
    int Used = 0;
    const int Fields = std::sscanf(Start.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%n", &Time.tm_year, &Time.tm_mon,
                                   &Time.tm_mday, &Time.tm_hour, &Time.tm_min, &Time.tm_sec, &Used);
    const std::tm Wanted = Time;
    Time.tm_year -= 1900;
    Time.tm_mon -= 1;
    const std::time_t Since = timegm(&Time);
    // timegm() turns 31 February into March; a date that comes back changed was none.
    const bool Same = Time.tm_mon + 1 == Wanted.tm_mon && Time.tm_mday == Wanted.tm_mday &&
                      Time.tm_hour == Wanted.tm_hour && Time.tm_min == Wanted.tm_min && Time.tm_sec == Wanted.tm_sec;
    if (Fields != 6 || static_cast<std::size_t>(Used) != Start.size() || Since < 0 || !Same) {
        throw std::invalid_argument("clock \"" + Start + "\" is no time; YYYY-MM-DD HH:MM:SS would be");
    }
    StartSeconds = static_cast<std::uint64_t>(Since);
}

std::uint64_t RealTimeClock::SecondsSinceEpoch(std::uint64_t Now) const {
    return StartSeconds + Now / SECOND;
}

bool RealTimeClock::Read(std::uint16_t Port, std::uint64_t Now, std::uint8_t& Value) const {
    switch (Port) {
        case DATA_PORT:
            Value = ReadRegister(IndexPort & 0x7F, Now);
            return true;
        case INDEX_SHADOW_PORT:
            Value = IndexPort;
            return true;
        default:
            return false;
    }
}

bool RealTimeClock::Write(std::uint16_t Port, std::uint8_t Value) {
    switch (Port) {
        case INDEX_PORT:
            IndexPort = Value;
            return true;
        case DATA_PORT:
            Memory[IndexPort & 0x7F] = Value;
            return true;
        default:
            return false;
    }
}

std::uint8_t RealTimeClock::ReadRegister(std::uint8_t Index, std::uint64_t Now) const {
    const std::time_t Shown = static_cast<std::time_t>(SecondsSinceEpoch(Now));
    std::tm Time{};
    gmtime_r(&Shown, &Time);
    switch (Index) {
        case Seconds:
            return Bcd(Time.tm_sec);
        case Minutes:
            return Bcd(Time.tm_min);
        case Hours:
            return Bcd(Time.tm_hour);
        case DayOfWeek:
            return Bcd(Time.tm_wday + 1);
        case DayOfMonth:
            return Bcd(Time.tm_mday);
        case Month:
            return Bcd(Time.tm_mon + 1);
        case Year:
            return Bcd(Time.tm_year % 100);
        case Century:
            return Bcd((Time.tm_year + 1900) / 100);
        case RegisterA: {
            const bool Updating = UpdateStuck || Now % SECOND >= SECOND - UPDATE_WINDOW;
            return static_cast<std::uint8_t>(0x26 | (Updating ? 0x80 : 0));
        }
        case RegisterB:
            return 0x02;  // BCD, 24 hours
        case RegisterC:
            return 0;
        case RegisterD:
            return BatteryDead ? 0 : 0x80;
        default:
            return Memory[Index];
    }
}

}  // namespace Simulator

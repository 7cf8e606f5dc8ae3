#include "Simulator/Scenario/PlainText.h"

#include <algorithm>
#include <charconv>

namespace Simulator {

namespace {

struct TimeUnit {
    std::string_view Name;
    std::uint64_t Microseconds;
};
constexpr TimeUnit TimeUnits[] = {
    {"us", 1}, {"ms", 1'000}, {"s", 1'000'000}, {"m", 60'000'000}, {"h", 3'600'000'000}};

constexpr std::string_view Digits = "0123456789";

template <class Number>
bool ParseWhole(std::string_view Text, int Base, Number& Into) {
    const auto Parsed = std::from_chars(Text.data(), Text.data() + Text.size(), Into, Base);
    return !Text.empty() && Parsed.ec == std::errc() && Parsed.ptr == Text.data() + Text.size();
}

}  // namespace

std::optional<std::uint64_t> ParseNumber(std::string_view Text) {
    std::uint64_t Value = 0;
    const bool IsHex = Text.starts_with("0x") || Text.starts_with("0X");
    const bool IsOctalLooking = !IsHex && Text.size() > 1 && Text.front() == '0';
    if (IsOctalLooking || !ParseWhole(IsHex ? Text.substr(2) : Text, IsHex ? 16 : 10, Value)) {
        return std::nullopt;
    }
    return Value;
}

std::optional<std::vector<std::uint8_t>> ParseBytes(std::string_view Text) {
    std::vector<std::uint8_t> Bytes;
    for (std::size_t At = 0; At < Text.size(); At += 3) {
        std::uint8_t Byte = 0;
        const bool Ends = At + 2 == Text.size() || (At + 3 < Text.size() && Text[At + 2] == ' ');
        if (!Ends || !ParseWhole(Text.substr(At, 2), 16, Byte)) {
            return std::nullopt;
        }
        Bytes.push_back(Byte);
    }
    return Bytes;
}

std::optional<std::uint64_t> ParseDuration(std::string_view Text) {
    std::uint64_t Total = 0;
    do {
        const std::size_t UnitAt = std::min(Text.find_first_not_of(Digits), Text.size());
        const std::size_t Next = std::min(Text.find_first_of(Digits, UnitAt), Text.size());
        std::uint64_t Factor = 0;
        for (const TimeUnit& Candidate : TimeUnits) {
            Factor = Candidate.Name == Text.substr(UnitAt, Next - UnitAt) ? Candidate.Microseconds : Factor;
        }
        std::uint64_t Amount = 0;
        if (!ParseWhole(Text.substr(0, UnitAt), 10, Amount) || Factor == 0 ||
            __builtin_mul_overflow(Amount, Factor, &Amount) || __builtin_add_overflow(Total, Amount, &Total)) {
            return std::nullopt;
        }
        Text.remove_prefix(Next);
    } while (!Text.empty());
    return Total;
}

}  // namespace Simulator

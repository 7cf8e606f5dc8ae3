#include "Simulator/Scenario/PlainText.h"

#include <charconv>

#include "Simulator/Journal/Journal.h"

namespace Simulator {

namespace {

struct NamedStatus {
    EFI_STATUS Status;
    std::string_view Name;
};
constexpr NamedStatus Statuses[] = {
    {EFI_SUCCESS, "EFI_SUCCESS"},
    {EFI_LOAD_ERROR, "EFI_LOAD_ERROR"},
    {EFI_INVALID_PARAMETER, "EFI_INVALID_PARAMETER"},
    {EFI_UNSUPPORTED, "EFI_UNSUPPORTED"},
    {EFI_BAD_BUFFER_SIZE, "EFI_BAD_BUFFER_SIZE"},
    {EFI_BUFFER_TOO_SMALL, "EFI_BUFFER_TOO_SMALL"},
    {EFI_NOT_READY, "EFI_NOT_READY"},
    {EFI_DEVICE_ERROR, "EFI_DEVICE_ERROR"},
    {EFI_WRITE_PROTECTED, "EFI_WRITE_PROTECTED"},
    {EFI_OUT_OF_RESOURCES, "EFI_OUT_OF_RESOURCES"},
    {EFI_NOT_FOUND, "EFI_NOT_FOUND"},
    {EFI_ACCESS_DENIED, "EFI_ACCESS_DENIED"},
    {EFI_TIMEOUT, "EFI_TIMEOUT"},
    {EFI_NOT_STARTED, "EFI_NOT_STARTED"},
    {EFI_ALREADY_STARTED, "EFI_ALREADY_STARTED"},
    {EFI_ABORTED, "EFI_ABORTED"},
};

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

std::optional<EFI_STATUS> StatusOfName(std::string_view Name) {
    for (const NamedStatus& Candidate : Statuses) {
        if (Candidate.Name == Name) {
            return Candidate.Status;
        }
    }
    return std::nullopt;
}

std::vector<std::string_view> StatusNames() {
    std::vector<std::string_view> Names;
    for (const NamedStatus& Candidate : Statuses) {
        Names.push_back(Candidate.Name);
    }
    return Names;
}

std::string StatusName(EFI_STATUS Status) {
    for (const NamedStatus& Candidate : Statuses) {
        if (Candidate.Status == Status) {
            return std::string(Candidate.Name);
        }
    }
    return Hex(static_cast<std::uint64_t>(Status));
}

}  // namespace Simulator

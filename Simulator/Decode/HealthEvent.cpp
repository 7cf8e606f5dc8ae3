#include "Simulator/Decode/HealthEvent.h"

#include <fmt/format.h>

#include <cstring>

#include "Include/MemoryHealthEvents.h"
#include "Include/RuntimePpr.h"

namespace Simulator {

namespace {

constexpr const char* EVENT_TYPES[] = {nullptr, "poison created", "corrected errors", "corrected error",
                                       "poison consumed"};

template <class Record>
Record Take(std::span<const std::uint8_t> Bytes) {
    Record Result;
    std::memcpy(&Result, Bytes.data(), sizeof(Result));
    return Result;
}

std::string DescribeError(const HOST_ECC_EVENT_DATA& Event) {
    const char* Type = Event.EventType < std::size(EVENT_TYPES) ? EVENT_TYPES[Event.EventType] : nullptr;
    return fmt::format("slot {}: {}, rank {} bank {}.{} row 0x{:x}, rank counts {}", Event.DimmSlot,
                       Type == nullptr ? "unknown event" : Type, Event.RankOnDimm, Event.BankGroup, Event.BankAddress,
                       std::uint32_t{Event.Row}, std::uint16_t{Event.ErrorCount});
}

std::string DescribeRepair(const PPR_EVENT_DATA& Event) {
    const char* Result = Event.Result == RuntimePprPassed   ? "passed"
                         : Event.Result == RuntimePprFailed ? "failed"
                                                            : "was not verified";
    return fmt::format("slot {}: repair {}, bank {}.{} row 0x{:x}, device mask 0x{:x}", Event.DimmSlot, Result,
                       Event.BankGroup, Event.BankAddress, std::uint32_t{Event.Row}, std::uint32_t{Event.DeviceMask});
}

}  // namespace

std::string DescribeHealthEvent(std::span<const std::uint8_t> Bytes) {
    switch (Bytes.size()) {
        case sizeof(HOST_ECC_EVENT_DATA):
            return DescribeError(Take<HOST_ECC_EVENT_DATA>(Bytes));
        case sizeof(PPR_EVENT_DATA):
            return DescribeRepair(Take<PPR_EVENT_DATA>(Bytes));
        default:
            return fmt::format("no event: {} bytes", Bytes.size());
    }
}

}  // namespace Simulator

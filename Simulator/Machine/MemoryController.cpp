#include "Simulator/Machine/MemoryController.h"

#include <algorithm>

namespace Simulator {

namespace {

constexpr std::uint64_t SCRUB_LINE_MASK = 63;  // the scrubber's address names a line

std::uint64_t SetHalf(std::uint64_t Old, unsigned Shift, std::uint32_t Half) {
    return (Old & ~(std::uint64_t{0xFFFFFFFF} << Shift)) | std::uint64_t{Half} << Shift;
}

}  // namespace

void MemoryController::Configure(std::uint64_t Bytes, std::uint64_t Rate) {
    Capacity = Bytes;
    ScrubRate = Rate;
}

std::optional<std::uint32_t> MemoryController::Read(std::uint32_t Register) const {
    if (Register >= UMC_ADDRESS_CONFIG && Register < UMC_ADDRESS_CONFIG + sizeof(AddressConfig) &&
        Register % 4 == 0) {
        return AddressConfig[(Register - UMC_ADDRESS_CONFIG) / 4];
    }
    switch (Register) {
        case UMC_DRAM_SCRUB_CTRL:
            return ScrubControl;
        case UMC_DRAM_SCRUB_ADDR_LO:
            return static_cast<std::uint32_t>(ScrubPosition & ~SCRUB_LINE_MASK);
        case UMC_DRAM_SCRUB_ADDR_HI:
            return static_cast<std::uint32_t>(ScrubPosition >> 32);
        case UMC_ECC_ERR_CNT_SEL:
            return Select;
        case UMC_ECC_ERR_CNT:
            return Counters[Selected()];
        case UMC_ECC_ERR_CNT_CTRL:
            return Control;
        default:
            return std::nullopt;
    }
}

bool MemoryController::Write(std::uint32_t Register, std::uint32_t Value) {
    switch (Register) {
        case UMC_DRAM_SCRUB_CTRL:
            ScrubControl = Value;
            ScrubberTouched = true;
            return true;
        case UMC_DRAM_SCRUB_ADDR_LO:
            ScrubPosition = SetHalf(ScrubPosition, 0, Value & ~static_cast<std::uint32_t>(SCRUB_LINE_MASK));
            return true;
        case UMC_DRAM_SCRUB_ADDR_HI:
            ScrubPosition = SetHalf(ScrubPosition, 32, Value);
            return true;
        case UMC_ECC_ERR_CNT_SEL:
            Select = Value;
            return true;
        case UMC_ECC_ERR_CNT:
            Counters[Selected()] = static_cast<std::uint16_t>(EccErrCnt::Count::Get(Value));
            return true;
        case UMC_ECC_ERR_CNT_CTRL:
            Control = Value & (EccErrCntCtrl::EccErrInt::Mask | EccErrCntCtrl::EccErrCntEn::Mask);
            return true;
        default:
            return false;  // how addresses decode is settled before the system runs
    }
}

std::uint32_t MemoryController::Count(const EccCounter& Which) {
    if (EccErrCntCtrl::EccErrCntEn::Get(Control) == 0) {
        return 0;
    }
    std::uint16_t& Counter = Counters[IndexOf(Which)];
    if (Counter != ECC_COUNTER_LIMIT) {
        Counter++;
    }
    const bool Asks = Counter == ECC_COUNTER_LIMIT && !InterruptOff[Which.ChipSelect];
    return Asks ? EccErrCntCtrl::EccErrInt::Get(Control) : 0;
}

void MemoryController::EnableCounting(std::uint32_t Interrupt) {
    Control = EccErrCntCtrl::EccErrInt::Of(Interrupt) | EccErrCntCtrl::EccErrCntEn::Of(1);
}

std::uint64_t MemoryController::Scrub(std::uint64_t Microseconds) {
    const std::uint64_t Walked = Microseconds > Capacity / ScrubRate ? Capacity : Microseconds * ScrubRate;
    ScrubPosition = (ScrubPosition % Capacity + Microseconds % Capacity * ScrubRate) % Capacity;
    return std::min(Walked, Capacity);
}

}  // namespace Simulator

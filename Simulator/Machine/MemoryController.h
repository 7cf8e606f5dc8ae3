// One channel of a memory controller (UMC): its registers, error counters and patrol scrubber.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "Include/UmcRegisters.h"
#include "Simulator/Machine/PciSpace.h"

namespace Simulator {

// Interrupt types of the error counters.
inline constexpr std::uint32_t ECC_INTERRUPT_OS = 1;
inline constexpr std::uint32_t ECC_INTERRUPT_SMI = 2;
inline constexpr std::uint16_t ECC_COUNTER_LIMIT = 0xFFFF;  // the counter stays there

// Which counter: a chip select's, for one rank of its stack in one sub-channel.
struct EccCounter {
    unsigned SubChannel = 0;
    unsigned ChipSelect = 0;
    unsigned RankMul = 0;
};

// Chip selects that a syndrome can name. Each has its address configuration, though a channel has no rank behind all.
inline constexpr unsigned UMC_NAMEABLE_CHIP_SELECTS = 8;

// A controller that the part has, but that is switched off: nothing answers.
class SilentMemoryController : public SmnDevice {
 public:
    std::optional<std::uint32_t> Read(std::uint32_t) const override {
        return UINT32_MAX;
    }
    bool Write(std::uint32_t, std::uint32_t) override {
        return true;
    }
};

class MemoryController : public SmnDevice {
 public:
    static constexpr std::uint32_t REGISTER_BLOCK = 0x1000;  // bytes

    // ScrubberTouched: set whenever the scrubber may have begun to walk.
    explicit MemoryController(bool& ScrubberTouched) : ScrubberTouched(ScrubberTouched) {}

    // Capacity in bytes: where the scrubber begins anew. ScrubRate: bytes a microsecond.
    void Configure(std::uint64_t Capacity, std::uint64_t ScrubRate);
    void SetAddressConfig(unsigned ChipSelect, std::uint32_t Value) {
        AddressConfig[ChipSelect] = Value;
    }

    std::optional<std::uint32_t> Read(std::uint32_t Register) const override;
    bool Write(std::uint32_t Register, std::uint32_t Value) override;

    // A corrected error is counted, if counting is on. The type of the interrupt that comes of it: a counter that is
    // at its limit, or gets there, asks for one with each error, unless its chip select's was switched off.
    std::uint32_t Count(const EccCounter& Which);
    std::uint16_t& CounterValue(const EccCounter& Which) {
        return Counters[IndexOf(Which)];
    }
    void EnableCounting(std::uint32_t Interrupt);
    void SetInterruptOff(unsigned ChipSelect, bool Off) {
        InterruptOff[ChipSelect] = Off;
    }

    bool IsScrubbing() const {
        return DramScrubCtrl::Enable::Get(ScrubControl) != 0 && ScrubRate != 0 && Capacity != 0;
    }
    void EnableScrubber() {
        ScrubControl = DramScrubCtrl::Enable::Set(ScrubControl, 1);
        ScrubberTouched = true;
    }
    std::uint64_t ScrubAddress() const {
        return ScrubPosition;
    }
    // The scrubber walks on; its address begins again behind the last line. At most once around is told: how many
    // bytes from ScrubAddress() before the call it has scrubbed.
    std::uint64_t Scrub(std::uint64_t Microseconds);

 private:
    static constexpr unsigned COUNTERS = UMC_SUB_CHANNELS * UMC_CHIP_SELECTS * UMC_RANK_MULTIPLIERS;
    static std::uint32_t IndexOf(const EccCounter& Which) {
        return EccErrCntSel::SubChannel::Of(Which.SubChannel) | EccErrCntSel::ChipSelect::Of(Which.ChipSelect) |
               EccErrCntSel::RankMul::Of(Which.RankMul);
    }
    std::uint32_t Selected() const {
        return EccErrCntSel::Index::Get(Select);
    }

    bool& ScrubberTouched;
    std::array<std::uint32_t, UMC_NAMEABLE_CHIP_SELECTS> AddressConfig{};
    std::array<std::uint16_t, COUNTERS> Counters{};
    std::array<bool, UMC_CHIP_SELECTS> InterruptOff{};
    std::uint32_t Select = 0;
    std::uint32_t Control = 0;
    std::uint32_t ScrubControl = 0;
    std::uint64_t ScrubPosition = 0;
    std::uint64_t Capacity = 0;
    std::uint64_t ScrubRate = 0;
};

}  // namespace Simulator

// The memory through which firmware hands its records to an operating system that really runs: a generic hardware
// error source, version 2 (ACPI 6.5, section 18.3.2.8), in a file that is also a guest's physical memory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

namespace Simulator {

class SharedErrorSource {
 public:
    // Places from the source's physical address on, as the guest's tables name them.
    static constexpr std::uint64_t STATUS_ADDRESS_REGISTER = 0x0;  // 8 bytes: physical address of the block
    static constexpr std::uint64_t READ_ACKNOWLEDGE_REGISTER = 0x8;
    static constexpr std::uint64_t STATUS_BLOCK = 0x1000;
    static constexpr std::uint64_t SIZE = STATUS_BLOCK + 0x10000;

    // Memory: the file behind the guest's memory. PhysicalAddress: of the source, a multiple of 4096. Throws
    // std::invalid_argument where the file does not reach so far or cannot be mapped.
    SharedErrorSource(const std::filesystem::path& Memory, std::uint64_t PhysicalAddress);
    ~SharedErrorSource();
    SharedErrorSource(const SharedErrorSource&) = delete;
    SharedErrorSource& operator=(const SharedErrorSource&) = delete;

    // Takes the acknowledgement back and lays the block down. The status word comes last: the guest may be polling.
    void Publish(std::span<const std::uint8_t> Block);
    // Whether the guest has let go of what was published last.
    bool IsAcknowledged() const;
    // Gives the guest up to Seconds of real time to do so.
    bool WaitForAcknowledge(double Seconds) const;

 private:
    std::uint8_t* Base = nullptr;
};

}  // namespace Simulator

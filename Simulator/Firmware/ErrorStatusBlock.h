// The generic error status block of a hardware error source (ACPI 6.5, section 18.3.2.7).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace Simulator {

class ErrorStatusBlock {
 public:
    explicit ErrorStatusBlock(std::size_t Capacity) : Capacity(Capacity) {}

    // Adds the record's section as one data entry. Severity: of the record, as CPER writes it.
    enum class AddResult { Added, NotARecord, Full };
    AddResult Add(std::span<const std::uint8_t> Cper, std::uint32_t Severity);
    void Clear() {
        Bytes.clear();
    }
    // The block status is zero: there is nothing to read.
    bool IsEmpty() const {
        return Bytes.empty();
    }
    // The block as it lies in memory; empty for an empty block.
    const std::vector<std::uint8_t>& Contents() const {
        return Bytes;
    }

 private:
    void UpdateHeader(std::uint32_t Severity);

    std::size_t Capacity;  // bytes, header included
    std::vector<std::uint8_t> Bytes;
};

}  // namespace Simulator

// The CXL RAS capability of a port or device (CXL 3.0, section 8.2.4.16): what it logs of CXL.cache and CXL.mem
// errors, and which of them it signals.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "Include/CxlRegisters.h"

namespace Simulator {

// At reset every uncorrectable error is fatal and nothing is masked.
class CxlRasCapability {
 public:
    using HeaderLog = std::array<std::uint32_t, CXL_RAS_HEADER_LOG_DWORDS>;

    // An error happens. Bit: of the status register. True when it is not masked and is to be signalled.
    // Masked or not, its status bit is set; the first error pointer and the header log follow the first unmasked
    // uncorrectable error until its bit is cleared.
    bool LogUncorrectable(unsigned Bit, const HeaderLog& Header);
    bool LogCorrectable(unsigned Bit);
    // Whether the error of that bit counts as fatal.
    bool IsFatal(unsigned Bit) const;

    // Software's side; Register: CXL_RAS_REGISTER or one of the header log's.
    std::uint32_t Read(std::uint32_t Register) const;
    void Write(std::uint32_t Register, std::uint32_t Value);

 private:
    std::uint32_t UncorrectableStatus = 0;
    std::uint32_t UncorrectableMask = 0;
    std::uint32_t UncorrectableSeverity = CxlRasUncorrectable::All::Mask;
    std::uint32_t CorrectableStatus = 0;
    std::uint32_t CorrectableMask = 0;
    std::optional<unsigned> FirstError;
    unsigned FirstErrorPointer = 0;  // keeps its value when the error is cleared
    HeaderLog Log{};
};

}  // namespace Simulator

// A PCIe or PCI error as it happens at a function.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace Simulator {

using TlpWords = std::array<std::uint32_t, 4>;

struct PcieError {
    enum class Source {
        Uncorrectable,  // Bit: of the uncorrectable error status
        Correctable,    // Bit: of the correctable error status
        RpPio,          // Bit: of the RP PIO status of a root port
        Secondary,      // Bit: of the secondary uncorrectable error status of a PCIe-to-PCI bridge
        PciStatus,      // Bit: of the status register, as conventional PCI sets it
        PciSecondary,   // Bit: of a bridge's secondary status
    };
    Source From = Source::Uncorrectable;
    unsigned Bit = 0;
    std::optional<TlpWords> Header{};  // of the TLP that failed; made up for errors that log one
    bool Advisory = false;  // the function is no ultimate destination, or will try again (section 6.2.3.2.4)
};

struct PcieErrorName {
    std::string_view Name;
    PcieError::Source From;
    unsigned Bit;
};
// The errors that can happen, by the standard's names.
std::span<const PcieErrorName> PcieErrorNames();

// TLP headers (section 2.2).
TlpWords MemoryRequest(bool IsWrite, std::uint64_t Address, std::uint16_t Requester, unsigned Doublewords = 1);
TlpWords ConfigurationRequest(bool IsWrite, std::uint16_t Completer, unsigned Register);
TlpWords Message(std::uint8_t Code, std::uint16_t Requester, std::uint16_t VendorId, bool HasData);
// Whether a completion answers a request with this header.
bool IsNonPosted(const TlpWords& Header);

}  // namespace Simulator

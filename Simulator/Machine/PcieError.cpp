#include "Simulator/Machine/PcieError.h"

#include "Include/PciRegisters.h"

namespace Simulator {

namespace {

using From = PcieError::Source;

constexpr PcieErrorName NAMES[] = {
    {"data-link-protocol", From::Uncorrectable, 4},
    {"surprise-down", From::Uncorrectable, 5},
    {"poisoned-tlp", From::Uncorrectable, 12},
    {"flow-control-protocol", From::Uncorrectable, 13},
    {"completion-timeout", From::Uncorrectable, 14},
    {"completer-abort", From::Uncorrectable, 15},
    {"unexpected-completion", From::Uncorrectable, 16},
    {"receiver-overflow", From::Uncorrectable, 17},
    {"malformed-tlp", From::Uncorrectable, 18},
    {"ecrc", From::Uncorrectable, 19},
    {"unsupported-request", From::Uncorrectable, 20},
    {"acs-violation", From::Uncorrectable, 21},
    {"uncorrectable-internal", From::Uncorrectable, 22},
    {"mc-blocked-tlp", From::Uncorrectable, 23},
    {"atomicop-egress-blocked", From::Uncorrectable, 24},
    {"tlp-prefix-blocked", From::Uncorrectable, 25},
    {"poisoned-tlp-egress-blocked", From::Uncorrectable, 26},
    {"receiver", From::Correctable, 0},
    {"bad-tlp", From::Correctable, 6},
    {"bad-dllp", From::Correctable, 7},
    {"replay-num-rollover", From::Correctable, 8},
    {"replay-timer-timeout", From::Correctable, 12},
    {"corrected-internal", From::Correctable, 14},
    {"header-log-overflow", From::Correctable, 15},
    {"rp-pio-config-ur", From::RpPio, 0},
    {"rp-pio-config-ca", From::RpPio, 1},
    {"rp-pio-config-timeout", From::RpPio, 2},
    {"rp-pio-io-ur", From::RpPio, 8},
    {"rp-pio-io-ca", From::RpPio, 9},
    {"rp-pio-io-timeout", From::RpPio, 10},
    {"rp-pio-memory-ur", From::RpPio, 16},
    {"rp-pio-memory-ca", From::RpPio, 17},
    {"rp-pio-memory-timeout", From::RpPio, 18},
    {"secondary-received-target-abort", From::Secondary, 2},
    {"secondary-received-master-abort", From::Secondary, 3},
    {"secondary-data", From::Secondary, 7},
    {"secondary-attribute", From::Secondary, 8},
    {"secondary-address", From::Secondary, 9},
    {"secondary-discard-timer", From::Secondary, 10},
    {"secondary-perr", From::Secondary, 11},
    {"secondary-serr", From::Secondary, 12},
    {"secondary-internal", From::Secondary, 13},
    {"pci-master-data-parity", From::PciStatus, 8},
    {"pci-signaled-target-abort", From::PciStatus, 11},
    {"pci-received-target-abort", From::PciStatus, 12},
    {"pci-received-master-abort", From::PciStatus, 13},
    {"pci-system-error", From::PciStatus, 14},
    {"pci-parity", From::PciStatus, 15},
    {"pci-secondary-master-data-parity", From::PciSecondary, 8},
    {"pci-secondary-signaled-target-abort", From::PciSecondary, 11},
    {"pci-secondary-received-target-abort", From::PciSecondary, 12},
    {"pci-secondary-received-master-abort", From::PciSecondary, 13},
    {"pci-secondary-system-error", From::PciSecondary, 14},
    {"pci-secondary-parity", From::PciSecondary, 15},
};

constexpr std::uint32_t ALL_BYTES = 0xFF;
constexpr std::uint32_t CONFIGURATION_READ = 0x04, CONFIGURATION_WRITE = 0x44;

}  // namespace

std::span<const PcieErrorName> PcieErrorNames() {
    return NAMES;
}

TlpWords MemoryRequest(bool IsWrite, std::uint64_t Address, std::uint16_t Requester, unsigned Doublewords) {
    const bool Is64 = Address >> 32 != 0;
    const UINT32 Type = IsWrite ? (Is64 ? ::TlpHeader::MemWr64 : ::TlpHeader::MemWr32)
                                : (Is64 ? ::TlpHeader::MemRd64 : ::TlpHeader::MemRd32);
    const auto Low = static_cast<std::uint32_t>(Address) & ~3u;
    TlpWords Words{::TlpHeader::FmtType::Of(Type) | ::TlpHeader::Length::Of(Doublewords),
                   std::uint32_t{Requester} << 16 | (Doublewords > 1 ? ALL_BYTES : 0x0F), Low, 0};
    if (Is64) {
        Words[2] = static_cast<std::uint32_t>(Address >> 32);
        Words[3] = Low;
    }
    return Words;
}

TlpWords ConfigurationRequest(bool IsWrite, std::uint16_t Completer, unsigned Register) {
    return {::TlpHeader::FmtType::Of(IsWrite ? CONFIGURATION_WRITE : CONFIGURATION_READ) | 1, 0x0F,
            std::uint32_t{Completer} << 16 | (Register & 0xFFC), 0};
}

TlpWords Message(std::uint8_t Code, std::uint16_t Requester, std::uint16_t VendorId, bool HasData) {
    return {::TlpHeader::FmtType::Of(HasData ? ::TlpHeader::MsgD : ::TlpHeader::Msg) | (HasData ? 1u : 0u),
            std::uint32_t{Requester} << 16 | Code, VendorId, 0};
}

// Posted: memory writes (Fmt 010 and 011, Type 00000) and messages (Type 10rrr).
bool IsNonPosted(const TlpWords& Header) {
    const std::uint32_t FmtType = ::TlpHeader::FmtType::Get(Header[0]);
    const bool IsWrite = FmtType == ::TlpHeader::MemWr32 || FmtType == ::TlpHeader::MemWr64;
    const bool IsMessage = (FmtType & 0x18) == 0x10;
    return !IsWrite && !IsMessage;
}

}  // namespace Simulator

#include <fmt/format.h>

#include "Simulator/Decode/Sections.h"

namespace Simulator {

namespace {

constexpr std::uint32_t BanksBegin = 0xC0002000;
constexpr std::uint32_t BanksEnd = 0xC0002400;  // 64 banks of 16 registers

constexpr const char* RegisterNames[] = {
    "mca-ctl",    "mca-status", "mca-addr",  "mca-misc0", "mca-config", "mca-ipid",  "mca-synd",  "reserved-7",
    "mca-destat", "mca-deaddr", "mca-misc1", "mca-misc2", "mca-misc3",  "mca-misc4", "mca-synd1", "mca-synd2"};

struct Flag {
    unsigned Bit;
    const char* Name;
};
constexpr Flag StatusFlags[] = {{63, "Val"},   {62, "Overflow"}, {61, "UC"},          {60, "En"},
                                {59, "MiscV"}, {58, "AddrV"},    {57, "PCC"},         {56, "ErrCoreIdVal"},
                                {55, "TCC"},   {53, "SyndV"},    {52, "Transparent"}, {46, "CECC"},
                                {45, "UECC"},  {44, "Deferred"}, {43, "Poison"}};

std::string StatusBits(std::uint64_t Status) {
    std::string Text;
    for (const Flag& Candidate : StatusFlags) {
        if (Status >> Candidate.Bit & 1) {
            Text += std::string(Candidate.Name) + " ";
        }
    }
    return Text + fmt::format("extended code {}, code 0x{:04X}", Status >> 16 & 0x3F, Status & 0xFFFF);
}

std::string MiscBits(std::uint64_t Misc) {
    if (!(Misc >> 63)) {
        return "";
    }
    return fmt::format("Valid{}{}{}{} count 0x{:03X}, interrupt type {}", Misc >> 62 & 1 ? " CntP" : "",
                       Misc >> 61 & 1 ? " Locked" : "", Misc >> 51 & 1 ? " CntEn" : "",
                       Misc >> 48 & 1 ? " Ovrflw" : "", Misc >> 32 & 0xFFF, Misc >> 49 & 3);
}

std::string IpidBits(std::uint64_t Ipid) {
    return fmt::format("hardware ID 0x{:03X}, type {}, instance 0x{:08X}", Ipid >> 32 & 0xFFF, Ipid >> 48,
                       Ipid & 0xFFFFFFFF);
}

constexpr const char* Levels[] = {"core", "level 1", "level 2", "generic level"};
constexpr const char* Memories[] = {"instruction", "data", "generic", "reserved type"};
constexpr const char* Requests[] = {"generic",           "generic read", "generic write", "data read", "data write",
                                    "instruction fetch", "prefetch",     "eviction",      "probe"};

}  // namespace

std::string DescribeErrorCode(std::uint16_t ErrorCode) {
    const unsigned Request = ErrorCode >> 4 & 0xF;
    const std::string Asked = Request < std::size(Requests) ? Requests[Request] : "reserved request";
    if ((ErrorCode & 0xFFF0) == 0x0010) {
        return fmt::format("TLB error, {}, {}", Memories[ErrorCode >> 2 & 3], Levels[ErrorCode & 3]);
    }
    if ((ErrorCode & 0xFF00) == 0x0100) {
        return fmt::format("cache error, {}, {}, {}", Memories[ErrorCode >> 2 & 3], Levels[ErrorCode & 3], Asked);
    }
    if ((ErrorCode & 0xF800) == 0x0800) {
        return fmt::format("bus error, {}, {}{}", Levels[ErrorCode & 3], Asked,
                           ErrorCode >> 8 & 1 ? ", timed out" : "");
    }
    if ((ErrorCode & 0xFC00) == 0x0400) {
        return "internal error";
    }
    return fmt::format("error code 0x{:04X}", ErrorCode);
}

std::string DescribeMcaStatus(std::uint64_t Status) {
    const auto Bit = [Status](unsigned Number) { return (Status >> Number & 1) != 0; };
    const char* Severity = Bit(57)   ? "fatal (processor context corrupt)"
                           : Bit(61) ? (Bit(55) ? "uncorrected (thread lost)" : "uncorrected")
                           : Bit(44) ? "deferred"
                           : Bit(52) ? "transparent"
                                     : "corrected";
    return fmt::format("{}, {}", Severity, DescribeErrorCode(static_cast<std::uint16_t>(Status)));
}

DecodedItem DecodeBankRegister(std::uint32_t Msr, std::uint64_t Value) {
    if (Msr < BanksBegin || Msr >= BanksEnd) {
        return {};
    }
    const unsigned Register = Msr & 0xF;
    DecodedItem Item{RegisterNames[Register], fmt::format("0x{:016X}", Value), "", {}};
    switch (Register) {
        case 1:
        case 8:
            Item.Meaning = Value ? StatusBits(Value) : "";
            break;
        case 3:
        case 10:
            Item.Meaning = MiscBits(Value);
            break;
        case 5:
            Item.Meaning = IpidBits(Value);
            break;
        default:
            break;
    }
    return Item;
}

}  // namespace Simulator

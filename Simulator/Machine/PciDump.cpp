#include "Simulator/Machine/PciDump.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <optional>
#include <set>
#include <stdexcept>

#include "Include/PciRegisters.h"

namespace Simulator {

namespace {

constexpr unsigned BYTES_OF_A_LINE = 16;
constexpr unsigned NO_PORT_TYPE = 0x100;
constexpr unsigned HOST_BRIDGE = 0x0600;

std::optional<unsigned> ParseHex(std::string_view Text, std::size_t Digits) {
    unsigned Value = 0;
    const auto [End, Error] = std::from_chars(Text.data(), Text.data() + Text.size(), Value, 16);
    const bool IsAll = Error == std::errc{} && End == Text.data() + Text.size();
    return IsAll && (Digits == 0 || Text.size() == Digits) ? std::optional(Value) : std::nullopt;
}

std::string_view TakeWord(std::string_view& Rest) {
    const std::size_t Start = std::min(Rest.find_first_not_of(" \t\r"), Rest.size());
    const std::size_t End = std::min(Rest.find_first_of(" \t\r", Start), Rest.size());
    const std::string_view Word = Rest.substr(Start, End - Start);
    Rest.remove_prefix(End);
    return Word;
}

// A line of bytes; false where it is none.
bool ReadBytes(std::string_view Line, DumpedFunction& Into) {
    std::string_view First = TakeWord(Line);
    if (!First.ends_with(':')) {
        return false;
    }
    First.remove_suffix(1);
    const std::optional<unsigned> Offset = ParseHex(First, 0);
    if (!Offset || First.size() > 3 || *Offset % BYTES_OF_A_LINE != 0) {
        return false;
    }
    for (unsigned Index = 0; Index < BYTES_OF_A_LINE; Index++) {
        const std::string_view Word = TakeWord(Line);
        if (Word.empty() && Index != 0) {
            break;
        }
        const std::optional<unsigned> Byte = ParseHex(Word, 2);
        if (!Byte) {
            return false;
        }
        Into.Bytes[*Offset + Index] = static_cast<std::uint8_t>(*Byte);
    }
    return TakeWord(Line).empty();
}

bool IsOfRootComplex(const DumpedFunction& Function) {
    switch (Function.PortType()) {
        case PcieRootPort:
        case PcieRootComplexIntegratedEndpoint:
        case PcieRootComplexEventCollector:
            return true;
        case NO_PORT_TYPE:
            return Function.Register(PCI_CLASS_SUBCLASS, 2) == HOST_BRIDGE;
        default:
            return false;
    }
}

}  // namespace

std::uint32_t DumpedFunction::Register(unsigned Offset, unsigned Width) const {
    std::uint32_t Value = 0;
    std::memcpy(&Value, Bytes.data() + Offset, Width);
    return Value;
}

bool DumpedFunction::IsBridge() const {
    return (Bytes[PCI_HEADER_TYPE] & 0x7F) == PciHeaderType::Type1;
}

unsigned DumpedFunction::PortType() const {
    std::set<unsigned> Seen;
    unsigned Offset =
        (Register(PCI_STATUS, 2) & PciStatus::CapabilitiesList) != 0 ? Bytes[PCI_CAPABILITIES_POINTER] & 0xFC : 0;
    while (Offset >= PciCapabilityHeader::LowestPointer && Seen.insert(Offset).second) {
        if (Bytes[Offset] == PciCapabilityPciExpress) {
            return PcieCapabilities::DevicePortType::Get(
                static_cast<UINT16>(Register(Offset + PCIE_CAPABILITIES, 2)));
        }
        Offset = Bytes[Offset + 1] & 0xFC;
    }
    return NO_PORT_TYPE;
}

std::optional<PciAddress> ParsePciAddress(std::string_view Text) {
    PciAddress Where;
    const auto Take = [&Text](char End, std::size_t Digits, unsigned Highest) {
        const std::size_t Length = std::min(Text.find(End), Text.size());
        const std::optional<unsigned> Value = ParseHex(Text.substr(0, Length), Digits);
        Text.remove_prefix(std::min(Length + 1, Text.size()));
        return Value && *Value <= Highest ? Value : std::nullopt;
    };
    if (std::ranges::count(Text, ':') == 2) {
        const auto Segment = Take(':', 4, PciSpace::MAXIMUM_SEGMENTS - 1);
        if (!Segment) {
            return std::nullopt;
        }
        Where.Segment = *Segment;
    }
    const auto Bus = Take(':', 2, 255);
    const auto Device = Take('.', 2, 31);
    const auto Function = Take('\0', 1, 7);
    if (!Bus || !Device || !Function) {
        return std::nullopt;
    }
    Where.Bus = *Bus;
    Where.Device = *Device;
    Where.Function = *Function;
    return Where;
}

std::string PciAddressText(const PciAddress& Where) {
    return fmt::format("{:04x}:{:02x}:{:02x}.{}", Where.Segment, Where.Bus, Where.Device, Where.Function);
}

std::vector<DumpedFunction> ReadPciDump(std::string_view Text) {
    std::vector<DumpedFunction> All;
    for (unsigned Number = 1; !Text.empty(); Number++) {
        const std::size_t End = std::min(Text.find('\n'), Text.size());
        const std::string_view Line = Text.substr(0, End);
        Text.remove_prefix(std::min(End + 1, Text.size()));
        std::string_view Rest = Line;
        const std::string_view First = TakeWord(Rest);
        if (First.empty()) {
            continue;
        }
        if (const auto Where = ParsePciAddress(First)) {
            if (std::ranges::any_of(All, [&](const auto& One) { return One.Where == *Where; })) {
                throw std::invalid_argument(fmt::format("line {}: {} stands there twice", Number, First));
            }
            All.emplace_back().Where = *Where;
        } else if (All.empty() || !ReadBytes(Line, All.back())) {
            throw std::invalid_argument(
                fmt::format("line {}: neither a function (\"BB:DD.F ...\") nor bytes (\"40: 16 bytes\")", Number));
        }
    }
    if (All.empty()) {
        throw std::invalid_argument("the dump holds no function");
    }
    return All;
}

const DumpedFunction* BridgeTo(const std::vector<DumpedFunction>& Functions, const PciAddress& Where) {
    const DumpedFunction* Nearest = nullptr;
    for (const DumpedFunction& One : Functions) {
        const unsigned First = One.Bytes[PCI_SECONDARY_BUS_NUMBER], Last = One.Bytes[PCI_SUBORDINATE_BUS_NUMBER];
        const bool Leads = One.IsBridge() && One.Where.Segment == Where.Segment && First != 0 && First <= Where.Bus &&
                           Where.Bus <= Last && One.Where.Bus < First;
        if (Leads && (Nearest == nullptr || Nearest->Bytes[PCI_SECONDARY_BUS_NUMBER] < First)) {
            Nearest = &One;
        }
    }
    return Nearest;
}

std::vector<std::pair<unsigned, unsigned>> RootBusesOf(const std::vector<DumpedFunction>& Functions) {
    std::set<std::pair<unsigned, unsigned>> Buses;
    for (const DumpedFunction& One : Functions) {
        if (IsOfRootComplex(One) && BridgeTo(Functions, One.Where) == nullptr) {
            Buses.emplace(One.Where.Segment, One.Where.Bus);
        }
    }
    // Somebody has to lead to the others; segment 0 has its root complexes in any case.
    for (const DumpedFunction& One : Functions) {
        const auto After = Buses.upper_bound({One.Where.Segment, One.Where.Bus});
        const bool IsLed = After != Buses.begin() && std::prev(After)->first == One.Where.Segment;
        if (One.Where.Segment != 0 && !IsLed && BridgeTo(Functions, One.Where) == nullptr) {
            Buses.emplace(One.Where.Segment, 0);
        }
    }
    return {Buses.begin(), Buses.end()};
}

std::string WritePciDump(PciSpace& Space) {
    std::string Text;
    for (const auto& [Where, Function] : Space.Functions()) {
        Text +=
            fmt::format("{} {:04x}: {:04x}:{:04x}\n", PciAddressText(Where), Function->Peek(PCI_CLASS_SUBCLASS, 2),
                        Function->Peek(PCI_VENDOR_ID, 2), Function->Peek(PCI_DEVICE_ID, 2));
        for (unsigned Offset = 0; Offset < 4096; Offset += BYTES_OF_A_LINE) {
            Text += fmt::format("{:02x}:", Offset);
            for (unsigned Index = 0; Index < BYTES_OF_A_LINE; Index++) {
                Text += fmt::format(" {:02x}", Function->Peek(Offset + Index, 1));
            }
            Text += '\n';
        }
        Text += '\n';
    }
    return Text;
}

}  // namespace Simulator

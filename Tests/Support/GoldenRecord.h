// Records of PCI functions byte by byte, as the published layouts lay them down, in hexadecimal text.
#pragma once

#include <string>
#include <vector>

#include "Simulator/Simulation.h"
#include "Tests/Support/HexText.h"

inline Simulator::Configuration WithGoldenClock() {
    Simulator::Configuration Settings;
    Settings.Clock = "2026-11-24 13:45:58";
    return Settings;
}

inline std::string Zeros(std::size_t Count) {
    return " " + HexText(std::vector<std::uint8_t>(Count).data(), Count) + " ";
}

// Bytes that count up from First.
inline std::vector<std::uint8_t> CountingBytes(std::uint8_t First, std::size_t Count) {
    std::vector<std::uint8_t> Bytes(Count);
    for (std::size_t At = 0; At < Count; At++) {
        Bytes[At] = static_cast<std::uint8_t>(First + At);
    }
    return Bytes;
}
inline std::string Counting(std::uint8_t First, std::size_t Count) {
    return " " + HexText(CountingBytes(First, Count).data(), Count) + " ";
}

// A number's bytes, the low one first.
inline std::string Bytes(std::uint64_t Value, std::size_t Width) {
    return " " + HexText(&Value, Width) + " ";
}

// Text of a FRU string field.
inline std::string FruText(const std::string& Text) {
    std::string Field = Text;
    Field.resize(20);
    return " " + HexText(Field.data(), Field.size()) + " ";
}

// Header and section descriptor of a record whose one section comes from a PCI function. Severities, lengths and
// flags as bytes; Fru empty for none.
struct GoldenFront {
    const char* HeaderSeverity = "00";
    const char* DescriptorSeverity = "00";
    const char* HeaderFlags = "00";
    const char* RecordLength = "";
    const char* SectionLength = "";
    const char* SectionType = "";
    std::string Fru;

    std::string Text() const {
        return std::string("43 50 45 52  04 02  FF FF FF FF  01 00 ") + HeaderSeverity + " 00 00 00  02 00 00 00  " +
               RecordLength + " 00 00  3A 2D 0D 01 18 0B 1A 14" + Zeros(3 * 16) +
               "1F C0 93 CF 16 1A FC 4D B8 BC 9C 4D AF 67 C1 04" + Zeros(8) + HeaderFlags + " 00 00 00" +
               Zeros(8 + 12) + "C8 00 00 00  " + SectionLength + " 00 00  04 02  " + (Fru.empty() ? "00" : "02") +
               " 00  01 00 00 00  " + SectionType + Zeros(16) + DescriptorSeverity + " 00 00 00" + FruText(Fru);
    }
};

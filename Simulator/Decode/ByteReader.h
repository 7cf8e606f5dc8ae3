// Little-endian reads that never leave their bytes, and bit fields by table.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Simulator/Decode/Decoded.h"

namespace Simulator {

using Bytes = std::span<const std::uint8_t>;

// Reads inside one structure. Where names it in messages; offsets count from its start.
class ByteReader {
 public:
    ByteReader(Bytes Data, std::string_view Where) : Data(Data), Where(Where) {}

    std::uint64_t Number(std::size_t Offset, std::size_t Width) const;
    Bytes Range(std::size_t Offset, std::size_t Length) const;
    std::string Guid(std::size_t Offset) const;
    // The text up to its NUL, at most Length bytes; bytes that do not print become "?".
    std::string Text(std::size_t Offset, std::size_t Length) const;
    std::size_t Size() const {
        return Data.size();
    }

 private:
    Bytes Data;
    std::string Where;
};

// A field of a structure: where it lies and which bit of the structure's validation word vouches for it.
inline constexpr int AlwaysValid = -1;
struct NumberField {
    const char* Name;
    std::size_t Offset;
    std::size_t Width;
    int ValidBit = AlwaysValid;
};
// Bits High:Low of a word. Words names the values from 0 on.
struct BitField {
    const char* Name;
    unsigned High;
    unsigned Low;
    int ValidBit = AlwaysValid;
    std::span<const char* const> Words = {};
};

// The name of entry Index; empty outside the table.
std::string Word(std::span<const char* const> Words, std::uint64_t Index);
// The names of the bits that are set, by bit number, joined by ", ".
std::string FlagWords(std::span<const char* const> Words, std::uint64_t Value);

// A field that is not vouched for is left out when it is zero and marked when it is not.
void AppendNumbers(std::vector<DecodedItem>& Into, const ByteReader& From, std::span<const NumberField> Fields,
                   std::uint64_t Valid);
void AppendBits(std::vector<DecodedItem>& Into, std::uint64_t Word, std::span<const BitField> Fields,
                std::uint64_t Valid);

}  // namespace Simulator

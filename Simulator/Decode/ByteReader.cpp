#include "Simulator/Decode/ByteReader.h"

#include <fmt/format.h>

#include "Simulator/Journal/Journal.h"

namespace Simulator {

Bytes ByteReader::Range(std::size_t Offset, std::size_t Length) const {
    if (Offset > Data.size() || Length > Data.size() - Offset) {
        throw DecodeError(fmt::format("the {} ends after {} bytes, but {} bytes at offset {} are needed", Where,
                                      Data.size(), Length, Offset));
    }
    return Data.subspan(Offset, Length);
}

std::uint64_t ByteReader::Number(std::size_t Offset, std::size_t Width) const {
    std::uint64_t Value = 0;
    const Bytes Field = Range(Offset, Width);
    for (std::size_t Index = Width; Index-- > 0;) {
        Value = Value << 8 | Field[Index];
    }
    return Value;
}

std::string ByteReader::Guid(std::size_t Offset) const {
    std::string Tail;
    for (std::size_t Index = 8; Index < 16; ++Index) {
        Tail += fmt::format("{}{:02X}", Index == 10 ? "-" : "", Number(Offset + Index, 1));
    }
    return fmt::format("{:08X}-{:04X}-{:04X}-{}", Number(Offset, 4), Number(Offset + 4, 2), Number(Offset + 6, 2),
                       Tail);
}

std::string ByteReader::Text(std::size_t Offset, std::size_t Length) const {
    std::string Printable;
    for (const std::uint8_t Byte : Range(Offset, Length)) {
        if (Byte == 0) {
            break;
        }
        Printable += Byte >= 0x20 && Byte < 0x7F ? static_cast<char>(Byte) : '?';
    }
    return Printable;
}

std::string Word(std::span<const char* const> Words, std::uint64_t Index) {
    return Index < Words.size() && Words[Index] ? Words[Index] : "";
}

std::string FlagWords(std::span<const char* const> Words, std::uint64_t Value) {
    std::string Joined;
    for (unsigned Bit = 0; Bit < 64; ++Bit) {
        if (Value >> Bit & 1) {
            const std::string Name = Word(Words, Bit);
            Joined += (Joined.empty() ? "" : ", ") + (Name.empty() ? fmt::format("bit {}", Bit) : Name);
        }
    }
    return Joined;
}

namespace {

void AppendVouched(std::vector<DecodedItem>& Into, const char* Name, std::uint64_t Value, std::string Meaning,
                   int ValidBit, std::uint64_t Valid) {
    const bool IsValid = ValidBit == AlwaysValid || (Valid >> ValidBit & 1) != 0;
    if (IsValid) {
        Into.push_back({Name, Hex(Value), std::move(Meaning), {}});
    } else if (Value != 0) {
        Into.push_back({Name, Hex(Value), "not marked valid", {}});
    }
}

}  // namespace

void AppendNumbers(std::vector<DecodedItem>& Into, const ByteReader& From, std::span<const NumberField> Fields,
                   std::uint64_t Valid) {
    for (const NumberField& Field : Fields) {
        AppendVouched(Into, Field.Name, From.Number(Field.Offset, Field.Width), "", Field.ValidBit, Valid);
    }
}

void AppendBits(std::vector<DecodedItem>& Into, std::uint64_t Value, std::span<const BitField> Fields,
                std::uint64_t Valid) {
    for (const BitField& Field : Fields) {
        const unsigned Width = Field.High - Field.Low + 1;
        const std::uint64_t Mask = Width == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << Width) - 1;
        const std::uint64_t Bits = Value >> Field.Low & Mask;
        AppendVouched(Into, Field.Name, Bits, Word(Field.Words, Bits), Field.ValidBit, Valid);
    }
}

}  // namespace Simulator

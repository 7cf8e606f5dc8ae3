// Bytes as people write them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// "07 3C 6F" for three bytes.
inline std::string HexText(const void* Data, std::size_t Size) {
    static constexpr char Digits[] = "0123456789ABCDEF";
    std::string Text;
    for (std::size_t At = 0; At < Size; At++) {
        const std::uint8_t Byte = static_cast<const std::uint8_t*>(Data)[At];
        Text += At == 0 ? "" : " ";
        Text += Digits[Byte >> 4];
        Text += Digits[Byte & 15];
    }
    return Text;
}

// Lines of 16 bytes, each with its offset, so that a failed comparison shows where.
inline std::vector<std::string> HexLines(const std::vector<std::uint8_t>& Bytes) {
    std::vector<std::string> Lines;
    for (std::size_t At = 0; At < Bytes.size(); At += 16) {
        const std::size_t Left = Bytes.size() - At;
        Lines.push_back(std::to_string(At) + ": " + HexText(Bytes.data() + At, Left < 16 ? Left : 16));
    }
    return Lines;
}

// The bytes of a text of hexadecimal pairs; anything else between them is skipped.
inline std::vector<std::uint8_t> BytesOf(const std::string& Text) {
    std::vector<std::uint8_t> Bytes;
    const auto IsDigit = [](char C) { return (C >= '0' && C <= '9') || (C >= 'A' && C <= 'F'); };
    for (std::size_t At = 0; At + 1 < Text.size(); At++) {
        if (IsDigit(Text[At]) && IsDigit(Text[At + 1])) {
            Bytes.push_back(static_cast<std::uint8_t>(std::stoul(Text.substr(At, 2), nullptr, 16)));
            At++;
        }
    }
    return Bytes;
}

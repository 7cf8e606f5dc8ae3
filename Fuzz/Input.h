// Bytes from the fuzzer, read from the front as little-endian numbers. When they run out, zeros follow.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

class FuzzInput {
 public:
    FuzzInput(const std::uint8_t* Data, std::size_t Size) : At(Data), End(Data + Size) {}

    bool IsEmpty() const {
        return At == End;
    }
    template <class Number>
    Number Take() {
        Number Value{};
        const std::size_t Size = std::min(sizeof(Value), static_cast<std::size_t>(End - At));
        std::memcpy(&Value, At, Size);
        At += Size;
        return Value;
    }
    std::uint8_t Byte() {
        return Take<std::uint8_t>();
    }
    // 0 .. Count-1
    unsigned Below(unsigned Count) {
        return Byte() % Count;
    }
    std::vector<std::uint8_t> Bytes(std::size_t Count) {
        const std::size_t Size = std::min(Count, static_cast<std::size_t>(End - At));
        std::vector<std::uint8_t> Taken(At, At + Size);
        At += Size;
        return Taken;
    }

 private:
    const std::uint8_t* At;
    const std::uint8_t* End;
};

#include "Simulator/Machine/MmioSpace.h"

#include <cstring>

namespace Simulator {

void MmioSpace::Map(std::uint64_t Base, std::uint64_t Size, std::string Name) {
    Ranges[Base] = {std::move(Name), std::vector<std::uint8_t>(Size)};
}

const std::uint8_t* MmioSpace::Locate(std::uint64_t Address, unsigned Width) const {
    auto Next = Ranges.upper_bound(Address);
    if (Next == Ranges.begin()) {
        return nullptr;
    }
    const auto& [Base, Where] = *--Next;
    const std::uint64_t Offset = Address - Base;
    return Offset + Width <= Where.Bytes.size() ? Where.Bytes.data() + Offset : nullptr;
}

std::optional<std::uint64_t> MmioSpace::Read(std::uint64_t Address, unsigned Width) const {
    const std::uint8_t* Bytes = Locate(Address, Width);
    if (Bytes == nullptr) {
        return std::nullopt;
    }
    std::uint64_t Value = 0;
    std::memcpy(&Value, Bytes, Width);
    return Value;
}

bool MmioSpace::Write(std::uint64_t Address, unsigned Width, std::uint64_t Value) {
    const std::uint8_t* Bytes = Locate(Address, Width);
    if (Bytes == nullptr) {
        return false;
    }
    std::memcpy(const_cast<std::uint8_t*>(Bytes), &Value, Width);
    return true;
}

}  // namespace Simulator

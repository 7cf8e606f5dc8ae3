#include "Simulator/Machine/MmioSpace.h"

#include <cstring>

namespace Simulator {

void MmioSpace::Map(std::uint64_t Base, std::uint64_t Size, std::string Name) {
    Ranges[Base] = {std::move(Name), Size, std::vector<std::uint8_t>(Size), nullptr};
}

void MmioSpace::MapDevice(std::uint64_t Base, std::uint64_t Size, std::string Name, MmioDevice& Device) {
    Ranges[Base] = {std::move(Name), Size, {}, &Device};
}

void MmioSpace::Unmap(std::uint64_t Base) {
    Ranges.erase(Base);
}

MmioSpace::Place MmioSpace::Locate(std::uint64_t Address, unsigned Width) {
    auto Next = Ranges.upper_bound(Address);
    if (Next == Ranges.begin()) {
        return {};
    }
    auto& [Base, Where] = *--Next;
    const std::uint64_t Offset = Address - Base;
    return Offset + Width <= Where.Size ? Place{&Where, Offset} : Place{};
}

std::optional<std::uint64_t> MmioSpace::Read(std::uint64_t Address, unsigned Width) {
    const auto [Where, Offset] = Locate(Address, Width);
    if (Where == nullptr) {
        return std::nullopt;
    }
    if (Where->Device != nullptr) {
        return Where->Device->Read(Offset, Width);
    }
    std::uint64_t Value = 0;
    std::memcpy(&Value, Where->Bytes.data() + Offset, Width);
    return Value;
}

bool MmioSpace::Write(std::uint64_t Address, unsigned Width, std::uint64_t Value) {
    const auto [Where, Offset] = Locate(Address, Width);
    if (Where == nullptr) {
        return false;
    }
    if (Where->Device != nullptr) {
        return Where->Device->Write(Offset, Width, Value);
    }
    std::memcpy(Where->Bytes.data() + Offset, &Value, Width);
    return true;
}

}  // namespace Simulator

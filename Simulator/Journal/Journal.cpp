#include "Simulator/Journal/Journal.h"

#include <fmt/format.h>

namespace Simulator {

std::string Hex(std::uint64_t Value) {
    return fmt::format("0x{:X}", Value);
}

std::string HexBytes(const void* Data, std::size_t Size) {
    const auto* Bytes = static_cast<const std::uint8_t*>(Data);
    std::string Text;
    Text.reserve(Size * 3);
    for (std::size_t Index = 0; Index < Size; Index++) {
        Text += fmt::format("{}{:02X}", Index == 0 ? "" : " ", Bytes[Index]);
    }
    return Text;
}

void Journal::Add(std::string_view Kind, std::uint64_t Time, nlohmann::ordered_json Fields) {
    if (Recording) {
        Kept.push_back({std::string(Kind), Step, Time, std::move(Fields)});
    }
}

std::string Journal::ToJsonLines() const {
    std::string Lines;
    for (const Event& One : Kept) {
        nlohmann::ordered_json Line{{"event", One.Kind}, {"step", One.Step}, {"time", One.Time}};
        Line.update(One.Fields);
        Lines += Line.dump();
        Lines += '\n';
    }
    return Lines;
}

}  // namespace Simulator

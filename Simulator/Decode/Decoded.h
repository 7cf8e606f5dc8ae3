// Field by field what some bytes say, for people and for programs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace Simulator {

struct DecodedItem {
    std::string Name;     // lower case, words joined by "-"
    std::string Value;    // "0x..." or spaced bytes or text; may be empty where there are parts
    std::string Meaning;  // in words
    std::vector<DecodedItem> Parts;
};

// Bytes that do not follow their format; says where and why.
class DecodeError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Indented lines: name, value, meaning.
std::string ToText(const std::vector<DecodedItem>& Items);
// A leaf becomes its value, an item with parts a mapping; items of one name that follow each other become a list.
nlohmann::ordered_json ToJson(const std::vector<DecodedItem>& Items);

// One Common Platform Error Record (UEFI 2.10, appendix N). Throws DecodeError.
std::vector<DecodedItem> DecodeCper(std::span<const std::uint8_t> Bytes);
// The same as JSON; {"error": why} for bytes that are no record.
nlohmann::ordered_json RecordJson(std::span<const std::uint8_t> Bytes);
// A sequence of 16-byte SEL records (IPMI 2.0, section 32). Throws DecodeError.
std::vector<DecodedItem> DecodeSel(std::span<const std::uint8_t> Bytes);
// Tells SEL events one after the other. Registers travel in several events; the last of them tells the whole.
class SelNarrator {
 public:
    // What six event bytes (sensor type to event data 3) mean, in a line.
    std::string Tell(std::span<const std::uint8_t, 6> Event);

 private:
    std::string TellRegister(std::uint8_t SensorNumber, std::span<const std::uint8_t, 3> Data);

    std::vector<std::uint8_t> Collected;  // data bytes of a register that is not whole yet
    std::uint8_t CollectedFor = 0;        // sensor number
    bool LocationFollows = false;
};

}  // namespace Simulator

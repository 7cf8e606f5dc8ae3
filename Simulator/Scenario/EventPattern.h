// What a scenario says about an event: its kind and the fields that must hold.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Simulator/Journal/Journal.h"
#include "Simulator/Scenario/SourcePosition.h"

namespace Simulator {

struct EventPattern {
    std::string Kind;
    // Texts as written, in lists and mappings as written; fields not named match anything.
    nlohmann::ordered_json Fields = nlohmann::ordered_json::object();
    SourcePosition Where;

    // The pattern in a line, close to how it was written.
    std::string Text() const;
};

// A record that entered GHES, as patterns see it.
struct RecordView {
    std::vector<std::uint8_t> Bytes;
    nlohmann::ordered_json Decoded;  // field by field, as the decoder reads the bytes
};

// Whether the text or number Value is what Wanted says. Numbers compare by value, spaced bytes byte by byte ("..",
// "*" and "**" stand for any byte but "**" for any bytes to the end), texts letter by letter; a lone "*" takes
// anything.
bool MatchesScalar(const nlohmann::ordered_json& Value, const std::string& Wanted);

// Whether the text is a pattern of bytes, such as "07 .. 6F **".
bool IsBytePattern(const std::string& Text);

// What keeps the event from matching, a line a field; empty when it matches. Records: those that the journal's
// ghes-log events name, by file.
std::vector<std::string> Differences(const EventPattern& Pattern, const Event& Found,
                                     const std::map<std::string, RecordView>& Records);

}  // namespace Simulator

#include "Simulator/Scenario/EventPattern.h"

#include <fmt/format.h>

#include <algorithm>

#include "Simulator/Scenario/PlainText.h"

namespace Simulator {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view AnyValue = "*";
constexpr std::string_view AnyTail = "**";

std::vector<std::string_view> Words(std::string_view Text) {
    std::vector<std::string_view> Result;
    while (!Text.empty()) {
        const std::size_t End = std::min(Text.find(' '), Text.size());
        if (End > 0) {
            Result.push_back(Text.substr(0, End));
        }
        Text.remove_prefix(std::min(End + 1, Text.size()));
    }
    return Result;
}

bool IsSameText(std::string_view Left, std::string_view Right) {
    const auto Lower = [](unsigned char Letter) { return std::tolower(Letter); };
    return std::equal(Left.begin(), Left.end(), Right.begin(), Right.end(),
                      [&](char A, char B) { return Lower(A) == Lower(B); });
}

bool IsByte(std::string_view Word) {
    return Word.size() == 2 && Word.find_first_not_of("0123456789abcdefABCDEF") == Word.npos;
}

bool IsAnyByte(std::string_view Word) {
    return Word == ".." || Word == AnyValue;
}

bool IsByteText(std::string_view Text) {
    return !Text.empty() && std::ranges::all_of(Words(Text), IsByte);
}

bool MatchesBytes(std::string_view Value, std::string_view Wanted) {
    const std::vector<std::string_view> Have = Words(Value);
    const std::vector<std::string_view> Want = Words(Wanted);
    for (std::size_t Index = 0; Index < Want.size(); ++Index) {
        if (Want[Index] == AnyTail) {
            return Index + 1 == Want.size();
        }
        if (Index >= Have.size() || !(IsAnyByte(Want[Index]) || IsSameText(Have[Index], Want[Index]))) {
            return false;
        }
    }
    return Have.size() == Want.size();
}

std::string Brief(const Json& Value) {
    const std::string Text = Value.is_string() ? Value.get<std::string>() : Value.dump();
    return Text.size() <= 60 ? Text : Text.substr(0, 57) + "...";
}

// A decoded leaf answers with its value or with its meaning.
bool MatchesLeaf(const Json& Value, const std::string& Wanted) {
    if (!Value.is_object()) {
        return MatchesScalar(Value, Wanted);
    }
    for (const char* Key : {"value", "meaning"}) {
        if (Value.contains(Key) && MatchesScalar(Value[Key], Wanted)) {
            return true;
        }
    }
    return false;
}

void Compare(const std::string& Name, const Json& Value, const Json& Wanted, std::vector<std::string>& Into);

void CompareFields(const std::string& Prefix, const Json& Value, const Json& Wanted, std::vector<std::string>& Into) {
    for (const auto& [Key, Field] : Wanted.items()) {
        const std::string Name = Prefix.empty() ? Key : fmt::format("{}.{}", Prefix, Key);
        if (!Value.contains(Key)) {
            Into.push_back(fmt::format("{} is absent, wanted {}", Name, Brief(Field)));
        } else {
            Compare(Name, Value[Key], Field, Into);
        }
    }
}

void Compare(const std::string& Name, const Json& Value, const Json& Wanted, std::vector<std::string>& Into) {
    if (Wanted.is_object() && Value.is_object()) {
        CompareFields(Name, Value, Wanted, Into);
    } else if (Wanted.is_array() && Value.is_array() && Wanted.size() == Value.size()) {
        for (std::size_t Index = 0; Index < Wanted.size(); ++Index) {
            Compare(fmt::format("{}[{}]", Name, Index), Value[Index], Wanted[Index], Into);
        }
    } else if (!Wanted.is_string() || !MatchesLeaf(Value, Wanted.get<std::string>())) {
        Into.push_back(fmt::format("{} is {}, wanted {}", Name, Brief(Value), Brief(Wanted)));
    }
}

// Bytes of the record by offset.
void CompareRecordBytes(const std::vector<std::uint8_t>& Record, const Json& Wanted, std::vector<std::string>& Into) {
    for (const auto& [Key, Field] : Wanted.items()) {
        const std::size_t Offset = ParseNumber(Key).value_or(Record.size());
        const std::string Text = Field.get<std::string>();
        const std::size_t Count = Words(Text).size();
        const std::size_t Begin = std::min(Offset, Record.size());
        const std::string Have = HexBytes(Record.data() + Begin, std::min(Count, Record.size() - Begin));
        if (!MatchesBytes(Have, Text)) {
            Into.push_back(fmt::format("bytes from {} are {}, wanted {}", Offset, Have, Text));
        }
    }
}

}  // namespace

bool IsBytePattern(const std::string& Text) {
    std::vector<std::string_view> Parts = Words(Text);
    if (!Parts.empty() && Parts.back() == AnyTail) {
        Parts.pop_back();
    }
    return std::ranges::all_of(Parts, [](std::string_view Word) { return IsByte(Word) || IsAnyByte(Word); });
}

bool MatchesScalar(const Json& Value, const std::string& Wanted) {
    if (Wanted == AnyValue) {
        return true;
    }
    const std::optional<std::uint64_t> Number = ParseNumber(Wanted);
    if (Value.is_boolean()) {
        return Wanted == (Value.get<bool>() ? "true" : "false") || Number == std::uint64_t{Value.get<bool>()};
    }
    if (Value.is_number()) {
        return Value.dump() == (Number ? std::to_string(*Number) : Wanted);
    }
    if (!Value.is_string()) {
        return false;
    }
    const std::string Text = Value.get<std::string>();
    if (Text.starts_with("0x") && Number) {
        return ParseNumber(Text) == Number;
    }
    return IsByteText(Text) ? MatchesBytes(Text, Wanted) : IsSameText(Text, Wanted);
}

std::string EventPattern::Text() const {
    std::string Line;
    for (const auto& [Key, Field] : Fields.items()) {
        Line += fmt::format("{}{}: {}", Line.empty() ? "" : ", ", Key,
                            Field.is_string() ? Field.get<std::string>() : Field.dump());
    }
    return fmt::format("{}: {{{}}}", Kind, Line);
}

std::vector<std::string> Differences(const EventPattern& Pattern, const Event& Found,
                                     const std::map<std::string, RecordView>& Records) {
    std::vector<std::string> Result;
    if (Pattern.Kind != Found.Kind) {
        Result.push_back(fmt::format("the event is {}, wanted {}", Found.Kind, Pattern.Kind));
        return Result;
    }
    const std::string File = Found.Fields.value("file", "");
    const auto Record = Records.find(File);
    for (const auto& [Key, Wanted] : Pattern.Fields.items()) {
        if (Key == "step" || Key == "time") {
            Compare(Key, Key == "step" ? Json(Found.Step) : Json(Found.Time), Wanted, Result);
        } else if (Key != "record" && Key != "record-bytes") {
            CompareFields("", Found.Fields, Json{{Key, Wanted}}, Result);
        } else if (Record == Records.end()) {
            Result.push_back(fmt::format("{} is absent: the event carries no record", Key));
        } else if (Key == "record") {
            CompareFields(Key, Record->second.Decoded, Wanted, Result);
        } else {
            CompareRecordBytes(Record->second.Bytes, Wanted, Result);
        }
    }
    return Result;
}

}  // namespace Simulator

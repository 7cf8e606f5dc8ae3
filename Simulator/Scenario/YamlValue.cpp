#include "Simulator/Scenario/YamlValue.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <numeric>
#include <set>

#include "Simulator/Firmware/Names.h"
#include "Simulator/Scenario/PlainText.h"

namespace Simulator {

SourcePosition YamlValue::Where() const {
    const YAML::Mark Mark = Node.Mark();
    return {File, Mark.line + 1, Mark.column + 1};
}

void YamlValue::Refuse(const std::string& What) const {
    throw ScenarioError(Where(), What);
}

std::string YamlValue::Scalar(std::string_view Wanted) const {
    if (!Node.IsScalar()) {
        Refuse(fmt::format("{} stands here, {} is needed",
                           Node.IsMap()        ? "a mapping"
                           : Node.IsSequence() ? "a list"
                                               : "nothing",
                           Wanted));
    }
    return Node.Scalar();
}

std::string YamlValue::Text() const {
    return Scalar("a text");
}

std::uint64_t YamlValue::Number(std::uint64_t Lowest, std::uint64_t Highest) const {
    const std::string Text = Scalar("a number");
    const std::optional<std::uint64_t> Value = ParseNumber(Text);
    if (!Value) {
        Refuse(fmt::format("\"{}\" is no number; write it in decimal without leading zeros, or with 0x, in 64 bits",
                           Text));
    }
    if (*Value < Lowest || *Value > Highest) {
        Refuse(fmt::format("{} is out of range; {} to {} is right here", Text, Lowest, Highest));
    }
    return *Value;
}

bool YamlValue::Bool() const {
    constexpr std::string_view Words[] = {"false", "true"};
    return OneOf(Words) == 1;
}

std::uint64_t YamlValue::Duration() const {
    constexpr std::uint64_t LONGEST = 876'000 * std::uint64_t{3'600'000'000};  // a hundred years
    const std::string Whole = Scalar("a duration");
    const std::optional<std::uint64_t> Microseconds = ParseDuration(Whole);
    if (!Microseconds) {
        Refuse(
            fmt::format("\"{}\" is no duration; write numbers with h, m, s, ms or us, such as 9m59s or 20us", Whole));
    }
    if (*Microseconds > LONGEST) {
        Refuse(fmt::format("{} is too long; 876000h is the longest", Whole));
    }
    return *Microseconds;
}

std::vector<std::uint8_t> YamlValue::Bytes() const {
    const std::string Whole = IsEmpty() ? "" : Scalar("bytes");
    const std::optional<std::vector<std::uint8_t>> Parsed = ParseBytes(Whole);
    if (!Parsed) {
        Refuse(
            fmt::format("\"{}\" are no bytes; write two hexadecimal digits a byte with one space between, such as "
                        "07 3C 6F",
                        Whole));
    }
    return *Parsed;
}

EFI_STATUS YamlValue::Status() const {
    const std::string Name = Scalar("a status");
    const std::optional<EFI_STATUS> Found = FindStatus(Name);
    if (!Found) {
        Refuse(fmt::format("\"{}\" is no status; right would be a name such as EFI_DEVICE_ERROR", Name));
    }
    return *Found;
}

std::string YamlValue::GuidName() const {
    std::string Name = Scalar("the name of a GUID");
    if (!FindGuid(Name)) {
        Refuse(
            fmt::format("\"{}\" is no GUID's name; right would be one such as gKyrRasServiceSmmProtocolGuid", Name));
    }
    return Name;
}

std::size_t YamlValue::OneOf(std::span<const std::string_view> Words) const {
    const std::string Text = Scalar(fmt::format("one of {}", fmt::join(Words, ", ")));
    for (std::size_t Index = 0; Index < Words.size(); ++Index) {
        if (Words[Index] == Text) {
            return Index;
        }
    }
    Refuse(fmt::format("\"{}\" is not known here; right would be {}", Text, fmt::join(Words, ", ")));
}

std::vector<YamlValue> YamlValue::List() const {
    if (!Node.IsSequence()) {
        Refuse("a list is needed here, such as [1, 2]");
    }
    std::vector<YamlValue> Items;
    for (const YAML::Node& Item : Node) {
        Items.emplace_back(Item, File);
    }
    return Items;
}

std::vector<YamlValue> YamlValue::OneOrMore() const {
    if (!IsList()) {
        return {*this};
    }
    std::vector<YamlValue> Items = List();
    if (Items.empty()) {
        Refuse("one item at least is needed here");
    }
    return Items;
}

std::vector<std::pair<YamlValue, YamlValue>> YamlValue::Map() const {
    if (IsEmpty()) {
        return {};
    }
    if (!Node.IsMap()) {
        Refuse("a mapping is needed here, such as {key: value}");
    }
    std::vector<std::pair<YamlValue, YamlValue>> Items;
    std::set<std::string> Seen;
    for (const auto& Item : Node) {
        const YamlValue Key(Item.first, File);
        if (!Seen.insert(Key.Text()).second) {
            Key.Refuse(fmt::format("\"{}\" stands here a second time; once would be right", Key.Text()));
        }
        Items.emplace_back(Key, YamlValue(Item.second, File));
    }
    return Items;
}

std::pair<YamlValue, YamlValue> YamlValue::Single(std::string_view Example) const {
    if (!IsMap() || Map().size() != 1) {
        Refuse(fmt::format("one key with its value is needed here, such as {}", Example));
    }
    return Map().front();
}

nlohmann::ordered_json YamlValue::Tree() const {
    if (IsMap()) {
        nlohmann::ordered_json Object = nlohmann::ordered_json::object();
        for (const auto& [Key, Value] : Map()) {
            Object[Key.Text()] = Value.Tree();
        }
        return Object;
    }
    if (IsList()) {
        nlohmann::ordered_json Array = nlohmann::ordered_json::array();
        for (const YamlValue& Item : List()) {
            Array.push_back(Item.Tree());
        }
        return Array;
    }
    return IsEmpty() ? nlohmann::ordered_json::object() : nlohmann::ordered_json(Text());
}

void YamlValue::RequireModest() const {
    constexpr unsigned DEEPEST = 100;
    unsigned ValuesLeft = 1'000'000;
    RequireModest(DEEPEST, ValuesLeft);
}

void YamlValue::RequireModest(unsigned DepthLeft, unsigned& ValuesLeft) const {
    if (DepthLeft == 0 || ValuesLeft == 0) {
        Refuse("there is no end to the values here; an alias must not stand within its own anchor");
    }
    --ValuesLeft;
    for (const auto& Item : Node) {
        if (Node.IsMap()) {
            YamlValue(Item.first, File).RequireModest(DepthLeft - 1, ValuesLeft);
        }
        YamlValue(Node.IsMap() ? Item.second : Item, File).RequireModest(DepthLeft - 1, ValuesLeft);
    }
}

namespace {

// Insertions, deletions and replacements that turn one text into the other.
std::size_t EditDistance(std::string_view From, std::string_view To) {
    std::vector<std::size_t> Row(To.size() + 1);
    std::iota(Row.begin(), Row.end(), std::size_t{0});
    for (const char Letter : From) {
        std::size_t Diagonal = Row[0]++;
        for (std::size_t Column = 1; Column <= To.size(); ++Column) {
            const std::size_t Replaced = Diagonal + (Letter == To[Column - 1] ? 0 : 1);
            Diagonal = Row[Column];
            Row[Column] = std::min({Row[Column] + 1, Row[Column - 1] + 1, Replaced});
        }
    }
    return Row.back();
}

// All the names, or where they are many the one that was probably meant: it differs in no more than a third.
std::string Suggestion(std::string_view Name, std::span<const std::string_view> Names) {
    constexpr std::size_t Few = 24;
    const auto Distance = [Name](std::string_view Known) { return EditDistance(Name, Known); };
    const auto Nearest = std::ranges::min_element(Names, {}, Distance);
    if (Names.size() <= Few || Distance(*Nearest) * 3 > Name.size() + 1) {
        return fmt::format("known here: {}", fmt::join(Names, ", "));
    }
    return fmt::format("is {} meant?", *Nearest);
}

}  // namespace

std::size_t FindKey(const YamlValue& Key, std::span<const std::string_view> Names) {
    const std::string Name = Key.Text();
    for (std::size_t Index = 0; Index < Names.size(); ++Index) {
        if (Names[Index] == Name) {
            return Index;
        }
    }
    Key.Refuse(fmt::format("unknown key \"{}\"; {}", Name, Suggestion(Name, Names)));
}

void RefuseMissingKey(const YamlValue& Map, std::string_view Name) {
    Map.Refuse(fmt::format("the key \"{}\" is missing", Name));
}

}  // namespace Simulator

// A value of a scenario file that knows where it stands, and mappings read by a table of their keys.
#pragma once

#include <yaml-cpp/yaml.h>

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Base.h"
#include "Simulator/Scenario/SourcePosition.h"

namespace Simulator {

// Readers throw ScenarioError at the value's place when it is not what they read.
class YamlValue {
 public:
    YamlValue(const YAML::Node& Node, std::string File) : Node(Node), File(std::move(File)) {}

    SourcePosition Where() const;
    [[noreturn]] void Refuse(const std::string& What) const;

    bool IsScalar() const {
        return Node.IsScalar();
    }
    bool IsMap() const {
        return Node.IsMap();
    }
    bool IsList() const {
        return Node.IsSequence();
    }
    bool IsEmpty() const {
        return Node.IsNull();
    }

    std::string Text() const;
    // Decimal or 0x, between the two bounds, both included.
    std::uint64_t Number(std::uint64_t Lowest = 0,
                         std::uint64_t Highest = std::numeric_limits<std::uint64_t>::max()) const;
    bool Bool() const;
    std::uint64_t Duration() const;           // "1h", "9m59s", "10s", "5ms", "20us", in microseconds
    std::vector<std::uint8_t> Bytes() const;  // "07 3C 6F"
    EFI_STATUS Status() const;                // "EFI_DEVICE_ERROR"
    std::string GuidName() const;             // "gKyrRasServiceSmmProtocolGuid"
    // The index of one of these words.
    std::size_t OneOf(std::span<const std::string_view> Words) const;

    std::vector<YamlValue> List() const;
    // The items of a list that is not empty, or the value itself where it is no list.
    std::vector<YamlValue> OneOrMore() const;
    // Keys and values in the order in which they stand. Refuses a key that stands twice.
    std::vector<std::pair<YamlValue, YamlValue>> Map() const;
    // A mapping of exactly one key: "- wait: 10s".
    std::pair<YamlValue, YamlValue> Single(std::string_view Example) const;
    // The whole value with its scalars as texts.
    nlohmann::ordered_json Tree() const;
    // Refuses a value that holds more, or holds it deeper in itself, than anybody writes: an alias that stands within
    // its own anchor has no end.
    void RequireModest() const;

 private:
    std::string Scalar(std::string_view Wanted) const;
    void RequireModest(unsigned DepthLeft, unsigned& ValuesLeft) const;

    YAML::Node Node;
    std::string File;
};

// What one key of a mapping means.
template <class Target>
struct YamlKey {
    std::string_view Name;
    void (*Read)(const YamlValue& Value, Target& Into);
    bool Required = false;
};

// Keys that fill one member and are no more than that.
template <class>
struct MemberPointer;
template <class Object, class Value>
struct MemberPointer<Value Object::*> {
    using Of = Object;
    using Type = Value;
};
template <class Object, class Value>
struct MemberPointer<std::optional<Value> Object::*> {
    using Of = Object;
    using Type = Value;
};
template <auto Member>
using ObjectOf = typename MemberPointer<decltype(Member)>::Of;
template <auto Member>
using TypeOf = typename MemberPointer<decltype(Member)>::Type;

// Without bounds whatever the member can hold.
template <auto Member, std::uint64_t Lowest = 0, std::uint64_t Highest = std::numeric_limits<TypeOf<Member>>::max()>
void ReadNumber(const YamlValue& Value, ObjectOf<Member>& Into) {
    Into.*Member = static_cast<TypeOf<Member>>(Value.Number(Lowest, Highest));
}
template <auto Member>
void ReadBool(const YamlValue& Value, ObjectOf<Member>& Into) {
    Into.*Member = Value.Bool();
}
template <auto Member>
void ReadText(const YamlValue& Value, ObjectOf<Member>& Into) {
    Into.*Member = Value.Text();
}
template <auto Member>
void ReadDuration(const YamlValue& Value, ObjectOf<Member>& Into) {
    Into.*Member = Value.Duration();
}
template <auto Member>
void ReadBytes(const YamlValue& Value, ObjectOf<Member>& Into) {
    Into.*Member = Value.Bytes();
}
template <auto Member>
void ReadStatus(const YamlValue& Value, ObjectOf<Member>& Into) {
    Into.*Member = Value.Status();
}
// A member that says which of the words it is, by its index.
template <auto Member, const auto& Words>
void ReadWord(const YamlValue& Value, ObjectOf<Member>& Into) {
    Into.*Member = static_cast<TypeOf<Member>>(Value.OneOf(Words));
}

// The index of the name among Names; refuses the key with the names that would be right.
std::size_t FindKey(const YamlValue& Key, std::span<const std::string_view> Names);
[[noreturn]] void RefuseMissingKey(const YamlValue& Map, std::string_view Name);

template <class Target>
void ReadKeys(const YamlValue& Map, std::span<const YamlKey<Target>> Keys, Target& Into) {
    std::vector<std::string_view> Names;
    for (const YamlKey<Target>& Key : Keys) {
        Names.push_back(Key.Name);
    }
    std::vector<bool> Seen(Keys.size());
    for (const auto& [Name, Value] : Map.Map()) {
        const std::size_t Index = FindKey(Name, Names);
        Seen[Index] = true;
        Keys[Index].Read(Value, Into);
    }
    for (std::size_t Index = 0; Index < Keys.size(); ++Index) {
        if (Keys[Index].Required && !Seen[Index]) {
            RefuseMissingKey(Map, Keys[Index].Name);
        }
    }
}

}  // namespace Simulator

#include <fmt/format.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Simulator/Firmware/ServiceMembers.h"
#include "Simulator/Scenario/EventKinds.h"
#include "Simulator/Scenario/Readers.h"

namespace Simulator {

namespace {

// A name becomes a folder's name under --out.
std::string ReadName(const YamlValue& Value) {
    std::string Name = Value.Text();
    if (Name.empty() || Name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") != Name.npos) {
        Value.Refuse(fmt::format("\"{}\" is no name; write it in lower-case letters, digits and -", Name));
    }
    return Name;
}

const EventKind& FindKind(const YamlValue& Key) {
    std::vector<std::string_view> Names;
    for (const EventKind& Kind : EventKinds()) {
        Names.push_back(Kind.Name);
    }
    return EventKinds()[FindKey(Key, Names)];
}

void CheckBytePattern(const YamlValue& Value) {
    if (!IsBytePattern(Value.Text())) {
        Value.Refuse(
            fmt::format("\"{}\" are no bytes; write two hexadecimal digits a byte, .. for any byte, and ** at "
                        "the end for any bytes that follow",
                        Value.Text()));
    }
}

std::vector<EventPattern> ReadPatterns(const YamlValue& Value) {
    std::vector<EventPattern> Patterns;
    for (const YamlValue& Item : Value.List()) {
        Patterns.push_back(ReadPattern(Item));
    }
    return Patterns;
}

// {kind: number}, or a list of {events: {kind: {field: value}}, times: number}.
std::vector<CountExpectation> ReadCounts(const YamlValue& Value) {
    std::vector<CountExpectation> Counts;
    if (Value.IsList()) {
        constexpr YamlKey<CountExpectation> Keys[] = {
            {"events", [](const YamlValue& V, CountExpectation& C) { C.Pattern = ReadPattern(V); }, true},
            {"times", ReadNumber<&CountExpectation::Times>, true},
        };
        for (const YamlValue& Item : Value.List()) {
            CountExpectation Row;
            ReadKeys<CountExpectation>(Item, Keys, Row);
            Counts.push_back(std::move(Row));
        }
        return Counts;
    }
    for (const auto& [Key, Times] : Value.Map()) {
        FindKind(Key);
        Counts.push_back({{Key.Text(), nlohmann::ordered_json::object(), Key.Where()}, Times.Number()});
    }
    return Counts;
}

struct ScenarioDraft {
    Scenario Result;
    std::optional<YamlValue> Steps;  // read last: they are checked against the machine
};

constexpr YamlKey<ScenarioDraft> ScenarioKeys[] = {
    {"name", [](const YamlValue& V, ScenarioDraft& D) { D.Result.Name = ReadName(V); }, true},
    {"about", [](const YamlValue& V, ScenarioDraft& D) { ReadText<&Scenario::About>(V, D.Result); }, true},
    {"machine",
     [](const YamlValue& V, ScenarioDraft& D) {
         D.Result.Machine = ReadMachine(V);
         D.Result.MachineWhere = V.Where();
     }},
    {"steps", [](const YamlValue& V, ScenarioDraft& D) { D.Steps = V; }},
    {"entry", [](const YamlValue& V, ScenarioDraft& D) { ReadStatus<&Scenario::Entry>(V, D.Result); }},
    {"expect", [](const YamlValue& V, ScenarioDraft& D) { D.Result.Expect = ReadPatterns(V); }},
    {"never", [](const YamlValue& V, ScenarioDraft& D) { D.Result.Never = ReadPatterns(V); }},
    {"count", [](const YamlValue& V, ScenarioDraft& D) { D.Result.Count = ReadCounts(V); }},
    {"kept", [](const YamlValue& V, ScenarioDraft& D) { ReadNumber<&Scenario::Kept, 0, 1'000'000>(V, D.Result); }},
};

// The YAML library guesses other encodings from the first bytes, and does not come back from all that it then reads;
// the reports are UTF-8 as well.
void CheckEncoding(const std::string& Text, const std::string& File) {
    try {
        nlohmann::json(Text).dump();
    } catch (const nlohmann::json::type_error&) {
        throw ScenarioError({File, 1, 1}, "no UTF-8 text");
    }
    if (const std::size_t At = Text.find('\0'); At != Text.npos) {
        throw ScenarioError({File, 1 + static_cast<int>(std::count(Text.begin(), Text.begin() + At, '\n')), 1},
                            "a NUL, which is in no text");
    }
}

// Takes a document apart and keeps nothing of it.
class IgnoredDocument : public YAML::EventHandler {
 public:
    void OnDocumentStart(const YAML::Mark&) override {}
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark&, YAML::anchor_t) override {}
    void OnAlias(const YAML::Mark&, YAML::anchor_t) override {}
    void OnScalar(const YAML::Mark&, const std::string&, YAML::anchor_t, const std::string&) override {}
    void OnSequenceStart(const YAML::Mark&, const std::string&, YAML::anchor_t, YAML::EmitterStyle::value) override {}
    void OnSequenceEnd() override {}
    void OnMapStart(const YAML::Mark&, const std::string&, YAML::anchor_t, YAML::EmitterStyle::value) override {}
    void OnMapEnd() override {}
};

// Looks no further than a second document: some texts, one that begins with a comma, have documents without end.
bool HasOneDocument(const std::string& Text) {
    std::istringstream Stream(Text);
    YAML::Parser Parser(Stream);
    IgnoredDocument Ignored;
    return Parser.HandleNextDocument(Ignored) && !Parser.HandleNextDocument(Ignored);
}

}  // namespace

EventPattern ReadPattern(const YamlValue& Value) {
    const auto [Key, Fields] = Value.Single("sel: {bytes: 07 3C 6F AC 01 05}");
    const EventKind& Kind = FindKind(Key);
    std::vector<std::string_view> Known(Kind.Fields.begin(), Kind.Fields.end());
    Known.insert(Known.end(), {"step", "time"});
    for (const auto& [Name, Field] : Fields.Map()) {
        FindKey(Name, Known);
        if (Key.Text() == "service" && Name.Text() == "member" && Field.Text() != "*") {
            FindKey(Field, MemberNames());
        }
        if ((Key.Text() != "alloc-fail" && Name.Text() == "bytes") || Name.Text() == "codes") {
            CheckBytePattern(Field);
        } else if (Name.Text() == "record-bytes") {
            for (const auto& [Offset, Bytes] : Field.Map()) {
                Offset.Number();
                CheckBytePattern(Bytes);
            }
        }
    }
    return {Key.Text(), Fields.Tree(), Key.Where()};
}

Scenario ParseScenario(const std::string& Text, const std::string& File) {
    CheckEncoding(Text, File);
    YAML::Node Document;
    try {
        Document = HasOneDocument(Text) ? YAML::Load(Text) : YAML::Node();
    } catch (const YAML::Exception& Error) {
        throw ScenarioError({File, Error.mark.line + 1, Error.mark.column + 1}, "no YAML: " + Error.msg);
    }
    if (!Document.IsMap()) {
        throw ScenarioError({File, 1, 1},
                            "a scenario is one mapping with name, about, machine, steps and expectations");
    }
    ScenarioDraft Draft;
    Draft.Result.File = File;
    Draft.Result.MachineWhere = {File};
    const YamlValue Whole(Document, File);
    Whole.RequireModest();
    ReadKeys<ScenarioDraft>(Whole, ScenarioKeys, Draft);
    if (Draft.Steps) {
        Draft.Result.Steps = ReadSteps(*Draft.Steps, Draft.Result.Machine);
    }
    return std::move(Draft.Result);
}

Scenario LoadScenario(const std::filesystem::path& File) {
    std::ifstream Stream(File);
    std::ostringstream Text;
    if (!Stream || !(Text << Stream.rdbuf())) {
        throw ScenarioError({File.string()}, "cannot be read; a scenario file is needed");
    }
    return ParseScenario(Text.str(), File.string());
}

}  // namespace Simulator

// Every scenario of the project is a test of its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Simulator/Scenario/EventKinds.h"
#include "Simulator/Scenario/Runner.h"

namespace {

std::vector<std::string> ScenarioNames() {
    std::vector<std::string> Names;
    for (const auto& Entry : std::filesystem::directory_iterator(SCENARIO_FOLDER)) {
        if (Entry.path().extension() == ".yaml") {
            Names.push_back(Entry.path().stem().string());
        }
    }
    std::ranges::sort(Names);
    return Names;
}

// What the journal holds can be named in scenarios.
void ExpectKnown(const Simulator::Event& One) {
    const auto Kinds = Simulator::EventKinds();
    const auto Kind = std::ranges::find(Kinds, One.Kind, &Simulator::EventKind::Name);
    ASSERT_NE(Kind, Kinds.end()) << One.Kind;
    for (const auto& [Name, Value] : One.Fields.items()) {
        EXPECT_TRUE(std::ranges::find(Kind->Fields, Name) != Kind->Fields.end())
            << One.Kind << " has a field " << Name;
    }
}

class ShippedScenarios : public testing::TestWithParam<std::string> {};

TEST_P(ShippedScenarios, RunsAsItExpects) {
    const auto File = std::filesystem::path(SCENARIO_FOLDER) / (GetParam() + ".yaml");
    const Simulator::Scenario What = Simulator::LoadScenario(File);
    EXPECT_EQ(What.Name, GetParam()) << "a scenario is named as its file";
    const Simulator::RunResult First = RunScenario(What);
    for (const Simulator::Miss& One : First.Misses) {
        std::string Nearest;
        for (const std::string& Near : One.Nearest) {
            Nearest += "\n  near: " + Near;
        }
        ADD_FAILURE() << One.Where.Text() << ": " << One.What << Nearest;
    }
    for (const Simulator::Event& One : First.Events.Events()) {
        ExpectKnown(One);
    }
    EXPECT_EQ(First.Events.ToJsonLines(), RunScenario(What).Events.ToJsonLines()) << "two runs differ";
}

// A reader types the first example of the page about scenarios and runs it.
TEST(DocumentedScenario, HoldsAsItStands) {
    std::ostringstream Page;
    Page << std::ifstream(std::filesystem::path(SCENARIO_FOLDER) / "../docs/Scenarios.md").rdbuf();
    const std::string Text = Page.str(), Fence = "```yaml\n";
    const std::size_t Begin = Text.find(Fence) + Fence.size();
    ASSERT_GT(Begin, Fence.size());
    const Simulator::RunResult Result =
        RunScenario(Simulator::ParseScenario(Text.substr(Begin, Text.find("```", Begin) - Begin), "Scenarios.md"));
    EXPECT_TRUE(Result.Passed()) << Result.Misses.front().What;
}

INSTANTIATE_TEST_SUITE_P(Scenarios, ShippedScenarios, testing::ValuesIn(ScenarioNames()), [](const auto& Case) {
    std::string Name = Case.param;
    std::ranges::replace(Name, '-', '_');
    return Name;
});

}  // namespace

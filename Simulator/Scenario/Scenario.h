// A scenario as it was written: a machine, steps, expectations.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Simulator/Scenario/EventPattern.h"
#include "Simulator/Simulation.h"

namespace Simulator {

struct Step {
    std::string Kind;
    std::string Summary;  // in a line, for people
    SourcePosition Where;
    // Does the step. Where the step itself says what must come of it and something else does: what came.
    // Throws ScenarioError for what the machine does not have.
    std::function<std::optional<std::string>(Simulation&)> Do;
};

struct CountExpectation {
    EventPattern Pattern;
    std::uint64_t Times = 0;
};

struct Scenario {
    std::string Name;
    std::string About;
    std::string File;
    Configuration Machine;
    std::vector<Step> Steps;
    EFI_STATUS Entry = EFI_SUCCESS;    // what the driver's entry point must return
    std::vector<EventPattern> Expect;  // each matches a later event than the one before it
    std::vector<EventPattern> Never;
    std::vector<CountExpectation> Count;
    std::int64_t Kept = 0;  // pool blocks that the run's SMIs leave allocated when it ends
};

// Throws ScenarioError.
Scenario ParseScenario(const std::string& Text, const std::string& File);
Scenario LoadScenario(const std::filesystem::path& File);

}  // namespace Simulator

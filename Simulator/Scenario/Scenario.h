// A scenario as it was written: a machine, steps, expectations.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Simulator/Scenario/EventPattern.h"
#include "Simulator/Simulation.h"

namespace Simulator {

// What a step does. Where the step itself says what must come of it and something else does: what came. Some steps
// differ from round to round of the repeat around them; rounds count from 0.
// Throws std::invalid_argument for what the machine does not have.
class StepAction {
 public:
    using Outcome = std::optional<std::string>;

    StepAction() = default;
    template <class Work>
    requires std::is_invocable_r_v<Outcome, Work, Simulation&, std::uint64_t> StepAction(Work Do)
        : Action(std::move(Do)) {}
    template <class Work>
    requires std::is_invocable_r_v<Outcome, Work, Simulation&> StepAction(Work Do)
        : Action([Do = std::move(Do)](Simulation& Run, std::uint64_t) mutable { return Do(Run); }) {}

    Outcome operator()(Simulation& Run, std::uint64_t Round = 0) const {
        return Action(Run, Round);
    }

 private:
    std::function<Outcome(Simulation&, std::uint64_t)> Action;
};

struct Step {
    std::string Kind;
    std::string Summary;  // in a line, for people
    SourcePosition Where;
    StepAction Do;
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
    SourcePosition MachineWhere;  // the file alone where nothing is said of the machine
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

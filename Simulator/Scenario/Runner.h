// Runs a scenario and says which of its expectations were missed.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Simulator/Scenario/Scenario.h"

namespace Simulator {

struct Miss {
    SourcePosition Where;
    std::string What;
    std::vector<std::string> Nearest;  // the events that came closest, each with what keeps it from matching
};

// Everything that is left of a run once its machine is gone.
struct RunResult {
    EFI_STATUS Entry = EFI_SUCCESS;
    std::vector<Miss> Misses;
    Journal Events;
    std::string TraceLog;
    std::vector<std::vector<std::uint8_t>> Records;  // that entered GHES, in order
    std::vector<std::uint8_t> SelRaw;
    std::vector<std::uint8_t> GhesStatusBlock;
    PoolStatistics Pool;

    bool Passed() const {
        return Misses.empty();
    }
};

// Boots the scenario's machine, does its steps and compares. A machine that stops (an access that nothing maps,
// a failed assertion) is a miss. Throws ScenarioError for a step that the machine cannot do. AtEnd sees the machine
// once its steps are done.
RunResult RunScenario(const Scenario& What, const std::function<void(Simulation&)>& AtEnd = {});

}  // namespace Simulator

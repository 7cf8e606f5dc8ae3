// What a run looked like, for people.
#pragma once

#include <string>

#include "Simulator/Scenario/Runner.h"

namespace Simulator {

// Lines of at most 100 columns: the scenario, its machine, each step and SMI with what was sent where and what the
// OS was told, and what was missed.
std::string RunReport(const Scenario& What, const RunResult& Result, bool Colours);

}  // namespace Simulator

// What the parts of a scenario file become.
#pragma once

#include "Simulator/Scenario/Scenario.h"
#include "Simulator/Scenario/YamlValue.h"

namespace Simulator {

Configuration ReadMachine(const YamlValue& Value);
// A failure as "failing" writes it: a status, or {status, times, skip}.
Failure ReadFailure(const YamlValue& Value);

// What a step says that must be returned, against what was; without a wish anything will do.
std::optional<std::string> CompareStatus(const std::optional<EFI_STATUS>& Wanted, EFI_STATUS Came);

// Steps are checked against the machine that they will run on.
std::vector<Step> ReadSteps(const YamlValue& List, const Configuration& Machine);

// {kind: {field: value}}; kinds and fields are those of the journal.
EventPattern ReadPattern(const YamlValue& Value);

}  // namespace Simulator

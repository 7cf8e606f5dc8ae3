// The part of a scenario file that is about memory.
#pragma once

#include "Simulator/Scenario/Scenario.h"
#include "Simulator/Scenario/YamlValue.h"

namespace Simulator {

// The machine's key "memory".
void ReadDram(const YamlValue& Value, Configuration& Into);

// Steps.
void ReadMemoryError(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadPinTranslation(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadPspFinish(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadSmbios(const YamlValue& Value, const Configuration& Machine, Step& Into);

}  // namespace Simulator

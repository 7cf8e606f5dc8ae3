// The part of a scenario file that is about CXL.
#pragma once

#include "Simulator/Scenario/Scenario.h"
#include "Simulator/Scenario/YamlValue.h"

namespace Simulator {

// A PCIe function's key "cxl".
CxlSetting ReadCxl(const YamlValue& Value);

// Steps.
void ReadCxlError(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadCxlEvent(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadCxlMailbox(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadCxlConfigure(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadCxlOsc(const YamlValue& Value, const Configuration& Machine, Step& Into);

}  // namespace Simulator

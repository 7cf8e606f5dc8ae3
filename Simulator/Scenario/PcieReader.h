// The part of a scenario file that is about PCI Express.
#pragma once

#include "Simulator/Scenario/Scenario.h"
#include "Simulator/Scenario/YamlValue.h"

namespace Simulator {

// The machine's key "pcie".
void ReadPcie(const YamlValue& Value, Configuration& Into);

// Steps.
void ReadPcieError(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadPcieConfig(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadPcieSlot(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadPcieLink(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadPcieDeath(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadSmn(const YamlValue& Value, const Configuration& Machine, Step& Into);

}  // namespace Simulator

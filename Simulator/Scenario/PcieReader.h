// The part of a scenario file that is about PCI Express.
#pragma once

#include "Simulator/Scenario/Scenario.h"
#include "Simulator/Scenario/YamlValue.h"

namespace Simulator {

class PcieFunction;

// The machine's key "pcie".
void ReadPcie(const YamlValue& Value, Configuration& Into);

// The width of a configuration register, written in bits; bytes.
unsigned ReadRegisterWidth(const YamlValue& Value);
// Refuses a configuration register that no access can reach. Width in bytes.
void RequireAligned(const YamlValue& Value, unsigned Offset, unsigned Width);

// A function below a root complex by its name or its address ("BB:DD.F", with the segment before it where that is not
// 0). Throws std::invalid_argument when there is none.
PcieFunction& FunctionAt(Simulation& Run, const std::string& At);
// The same for a root port or a switch's downstream port: std::invalid_argument, too, for another function.
PcieFunction& PortAt(Simulation& Run, const std::string& At);

// Steps.
void ReadPcieError(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadPcieConfig(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadPcieSlot(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadPcieLink(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadPcieDeath(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadOsDsm(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadOsEdr(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadOsOst(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadDpcBuffer(const YamlValue& Value, const Configuration& Machine, Step& Into);
void ReadSmn(const YamlValue& Value, const Configuration& Machine, Step& Into);

}  // namespace Simulator

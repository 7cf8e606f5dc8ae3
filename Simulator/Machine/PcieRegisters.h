// Lays out the configuration bytes of a function from its description.
#pragma once

#include "Simulator/Machine/PcieFunction.h"
#include "Simulator/Machine/PcieSettings.h"

namespace Simulator {

bool IsBridgeKind(PcieKind Kind);

// Header, capabilities and their reset values; base address registers, bus numbers and the registers that the
// description overrides come later. Throws std::invalid_argument when the capabilities do not fit.
void LayOutRegisters(PcieFunction& Into, const PcieFunctionSetting& Setting);

// The address registers of a function whose size nobody told: as far as its address is aligned, at most 64 KiB.
void GuessBars(PcieFunction& Function);

}  // namespace Simulator

// Loading the driver: its mutable state is put back to what the program was linked with.
#pragma once

#include "Simulator/Firmware/MemoryLayout.h"

namespace Simulator {

// The section of the driver's mutable state; empty when no driver code is linked in.
MemoryArea DriverStateSection();

// Restores the section to its load image, taken before anything ran.
void RestoreDriverState();

}  // namespace Simulator

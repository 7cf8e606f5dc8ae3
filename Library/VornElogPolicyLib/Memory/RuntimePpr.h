// Repair of DRAM rows while the system runs.
#pragma once

#include "Platform/Base.h"

// Prepares runtime repair; called once when the driver starts.
EFI_STATUS RuntimePprInit();

// Power states of a function (PCI Bus Power Management Interface 1.2).
#pragma once

#include "Platform/Base.h"

// TRUE when the function's power management registers say D3hot; FALSE for a function without them.
BOOLEAN VornElogSmmCheckD3HotState(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func);

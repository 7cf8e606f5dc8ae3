// What the devices below a contained port have to tell once they answer again.
#pragma once

#include "Library/VornElogPolicyLib/Pcie/SelEvent.h"

// Logs and clears every function below the port whose AER shows an unmasked uncorrectable error: its event, IDs and
// AER registers as of any downstream device. IsSoftwareDpcRequested: the port will be held in containment afterwards.
// TRUE when an event went to the event log.
BOOLEAN VornElogSmmCheckAndLogPcieDpcDownstream(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                                BOOLEAN IsSoftwareDpcRequested, PCIE_ALREADY_LOGGED* pAlreadyLogged);

// Counting in the storm queue, which holds the newest record already. Each tells whether the stop count is reached.
#pragma once

#include "Include/Cper.h"
#include "Library/VornElogBaseLib/MachineCheckClass.h"

// Machine-check records (processor and memory) of one bank of one processor, of one class.
BOOLEAN VornElogSmmCheckMceSmiStormPostProcess(MCE_CLASS MceClass, UINT32 ApicId, UINT8 McaBankNumber);

// PCIe, CXL protocol and PCI component records of one device, or of one function of it. For PCIe and CXL protocol
// records each error class that the function shows now is counted apart; a class that reached the stop count is
// marked in the function's captured state (SmiStorm). Severity: of the section descriptor; only PCI component
// records are told apart by it. FALSE for another section type and for a function that was not captured.
BOOLEAN VornElogSmmCheckPciSmiStormPostProcess(const EFI_GUID* pErrorTypeGuid, UINT8 Segment, UINT8 Bus, UINT8 Device,
                                               UINT8 Function, UINT32 Severity);

// CXL component event records of one device, or of one function of it, whose event severity is EventRecordType
// (0 informational, 1 warning, 2 failure, 3 fatal); a storm is marked in the function's captured state. FALSE for
// another section type and for a function that was not captured or is no CXL function.
BOOLEAN VornElogSmmCheckCxlComponentSmiStormPostProcess(const EFI_GUID* pErrorTypeGuid, UINT8 Segment, UINT8 Bus,
                                                        UINT8 Device, UINT8 Function, UINT8 EventRecordType);

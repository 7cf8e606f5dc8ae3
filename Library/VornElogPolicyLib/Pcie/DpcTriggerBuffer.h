// What the firmware and the platform's ACPI code tell each other of contained ports.
#pragma once

#include "Include/RasAcpiSmmData.h"

inline constexpr UINT8 DPC_TRIGGER_NO_ENTRY = 0xFF;

// Operations of GetSetDpcTriggerBuffer; DpcTriggerLookUp alone changes nothing.
enum DPC_TRIGGER_OPERATION : UINT8 {
    DpcTriggerLookUp = 0,
    ADD_BDF = 1,       // enter the port unless it has an entry
    REMOVE_BDF = 2,    // take the port's entry out once the OS was told of it
    SOFTWARE_DPC = 4,  // the containment was triggered by software, not by an error
};

// Looks the entry of a port up and changes it by Operation, bits of DPC_TRIGGER_OPERATION. An addition and a software
// DPC also start a port afresh whose recovery the OS gave up. RpBus, RpDev, RpFunc: the root port above the port.
// The index of the port's entry, DPC_TRIGGER_NO_ENTRY when it has none (any longer) or the buffer is full.
UINT8 GetSetDpcTriggerBuffer(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT8 RpBus, UINT8 RpDev, UINT8 RpFunc,
                             UINT8 Operation);

// OstStatus of a port's entry; 0 when it has none.
UINT8 DpcOstStatus(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func);

// The port that the OS's _DSM call names. EFI_INVALID_PARAMETER: a NULL pointer; EFI_NOT_FOUND: the platform shares
// no memory with its ACPI code.
EFI_STATUS VornElogSmmGetDsmDpcPort(UINT8* pSeg, UINT8* pBus, UINT8* pDev, UINT8* pFunc);
